// The program ends, light and bias off, and nothing leaks.
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "session/process.h"
#include "tests/simulation/judge/judge.h"

namespace {

class End : public Checker {
public:
    explicit End(Judge& all) : judge(all) {}

    void broken() override {
        boardEverBroken |= judge.blames("board");
        busEverBroken |= judge.blamesBus();
        cameraEverBroken |= judge.blames("camera call");
    }

    void ends() override {
        if (session.processRunning != 0) judge.find(Rule::End, "a process still runs");
        if (imagingStarts != 0) judge.find(Rule::End, "imaging was not stopped");
        if (!boardEverBroken && (labLaserPwm() != 0 || labIlluminated()))
            judge.find(Rule::End, "the laser or the illumination was left on");
        if (!busEverBroken && labBiasVolts() != 0.0) judge.find(Rule::End, "a bias was left on");
        const LabCounters& left = labCounters();
        if (left.cameraDevices != devicesBefore && !cameraEverBroken)
            judge.find(Rule::End, "a camera device was not destroyed");
        if (!judge.instrumentChosen) lookAtLinks(left);
        if (serial.openPorts != 0) judge.find(Rule::End, "the port was not closed");
    }

    void letsGo() override {
        if (liveContexts != 0 || liveBitmaps != 0)
            judge.find(Rule::End, formatted("%d contexts and %d bitmaps were not given back",
                                            liveContexts, liveBitmaps));
    }

private:
    // Of a day with one instrument. Kind 7 was opened over the network and is closed on the bus; an
    // adapter that was pulled cannot take a device offline.
    void lookAtLinks(const LabCounters& left) {
        const int kind = judge.day.kind;
        // The USB sourcemeter's link stays, where it could be opened.
        const bool itsOwn = kind == kindUsbSourcemeter && left.visaSessions == 2;
        if (left.visaSessions != 0 && !itsOwn)
            judge.find(Rule::End, "a session over USB was left open");
        if (left.networkLinks > (kind == kindAnalyzerGpib ? 1u : 0u))
            judge.find(Rule::End, "the network's link was left open");
        if (left.gpibDescriptors > (kind == kindGpibMultimeter || busEverBroken ? 1u : 0u))
            judge.find(Rule::End, "a device on the bus was left online");
    }

    Judge& judge;
    bool boardEverBroken = false, busEverBroken = false, cameraEverBroken = false;
    const uint64_t devicesBefore = labCounters().cameraDevices;
};

} // namespace

std::unique_ptr<Checker> checkEnd(Judge& judge) {
    return std::make_unique<End>(judge);
}
