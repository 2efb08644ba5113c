// A light that is on must show, or the title must say that the board is lost. One that is off need
// not while the board does not answer: "On" is then what was asked for.
#include "instruments/laser_link.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Lights : public Checker {
public:
    explicit Lights(Judge& all) : judge(all) {}

    void broken() override { doubtBoard(); }

    void commandComes(int id) override {
        if (id == idLaserOn || id == idLaserView) askedForLaser = askedSinceLook = true;
    }

    // Whoever asked for the laser did so before this point, unless it was since the last look.
    void cellIsMarked(size_t, size_t, PointMark) override { askedForLaser = askedSinceLook; }

    void look() override {
        doubtBoard();
        bool right = judged("laser", idLaserOn, labLaserPwm() != 0);
        right &= judged("illumination", idIlluminationOn, labIlluminated());
        if (right && !judge.blames("board absent")) judge.boardDoubtful = false;
        askedSinceLook = false;
    }

    void processEnds(const Cause& cause, const std::string&) override {
        if (Judge::isUnbegun(cause) || judge.scriptSwitchesBehind()) return;
        if ((cause.what == scanName || cause.what == listName) && labLaserPwm() != 0 &&
            !judge.boardSaidLost && !judge.boardDoubtful && !askedForLaser)
            judge.find(Rule::Lights, "the laser is on after a scan");
    }

    void ends() override {
        if (labBoardPresent() && !judge.boardSaidLost && !judge.saidAtEnd() &&
            !judge.boardDoubtful && (labLaserPwm() != 0 || labIlluminated()))
            judge.find(Rule::Lights, formatted("left on: laser %d, illumination %d", labLaserPwm(),
                                               labIlluminated() ? 1 : 0));
    }

private:
    // A board that takes everything and does nothing cannot be told from one that is there.
    void doubtBoard() {
        if (judge.blames("board absent") && laserLink.disconnected == 0) judge.boardDoubtful = true;
    }

    bool judged(const char* name, int onButton, bool lit) {
        const int checked = checkedRadio(onButton);
        if (checked == 0 || (checked == onButton) == lit) return true;
        const bool answers = labBoardPresent() && laserLink.disconnected == 0;
        if (!judge.boardDoubtful && (lit ? !judge.boardSaidLost : answers))
            judge.find(Rule::Lights, formatted("the %s is %s", name, lit ? "on" : "off"));
        return false;
    }

    Judge& judge;
    bool askedForLaser = false;  // by hand, since the last point
    bool askedSinceLook = false; // and since the judge looked
};

} // namespace

std::unique_ptr<Checker> checkLights(Judge& judge) {
    return std::make_unique<Lights>(judge);
}
