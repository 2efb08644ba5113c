// The kinds of instruments: one row each with all that the program knows of it.
#pragma once

#include "instruments/channel.h"
#include "instruments/reading.h"
#include "session/set_up.h"

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>

enum EquipmentKind : int32_t {
    kindArduino = 0,
    kindNiDaq = 1,
    kindGpibMultimeter = 2,
    kindGpibSourcemeter = 3,
    kindUsbSourcemeter = 4,
    kindOscilloscope = 5,
    kindAnalyzerEthernet = 6,
    kindAnalyzerGpib = 7,
    kindLockInGpib = 8,
    kindLockInUsb = 9,
};
constexpr int equipmentKindCount = 10;

struct Notice {
    const char* text;
    const char* caption;
};

struct InstrumentKind {
    const wchar_t* name = L"";
    std::span<const Channel> channels; // at least one: the first is the photocurrent
    // The same where its values are volts, because no amplifier is known; empty where they are
    // what they are.
    std::span<const Channel> channelsInVolts{};
    bool canSweep = false; // its source sets the bias of the I-V sweep
    bool overTheBoard = false;
    bool usesNetworkAddress = false;
    std::string (*address)() = nullptr; // where it is looked for; null where there is but one place
    bool holdsOneConnection = false;    // opening it again closes the one before
    bool (*open)(double biasVolts) = nullptr;        // null where there is nothing to open
    bool (*openAtStart)(double biasVolts) = nullptr; // where it is not `open`
    Notice connected{};
    Notice failed{};          // without `open`: the kind is not supported
    Notice failedAtStart{};   // where it is not `failed`
    bool keptAtStart = false; // selected also when it does not open then; otherwise kind 0 is
    // Null, or what has nothing to do.
    Reading (*read)() = nullptr; // in the instrument's own units
    // Makes of the means of those channels that are averaged the others.
    void (*derive)(std::array<float, mostChannels>& values) = nullptr;
    // What somebody has set at it, also into `instrumentLink`; nothing when it does not say.
    std::optional<InstrumentSettings> (*settings)() = nullptr;
    // What it has noticed so far belongs to no reading from here on.
    void (*beginPoint)() = nullptr;
    // Before a bias that is not one of a sweep: what somebody may have changed at the instrument is
    // set again.
    void (*beginAnew)() = nullptr;
    SourceAnswer (*applyBias)(float volts, float limitAmperes) = nullptr;
    bool (*isLimited)() = nullptr;       // the limit cuts the current now
    std::string (*identity)() = nullptr; // what it answered to "*IDN?" when it was opened
    void (*close)() = nullptr;           // after its bias was taken off
};

// What an instrument of that kind measures, with the units of its values.
std::span<const Channel> channelsOf(int32_t kind, bool inVolts);

// The first channel of the selected instrument.
const Channel& mainChannel();

// The amplifier before an instrument of that kind that reads volts; none where the set-up has none.
CurrentAmplifier amplifierOf(int32_t kind);

// The channel's unit, but behind an amplifier, whose volts are kept as they were read and stand for
// the current before it: they are shown in the unit of 1 V, as nA at 1e7 V/A.
Unit unitBehind(const CurrentAmplifier& amplifier, const Channel& channel);

// Beside the measured value, of the selected instrument.
const char* unitLabel();

// The row of a kind. A number that names none has a row without an instrument.
const InstrumentKind& instrumentKind(int32_t kind);
bool isInstrumentKind(int32_t kind);

// A source is told apart by its kind and its address: another one of the same kind is not the one
// that has a bias.
using Place = std::pair<int32_t, std::string>;

enum class BiasState {
    Off,
    On,     // what the source was last told
    Unsure, // it may have one, and has not taken what it was last told
};

struct SourceBias {
    BiasState state = BiasState::Off; // of the selected source
    float volts = 0.0f;               // V; what it was last told to put on
    // Others that got a bias and have not taken 0 V since, in this run or an earlier one.
    std::set<Place> leftElsewhere;
    std::string onFile; // all that may have one, as Options.ini has it or was tried to be told
};

struct InstrumentLink {
    int32_t ammeterKind = kindArduino;
    int32_t gpibAddress = 18; // primary address
    // The parameter analyzer: a private address that most routers leave free, and its TCP port.
    int32_t ipAddress[4] = {192, 168, 0, 10};
    int32_t kxciPort = 1225;
    int32_t gpibBoard = 0;
    int32_t gpibDevice = -1;
    uint32_t visaResourceManager = 0;
    uint32_t scopeInstrument = 0;
    float biasVoltage = 0.0f;     // V; as the dialog says
    float currentLimit = 0.0001f; // A
    std::string openedAt;         // the address at which the selected one was looked for
    bool opened = false;          // and found
    bool inVolts = false;         // its values are, for want of an amplifier's V/A
    InstrumentSettings settings;  // as they were last asked for
    SourceBias bias;
};

extern InstrumentLink instrumentLink;
