// A cell that counts as measured was taken in the light of the laser alone, and within the range of
// its instrument.
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Light : public Checker {
public:
    explicit Light(Judge& all) : judge(all) {}

    void cellCounts(const Taken* taken, size_t count) override {
        for (size_t i = 0; i < count; ++i) {
            if (taken[i].overloaded)
                judge.find(Rule::Light, formatted("counts with an overload: %g", taken[i].value));
            if (judge.boardDoubtful) continue;
            if (taken[i].lamp) judge.find(Rule::Light, "counts in the light of the lamp");
            if (!taken[i].laser && laserDriveOf(laserLink.laserLevel) != 0)
                judge.find(Rule::Light, "counts without the laser");
        }
        if (const int pwm = labLaserPwm(); pwm != 0 && !judge.boardDoubtful) {
            const double part = laserLink.laserLevel / judge.laboratory.laserFullScaleVolts;
            if (std::fabs(pwm - std::min(part, 1.0) * 255) > 1.01)
                judge.find(Rule::Light, formatted("the laser's level is %d of 255", pwm));
        }
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkLight(Judge& judge) {
    return std::make_unique<Light>(judge);
}
