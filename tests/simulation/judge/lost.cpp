// An axis is lost only by what takes it away, and then a scan does not go on with it.
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <utility>

namespace {

class Lost : public Checker {
public:
    explicit Lost(Judge& all) : judge(all) {}

    void broken() override { look(); }

    void look() override {
        for (int axis : {labX, labY, labZ}) lookAt(axis);
    }

    void cellIsMarked(size_t, size_t, PointMark) override {
        const auto isOut = [](const StageAxis& axis) {
            return axis.axisNumber != 0 && axis.lostBy != 0; // not one that counts on paper
        };
        const bool out = isOut(stageX) || isOut(stageY);
        pointsWithout = out ? pointsWithout + 1 : 0;
        if (pointsWithout > 1) judge.find(Rule::Lost, "points are taken though an axis is lost");
    }

private:
    void lookAt(int axis) {
        const AxisView& each = judge.axes[axis];
        // What took it away shows when it is asked next, and until it is opened again.
        if (std::exchange(openedAs[axis], each.id) != each.id) excused[axis] = false;
        const bool away = takenAway(each);
        excused[axis] |= std::exchange(wasAway[axis], away) || away;
        if (each.axis.lostBy != 0 && !excused[axis])
            judge.find(Rule::Lost, formatted("%s counts as lost", each.name));
    }

    bool takenAway(const AxisView& each) const {
        if (each.powerCut) return true;
        for (const char* what : {"lost", "mute", "absent", "replaced"})
            if (judge.blames(formatted("axis %s %s", each.name, what).c_str())) return true;
        for (const char* what : {"stage absent", "stage count", "stage call"})
            if (judge.blames(what)) return true;
        return false;
    }

    Judge& judge;
    bool excused[3] = {}, wasAway[3] = {};
    int openedAs[3] = {-1, -1, -1};
    int pointsWithout = 0;
};

} // namespace

std::unique_ptr<Checker> checkLost(Judge& judge) {
    return std::make_unique<Lost>(judge);
}
