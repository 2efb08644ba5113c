// Switches every operation on the selected kind of instrument.
#include "instruments/ammeter.h"

#include "instruments/laser_link.h"
#include "platform/message_box.h"
#include "ui/screen.h"

InstrumentLink instrumentLink;

const wchar_t* const equipmentNames[equipmentKindCount] = {
    L"Arduino",          L"NI-DAQ",          L"GPIB Multimeter",
    L"GPIB Sourcemeter", L"USB Sourcemeter", L"Tektronix Oscilloscope",
    L"4200 PA Ethernet", L"4200 PA GPIB"};

namespace {

struct Notice {
    const char* text;
    const char* caption;
};

struct ConnectNotices {
    Notice connected;
    Notice failed;
    Notice failedAtStart; // other words than later on, and meant
    bool keepsKindAtStart;
};

constexpr Notice scopeMissing{"No Tektronics devices via USB", "Oscilloscope Error"};
constexpr Notice analyzerMissing{"No Parameter Analyzer 4200 found", "Parameter Analyzer Error"};

constexpr ConnectNotices notices[equipmentKindCount] = {
    {},
    {{}, {"This equipment is not supported yet", "NI-DAQ Error"}, {}, true},
    {{"MultiMeter device connected", "GPIB Communication"},
     {"No MultiMeter devices found at GPIB", "GPIB Error"},
     {"No MultiMeter devices found at GPIB", "GPIB Error"},
     true},
    {{"SourceMeter device connected", "GPIB Communication"},
     {"No GPIB connected", "GPIB Error"},
     {"No SourceMeter devices found at GPIB", "GPIB Error"},
     true},
    {{"SourceMeter device connected", "USB Communication"},
     {"No SourceMeter devices found via USB", "USB Error"},
     {"No SourceMeter devices via USB", "USB Error"},
     false},
    {{"Tektronics devices connected via USB", "Oscilloscope Connected"},
     scopeMissing,
     scopeMissing,
     false},
    {{"Parameter Analyzer 4200 connected via Ethernet", "Parameter Analyzer Connected"},
     analyzerMissing,
     scopeMissing,
     false},
    {{"Parameter Analyzer 4200 connected via GPIB", "Parameter Analyzer Connected"},
     analyzerMissing,
     scopeMissing,
     false},
};

void show(const Notice& notice) {
    showMessageBox(mainWindow, notice.text, notice.caption, BoxButtons::Ok);
}

bool isKind(int32_t kind) {
    return kind >= 0 && kind < equipmentKindCount;
}

// Opens the link to the instrument of a kind that has one. No link of kinds 2 to 7 is built in, so
// that none of them is ever found.
bool openInstrument(int32_t) {
    return false;
}

} // namespace

float readPhotocurrent() {
    switch (instrumentLink.ammeterKind) {
    case kindArduino:
        return laserAnalogRead(laserLink, 0, 1);
    default:
        return 0.0f;
    }
}

void applyBias(double, double) {
    // No kind that is built in has a source.
}

void connectInstrument(int32_t kind) {
    const int32_t previous = instrumentLink.ammeterKind;
    instrumentLink.ammeterKind = kind;
    if (!isKind(kind) || kind == kindArduino) return;
    if (openInstrument(kind)) {
        show(notices[kind].connected);
        return;
    }
    show(notices[kind].failed);
    instrumentLink.ammeterKind = previous;
}

void connectInstrumentAtStart() {
    const int32_t kind = instrumentLink.ammeterKind;
    if (!isKind(kind) || kind == kindArduino || kind == kindNiDaq) return;
    if (openInstrument(kind)) return;
    show(notices[kind].failedAtStart);
    if (!notices[kind].keepsKindAtStart) instrumentLink.ammeterKind = kindArduino;
}

void disconnectInstrument() {
    applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
}

const char* unitLabel() {
    return instrumentLink.ammeterKind == kindOscilloscope ? "V_ph (V)" : "I_ph (uA)";
}
