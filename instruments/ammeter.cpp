// Switches every operation on the selected kind of instrument.
#include "instruments/ammeter.h"

#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/tektronics.h"
#include "instruments/usb_sourcemeter.h"
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

int openAnalyzer(int mode) {
    InstrumentLink& link = instrumentLink;
    return paOpen(mode, link.gpibAddress, link.ipAddress[0], link.ipAddress[1], link.ipAddress[2],
                  link.ipAddress[3], link.kxciPort);
}

// Opens the link to the instrument of a kind that has one.
bool openInstrument(int32_t kind, double usbBias, int analyzerGpibMode) {
    InstrumentLink& link = instrumentLink;
    switch (kind) {
    case kindGpibMultimeter:
        return gpibMultimeterOpen(link.gpibAddress);
    case kindGpibSourcemeter:
        return gpibSourcemeterOpen(link.gpibAddress);
    case kindUsbSourcemeter:
        return usbSourcemeterOpen(usbBias);
    case kindOscilloscope:
        return scopeOpen(&link.visaResourceManager, &link.scopeInstrument) == 1;
    case kindAnalyzerEthernet:
        return openAnalyzer(analyzerNetwork) == 1;
    case kindAnalyzerGpib:
        return openAnalyzer(analyzerGpibMode) == 1;
    default:
        return false;
    }
}

// Of the readings since biasWasLimited was asked.
bool readingAtLimit = false;
bool readingAnswered = false;

Reading readSelected() {
    switch (instrumentLink.ammeterKind) {
    case kindArduino:
        return laserAnalogRead(laserLink, 0, 1);
    case kindGpibMultimeter:
        return gpibMultimeterRead();
    case kindGpibSourcemeter:
        return gpibSourcemeterRead();
    case kindUsbSourcemeter:
        return usbSourcemeterRead();
    case kindOscilloscope:
        return scopeRead(instrumentLink.scopeInstrument);
    case kindAnalyzerEthernet:
        return paRead(analyzerNetwork);
    case kindAnalyzerGpib:
        return paRead(analyzerGpib);
    default:
        return {};
    }
}

} // namespace

float readPhotocurrent() {
    const int32_t kind = instrumentLink.ammeterKind;
    const Reading reading = noteReading(readSelected());
    // The others are passed on as the instrument sends them, and that is meant.
    const bool scaled = kind == kindGpibMultimeter || kind == kindUsbSourcemeter;
    constexpr double microamperesPerAmpere = 1e6;
    if (!scaled) return reading;
    return static_cast<float>(static_cast<double>(reading.value) * microamperesPerAmpere);
}

Reading noteReading(Reading reading) {
    readingAtLimit = readingAtLimit || reading.limited;
    readingAnswered = reading.answered;
    return reading;
}

bool lastReadingAnswered() {
    return readingAnswered;
}

bool biasWasLimited() {
    bool limited = readingAtLimit;
    readingAtLimit = false;
    // A source that no longer answers would only cost another time-out.
    if (limited || !readingAnswered) return limited;
    if (instrumentLink.ammeterKind == kindGpibSourcemeter) limited = gpibSourcemeterIsLimited();
    if (instrumentLink.ammeterKind == kindUsbSourcemeter) limited = usbSourcemeterIsLimited();
    return limited;
}

std::string biasTrouble() {
    std::string text = biasWasLimited() ? ". Current limit reached" : "";
    const std::string refusal = takeUsbSourcemeterRefusal();
    if (!refusal.empty()) text += ". Bias refused: " + refusal;
    return text;
}

void applyBias(double voltage, double limit) {
    const auto volts = static_cast<float>(voltage);
    const auto amperes = static_cast<float>(limit);
    instrumentLink.appliedVoltage = volts;
    switch (instrumentLink.ammeterKind) {
    case kindGpibSourcemeter:
        return gpibSourcemeterSetUp(volts, amperes);
    case kindUsbSourcemeter:
        return usbSourcemeterSetUp(volts, amperes);
    case kindAnalyzerEthernet:
        return paApplyBias(analyzerNetwork, volts, amperes);
    case kindAnalyzerGpib:
        return paApplyBias(analyzerGpib, volts, amperes);
    default:
        instrumentLink.appliedVoltage = 0.0f; // there is no source
        return;
    }
}

void connectInstrument(int32_t kind) {
    if (!isKind(kind)) return;
    if (kind == kindNiDaq) return show(notices[kind].failed); // and nothing is changed
    InstrumentLink& link = instrumentLink;
    const int32_t previous = link.ammeterKind;
    const auto limit = static_cast<double>(link.currentLimit);
    // Nobody could take it away over a link that is no longer the selected one.
    const bool biasWasOn = link.appliedVoltage != 0.0f;
    if (biasWasOn) applyBias(0.0, limit);
    link.ammeterKind = kind;
    if (kind == kindArduino) return;
    if (openInstrument(kind, static_cast<double>(link.biasVoltage), analyzerGpib))
        return show(notices[kind].connected);
    link.ammeterKind = previous;
    // The analyzer's network library holds one connection, which went when the new one was tried.
    if (kind == kindAnalyzerEthernet && previous == kind) link.biasVoltage = 0.0f;
    if (biasWasOn) applyBias(static_cast<double>(link.biasVoltage), limit);
    show(notices[kind].failed);
}

void connectInstrumentAtStart() {
    const int32_t kind = instrumentLink.ammeterKind;
    if (!isKind(kind) || kind == kindArduino || kind == kindNiDaq) return;
    // Kind 7 too is opened over the network here, and meant.
    if (openInstrument(kind, 0.0, analyzerNetwork)) return;
    if (!notices[kind].keepsKindAtStart) instrumentLink.ammeterKind = kindArduino;
    show(notices[kind].failedAtStart);
}

void disconnectInstrument() {
    InstrumentLink& link = instrumentLink;
    applyBias(0.0, static_cast<double>(link.currentLimit));
    switch (link.ammeterKind) {
    case kindGpibSourcemeter:
        return gpibSourcemeterOff();
    case kindOscilloscope:
        if (link.visaResourceManager) scopeClose(link.visaResourceManager);
        link.visaResourceManager = 0;
        return;
    case kindAnalyzerEthernet:
        return paClose(analyzerNetwork);
    case kindAnalyzerGpib:
        return paClose(analyzerGpib);
    default:
        return;
    }
}

const char* unitLabel() {
    return instrumentLink.ammeterKind == kindOscilloscope ? "V_ph (V)" : "I_ph (uA)";
}

const char* readingUnit(int32_t kind) {
    switch (kind) {
    case kindGpibMultimeter:
    case kindUsbSourcemeter:
        return "uA";
    case kindGpibSourcemeter:
    case kindAnalyzerEthernet:
    case kindAnalyzerGpib:
        return "A";
    default:
        return "V";
    }
}
