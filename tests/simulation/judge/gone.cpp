// What a script has switched on by itself is off soon after it has gone, unless the operator has
// taken it over.
#include "door/door.h"
#include "screen/control_ids.h"
#include "session/message_box.h"
#include "tests/simulation/judge/judge.h"

namespace {

constexpr double soonMs = 1000;

class Gone : public Checker {
public:
    explicit Gone(Judge& all) : judge(all) {}

    void commandComes(int id) override {
        if (id == idLaserOff || id == idLaserView || id == idSampleView || id == idLaserOn)
            judge.script.litLaser = false;
    }

    void processBegins() override { judge.script.litLaser = false; } // which ends dark

    void look() override {
        const bool lit = judge.script.litLaser && judge.script.isGone && labLaserPwm() != 0;
        const bool doubtful = judge.boardDoubtful || judge.boardSaidLost || judge.blames("board");
        if (!lit || doubtful || clientIsAtWork() || programIsBusy() || mainWindowIsHeld()) {
            idleSinceMs = testTimeMs();
            return;
        }
        if (testTimeMs() - idleSinceMs > soonMs)
            judge.find(Rule::Gone, "the laser is on, whose script is gone");
    }

private:
    Judge& judge;
    double idleSinceMs = 0;
};

} // namespace

std::unique_ptr<Checker> checkGone(Judge& judge) {
    return std::make_unique<Gone>(judge);
}
