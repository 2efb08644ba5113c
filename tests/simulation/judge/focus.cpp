// A search for the focus says that it is completed only when Z has made its moves: a controller in
// alarm acknowledges them and makes none.
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Focus : public Checker {
public:
    explicit Focus(Judge& all) : judge(all) {}

    void processBegins() override { ignoredBefore = judge.axes[labZ].ignored; }

    void processEnds(const Cause& cause, const std::string& said) override {
        const int ignored = judge.axes[labZ].ignored - ignoredBefore;
        if (cause.what == autofocusName && ignored > 0 &&
            said.find("Focusing Completed!") != std::string::npos)
            judge.find(Rule::Focus, formatted("completed, and Z ignored %d moves", ignored));
    }

private:
    Judge& judge;
    int ignoredBefore = 0;
};

} // namespace

std::unique_ptr<Checker> checkFocus(Judge& judge) {
    return std::make_unique<Focus>(judge);
}
