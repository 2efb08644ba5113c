// At rest the stage is where the program takes it to be.
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Place : public Checker {
public:
    explicit Place(Judge& all) : judge(all) {}

    void look() override {
        if (stageIsMoving() || zeroIsSetNow()) return;
        for (int axis : {labX, labY, labZ}) lookAt(judge.axes[axis], axis);
    }

private:
    // The program already counts from there, and the judge learns it behind the command.
    bool zeroIsSetNow() const {
        static const std::string setsZero = formatted("button %d", idSetZero);
        return !judge.causes.empty() && judge.causes.back().what == setsZero;
    }

    void lookAt(AxisView& each, int axis) {
        if (each.axis.axisNumber == 0 || labStageMoves(axis)) return;
        const double said = each.axis.positionUm, is = labStageUm(axis) - each.zeroUm;
        if (std::fabs(said - is) <= judge.placeToleranceUm(axis))
            each.doubtful = judge.mayMislead(each);
        else if (!each.doubtful)
            judge.find(Rule::Place,
                       formatted("%s is at %.1f um, said to be at %.1f", each.name, is, said));
    }

    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkPlace(Judge& judge) {
    return std::make_unique<Place>(judge);
}
