// No axis is sent beyond its limits in the set-up, but a way back is open.
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Limit : public Checker {
public:
    explicit Limit(Judge& all) : judge(all) {}

    void moveIsSent(int axis, bool) override {
        const AxisView& each = judge.axes[axis];
        const double isUm = labCountedUm(axis), toUm = each.sentToUm;
        // The program knows full steps and microsteps.
        const double hair =
            2 * judge.laboratory.drives[static_cast<size_t>(axis)].microstepUm() + 0.01;
        if (std::isinf(each.lowestUm) && std::isinf(each.highestUm)) return;
        judge.count("moves of an axis with limits");
        if (each.doubtful) return;
        if ((toUm > each.highestUm + hair && toUm > isUm + hair) ||
            (toUm < each.lowestUm - hair && toUm < isUm - hair))
            judge.find(Rule::Limit, formatted("%s was sent to %.2f um, it may be at %.2f to %.2f",
                                              each.name, toUm, each.lowestUm, each.highestUm));
    }

    void causeEnds() override {
        if (judge.causes.back().what != formatted("command %d", idSetHighestZ) || !windows.main)
            return;
        AxisView& z = judge.axes[labZ];
        if (!historyOf(Field::Information).back().starts_with("Highest Z: ")) return;
        z.highestUm = z.doubtful ? std::numeric_limits<double>::infinity() : labCountedUm(labZ);
        judge.count("highest Z set");
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkLimit(Judge& judge) {
    return std::make_unique<Limit>(judge);
}
