// No move begins in the middle of another.
#include "platform/text_format.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/simulation/judge/judge.h"

namespace {

class OneMove : public Checker {
public:
    explicit OneMove(Judge& all) : judge(all) {}

    void moveIsSent(int axis, bool nudged) override {
        const char* const name = judge.axes[axis].name;
        if (!judge.causes.empty() && judge.causes.back().inMove && !nudged)
            judge.find(Rule::OneMove, formatted("%s was sent inside another move", name));
        // A stop cuts short the wait in which a move goes its last micrometre.
        if (stageIsMoving() && labStageMoves(axis) && !judge.axes[axis].doubtful &&
            session.stopRequested == 0)
            judge.find(Rule::OneMove, formatted("%s was sent elsewhere on its way", name));
    }

    void dialogOpens() override {
        if (stageIsMoving()) judge.find(Rule::OneMove, "the dialog opened while the stage moves");
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkOneMove(Judge& judge) {
    return std::make_unique<OneMove>(judge);
}
