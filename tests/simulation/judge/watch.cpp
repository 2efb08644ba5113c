// While the stage moves the program waits for it.
#include "platform/text_format.h"
#include "session/process.h"
#include "tests/simulation/judge/judge.h"

namespace {

constexpr double unwatchedWayUm = 5.0;

class Watch : public Checker {
public:
    explicit Watch(Judge& all) : judge(all) {}

    void moveIsSent(int axis, bool) override { unwatchedFromUm[axis] = NAN; }

    void look() override {
        for (int axis : {labX, labY, labZ}) lookAt(judge.axes[axis], axis);
    }

private:
    void lookAt(const AxisView& each, int axis) {
        double& fromUm = unwatchedFromUm[axis];
        if (stageIsMoving() || each.axis.axisNumber == 0 || !labStageMoves(axis)) {
            fromUm = NAN;
            return;
        }
        const double um = labStageUm(axis);
        if (std::isnan(fromUm)) fromUm = um;
        if (std::fabs(um - fromUm) > unwatchedWayUm && !each.doubtful)
            judge.find(Rule::Watch, formatted("%s goes on and nobody waits for it", each.name));
    }

    Judge& judge;
    double unwatchedFromUm[3] = {NAN, NAN, NAN}; // where it was when the program ceased to wait
};

} // namespace

std::unique_ptr<Checker> checkWatch(Judge& judge) {
    return std::make_unique<Watch>(judge);
}
