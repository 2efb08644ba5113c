// Lists the kinds of instruments.
#include "instruments/kinds.h"

#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/lock_in.h"
#include "instruments/tektronics.h"
#include "instruments/usb_sourcemeter.h"

#include <iterator>

InstrumentLink instrumentLink;

namespace {

constexpr double microamperesPerAmpere = 1e6;

constexpr Unit volts{"V", 1.0, "V", "V_ph (V)", "V", 2};
constexpr Unit microamperes{"uA", 1e-6, "A", "I_ph (uA)", "uA", 1};
// Passed on as the instrument sends them, and shown as if they were microamperes: so they have
// always been read.
constexpr Unit amperes{"A", 1.0, "A", "I_ph (uA)", "uA", 1};
// The board's analog input gives volts; the window speaks of the current that they stand for.
constexpr Unit boardVolts{"V", 1.0, "V", "I_ph (uA)", "uA", 1};

// The only channel of an instrument, and the first of each.
constexpr Channel mapOf(const char* title, const Unit& unit, double scale = 1.0) {
    return {"", title, &unit, "Kestrel", "KST", "Viridis", scale};
}
constexpr Channel inVolts[] = {mapOf("Photovoltage", volts)};
constexpr Channel inMicroamperes[] = {mapOf("Photocurrent", microamperes, microamperesPerAmpere)};
constexpr Channel inAmperes[] = {mapOf("Photocurrent", amperes)};
constexpr Channel inBoardVolts[] = {mapOf("Photovoltage", boardVolts)};

// A lock-in amplifier's: R first, as it is what a map shows unless told otherwise. `scale` makes
// the unit's value of A or V.
constexpr Unit microvolts{"uV", 1e-6, "V", "V_ph (uV)", "uV", 1};
constexpr Unit degrees{"deg", 1.0, "deg", "theta (deg)", "", 0, true};

constexpr Channel of(const char* name, const char* title, const Unit& unit, const char* prefix,
                     const char* picture, const char* palette, double scale) {
    return {name, title, &unit, prefix, picture, palette, scale};
}

constexpr Channel following(Channel channel) {
    channel.averaged = false;
    return channel;
}

constexpr Channel onWish(Channel channel) {
    channel.onWish = true;
    return channel;
}

constexpr Channel auxInput =
    onWish(of("aux 1", "Aux input 1", volts, "LockInAux1", "AUX1", "Gray", 1.0));
constexpr Channel theta =
    following(of("theta", "Theta", degrees, "LockInTheta", "THETA", "Warpp-spectral", 1.0));
constexpr Channel lockInMicroamperes[] = {
    following(of("R", "R", microamperes, "LockInR", "R", "Viridis", microamperesPerAmpere)),
    of("X", "X", microamperes, "LockInX", "X", "Viridis", microamperesPerAmpere),
    of("Y", "Y", microamperes, "LockInY", "Y", "Viridis", microamperesPerAmpere),
    theta,
    auxInput,
};
constexpr Channel lockInMicrovolts[] = {
    following(of("R", "R", microvolts, "LockInR", "R", "Viridis", 1e6)),
    of("X", "X", microvolts, "LockInX", "X", "Viridis", 1e6),
    of("Y", "Y", microvolts, "LockInY", "Y", "Viridis", 1e6),
    theta,
    auxInput,
};

constexpr Notice noScope{"No Tektronics devices via USB", "Oscilloscope Error"};
constexpr Notice noAnalyzer{"No Parameter Analyzer 4200 found", "Parameter Analyzer Error"};

// Two boards may have the same address.
std::string busAddress() {
    const std::string address = std::to_string(instrumentLink.gpibAddress);
    return setUp.gpibBoard == 0 ? address : std::to_string(setUp.gpibBoard) + ":" + address;
}

std::string networkAddress() {
    std::string address;
    for (const int32_t octet : instrumentLink.ipAddress) address += std::to_string(octet) + ".";
    return address + std::to_string(instrumentLink.kxciPort);
}

bool openAnalyzer(int mode) {
    const InstrumentLink& link = instrumentLink;
    return paOpen(mode, link.gpibAddress, link.ipAddress[0], link.ipAddress[1], link.ipAddress[2],
                  link.ipAddress[3], link.kxciPort) == 1;
}

bool openNetworkAnalyzer(double) {
    return openAnalyzer(analyzerNetwork);
}

bool openMultimeter(double) {
    return gpibMultimeterOpen(instrumentLink.gpibAddress);
}

bool openGpibSourcemeter(double) {
    return gpibSourcemeterOpen(instrumentLink.gpibAddress);
}

bool openScope(double) {
    InstrumentLink& link = instrumentLink;
    return scopeOpen(&link.visaResourceManager, &link.scopeInstrument) == 1;
}

void closeScope() {
    if (instrumentLink.visaResourceManager) scopeClose(instrumentLink.visaResourceManager);
    instrumentLink.visaResourceManager = 0;
}

const InstrumentKind kinds[equipmentKindCount] = {
    {
        .name = L"Arduino",
        .channels = inBoardVolts,
        .overTheBoard = true,
        .read = [] { return laserAnalogRead(laserLink, 0, 1); },
    },
    {
        .name = L"NI-DAQ",
        .channels = inBoardVolts,
        .failed = {"This equipment is not supported yet", "NI-DAQ Error"},
    },
    {
        .name = L"GPIB Multimeter",
        .channels = inMicroamperes,
        .address = busAddress,
        .open = openMultimeter,
        .connected = {"MultiMeter device connected", "GPIB Communication"},
        .failed = {"No MultiMeter devices found at GPIB", "GPIB Error"},
        .keptAtStart = true,
        .read = gpibMultimeterRead,
    },
    {
        .name = L"GPIB Sourcemeter",
        .channels = inAmperes,
        .canSweep = true,
        .address = busAddress,
        .open = openGpibSourcemeter,
        .connected = {"SourceMeter device connected", "GPIB Communication"},
        .failed = {"No GPIB connected", "GPIB Error"},
        .failedAtStart = {"No SourceMeter devices found at GPIB", "GPIB Error"},
        .keptAtStart = true,
        .read = gpibSourcemeterRead,
        .applyBias = gpibSourcemeterSetUp,
        .isLimited = gpibSourcemeterIsLimited,
        .close = gpibSourcemeterOff,
    },
    {
        .name = L"USB Sourcemeter",
        .channels = inMicroamperes,
        .canSweep = true,
        .address = usbSourcemeterAddress,
        .open = usbSourcemeterOpen,
        .connected = {"SourceMeter device connected", "USB Communication"},
        .failed = {"No SourceMeter devices found via USB", "USB Error"},
        .failedAtStart = {"No SourceMeter devices via USB", "USB Error"},
        .read = usbSourcemeterRead,
        .beginAnew = usbSourcemeterBeginAnew,
        .applyBias = usbSourcemeterSetUp,
        .isLimited = usbSourcemeterIsLimited,
        .identity = usbSourcemeterIdentity,
    },
    {
        .name = L"Tektronix Oscilloscope",
        .channels = inVolts,
        .open = openScope,
        .connected = {"Tektronics devices connected via USB", "Oscilloscope Connected"},
        .failed = noScope,
        .read = [] { return scopeRead(instrumentLink.scopeInstrument); },
        .identity = scopeIdentity,
        .close = closeScope,
    },
    {
        .name = L"4200 PA Ethernet",
        .channels = inAmperes,
        .canSweep = true,
        .usesNetworkAddress = true,
        .address = networkAddress,
        .holdsOneConnection = true,
        .open = openNetworkAnalyzer,
        .connected = {"Parameter Analyzer 4200 connected via Ethernet",
                      "Parameter Analyzer Connected"},
        .failed = noAnalyzer,
        .failedAtStart = noScope, // as operators know it
        .read = [] { return paRead(analyzerNetwork); },
        .applyBias = [](float v, float a) { return paApplyBias(analyzerNetwork, v, a); },
        .close = [] { paClose(analyzerNetwork); },
    },
    {
        .name = L"4200 PA GPIB",
        .channels = inAmperes,
        .address = busAddress,
        .open = [](double) { return openAnalyzer(analyzerGpib); },
        .openAtStart = openNetworkAnalyzer, // the bus is opened by "Initialize"
        .connected = {"Parameter Analyzer 4200 connected via GPIB", "Parameter Analyzer Connected"},
        .failed = noAnalyzer,
        .failedAtStart = noScope,
        .read = [] { return paRead(analyzerGpib); },
        .applyBias = [](float v, float a) { return paApplyBias(analyzerGpib, v, a); },
        .close = [] { paClose(analyzerGpib); },
    },
    {
        .name = L"Lock-in SR830 GPIB",
        .channels = lockInMicroamperes,
        .channelsInVolts = lockInMicrovolts,
        .address = busAddress,
        .open = [](double) { return sr830Open(instrumentLink.gpibAddress); },
        .connected = {"Lock-in device connected", "GPIB Communication"},
        .failed = {"No Lock-in devices found at GPIB", "GPIB Error"},
        .keptAtStart = true,
        .read = sr830Read,
        .derive = deriveLockIn,
        .settings = sr830Settings,
        .beginPoint = sr830BeginPoint,
        .identity = sr830Identity,
        .close = gpibTakeOffline,
    },
    {
        .name = L"Lock-in SR860 USB",
        .channels = lockInMicroamperes,
        .channelsInVolts = lockInMicrovolts,
        .open = [](double) { return sr860Open(); },
        .connected = {"Lock-in device connected", "USB Communication"},
        .failed = {"No Lock-in devices found via USB", "USB Error"},
        .read = sr860Read,
        .derive = deriveLockIn,
        .settings = sr860Settings,
        .beginPoint = sr860BeginPoint,
        .identity = sr860Identity,
        .close = sr860Close,
    },
};

const InstrumentKind none{.name = L"none", .channels = inBoardVolts};

} // namespace

std::span<const Channel> channelsOf(int32_t kind, bool inVolts) {
    const InstrumentKind& row = instrumentKind(kind);
    return inVolts && !row.channelsInVolts.empty() ? row.channelsInVolts : row.channels;
}

const Channel& mainChannel() {
    return channelsOf(instrumentLink.ammeterKind, instrumentLink.inVolts).front();
}

CurrentAmplifier amplifierOf(int32_t kind) {
    if (kind == kindArduino) return setUp.boardAmplifier;
    return kind == kindOscilloscope ? setUp.scopeAmplifier : CurrentAmplifier();
}

Unit unitBehind(const CurrentAmplifier& amplifier, const Channel& channel) {
    Unit unit = *channel.unit;
    if (!amplifier.isKnown()) return unit;
    constexpr struct {
        double amperes;
        const char *name, *label;
    } prefixes[] = {{1.0, "A", "I_ph (A)"},
                    {1e-3, "mA", "I_ph (mA)"},
                    {1e-6, "uA", "I_ph (uA)"},
                    {1e-9, "nA", "I_ph (nA)"},
                    {1e-12, "pA", "I_ph (pA)"}};
    const double perVolt = 1.0 / amplifier.voltsPerAmpere;
    size_t i = 0;
    while (i + 1 < std::size(prefixes) && perVolt < 0.999999 * prefixes[i].amperes) ++i;
    const double shown = perVolt / prefixes[i].amperes;
    unit.si = "A";
    unit.label = prefixes[i].label;
    unit.shownAs = prefixes[i].name;
    unit.decimals = shown >= 99.9 ? 1 : shown >= 9.99 ? 2 : 3; // a converter's step of 5 mV
    unit.zero = amplifier.offsetVolts;
    unit.perValue = amplifier.inverts ? -perVolt : perVolt;
    unit.shownPerValue = amplifier.inverts ? -shown : shown;
    return unit;
}

const char* unitLabel() {
    return unitBehind(amplifierOf(instrumentLink.ammeterKind), mainChannel()).label;
}

bool isInstrumentKind(int32_t kind) {
    return kind >= 0 && kind < equipmentKindCount;
}

const InstrumentKind& instrumentKind(int32_t kind) {
    return isInstrumentKind(kind) ? kinds[kind] : none;
}
