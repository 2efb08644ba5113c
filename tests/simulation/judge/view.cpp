// A wide view that stays on the screen is of the present place.
#include "camera/display.h"
#include "platform/text_format.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/simulation/judge/judge.h"

#include <cmath>

namespace {

class View : public Checker {
public:
    explicit View(Judge& all) : judge(all) {}

    void processBegins() override { known = false; }

    void processEnds(const Cause& cause, const std::string&) override {
        if (cause.what != wideViewName) return;
        for (int axis : {labX, labY}) takenAt[axis] = labStageUm(axis);
        known = display.wideView != 0 && !session.stopRequested;
    }

    void causeEnds() override {
        if (!known || !windows.main || display.wideView == 0 || stageIsBusy() ||
            judge.causes.size() > 1)
            return;
        for (int axis : {labX, labY}) {
            const double away = labStageUm(axis) - takenAt[axis];
            if (judge.axes[axis].doubtful || std::fabs(away) <= judge.placeToleranceUm(axis))
                continue;
            judge.find(Rule::View, formatted("%s is %.1f um from where the wide view was taken",
                                             judge.axes[axis].name, away));
        }
    }

private:
    Judge& judge;
    bool known = false;
    double takenAt[3] = {};
};

} // namespace

std::unique_ptr<Checker> checkView(Judge& judge) {
    return std::make_unique<View>(judge);
}
