// The stage is moved by a process, a key, a click, a command, along their axes, X and Y by nothing
// other than the scan that runs; a bias is put on by a process or by whoever asked for it.
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <utility>

namespace {

class CauseChecker : public Checker {
public:
    explicit CauseChecker(Judge& all) : judge(all) {}

    void moveIsSent(int axis, bool nudged) override {
        unsigned allowed = judge.causes.empty() ? noAxis : judge.causes.back().axes;
        // While a scan runs X and Y are the scan's.
        if (judge.inScan() && judge.causes.back().what != scanName &&
            judge.causes.back().what != listName)
            allowed &= axisZ;
        if ((allowed & 1u << axis) == 0 && !nudged)
            judge.find(Rule::Cause, formatted("%s was sent", judge.axes[axis].name));
    }

    void look() override {
        bool mayComeOn = false, sweeps = false;
        for (const Cause& cause : judge.causes) {
            sweeps |= cause.sweep;
            mayComeOn |= cause.process || cause.bias;
        }
        const double volts = labBiasVolts();
        const double before = std::exchange(biasSeen, volts);
        if (volts != 0.0 && before == 0.0 && !mayComeOn && !sweeps)
            judge.find(Rule::Cause, formatted("a bias was put on, %g V", volts));
        if (labCounters().moves != judge.movesSeen)
            judge.find(Rule::Cause, "the stage was moved past the program's library");
    }

private:
    Judge& judge;
    double biasSeen = labBiasVolts(); // at the last look; one may be left by an earlier run
};

} // namespace

std::unique_ptr<Checker> checkCause(Judge& judge) {
    return std::make_unique<CauseChecker>(judge);
}
