// The sample has the bias that the dialog's link says, or none, or the title says that it may have
// one; none after a process.
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>

namespace {

class Bias : public Checker {
public:
    explicit Bias(Judge& all) : judge(all) {}

    void look() override {
        const auto sweeps = [](const Cause& cause) { return cause.sweep; };
        if (std::any_of(judge.causes.begin(), judge.causes.end(), sweeps)) return;
        const double volts = labBiasVolts();
        const auto said = static_cast<double>(instrumentLink.biasVoltage);
        const bool right = std::fabs(volts) < 1e-6 || std::fabs(volts - said) < 1e-3;
        if (right) refusalSaid = false;
        if (!right && !judge.biasSaidLost && !refusalSaid)
            judge.find(Rule::Bias,
                       formatted("%g V on the sample, %g V in the dialog", volts, said));
    }

    void fieldIsShown(Field field) override {
        if (field == Field::Information)
            refusalSaid |= textIn(Field::Information).starts_with("Bias refused");
    }

    void processEnds(const Cause& cause, const std::string&) override {
        if (Judge::isUnbegun(cause) || judge.scriptSwitchesBehind()) return;
        if ((cause.what == scanName || cause.what == listName || cause.axes == noAxis) &&
            labBiasVolts() != 0.0 && !judge.biasSaidLost)
            judge.find(Rule::Bias, formatted("%g V after a process", labBiasVolts()));
    }

    void ends() override {
        if (labBiasVolts() != 0.0 && !judge.biasSaidLost && !judge.saidAtEnd())
            judge.find(Rule::Bias, formatted("left on without a word: %g V", labBiasVolts()));
    }

private:
    Judge& judge;
    bool refusalSaid = false; // by the source, of what the dialog says
};

} // namespace

std::unique_ptr<Checker> checkBias(Judge& judge) {
    return std::make_unique<Bias>(judge);
}
