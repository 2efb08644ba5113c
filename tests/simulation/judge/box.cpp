// A box holds whatever is under way until it is answered: none holds a process that has not asked
// it, and none asks after a stop.
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Box : public Checker {
public:
    explicit Box(Judge& all) : judge(all) {}

    void boxOpens(const ShownBox& box) override {
        const bool asksConsent = box.text.starts_with("Hysteresis compensated");
        if (asksConsent && session.stopRequested)
            judge.find(Rule::Box, "asked after a stop: " + box.text);
        const bool asksForStop = box.text.starts_with("Do you want to stop");
        if (processUnderWay() && !asksForStop && !judge.causes.empty() &&
            !judge.causes.back().process)
            judge.find(Rule::Box, "holds a process: " + box.text);
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkBox(Judge& judge) {
    return std::make_unique<Box>(judge);
}
