// Reads and connects the selected instrument.
#include "instruments/ammeter.h"

#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/message_box.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

std::string addressOf(const InstrumentKind& kind) {
    return kind.address ? kind.address() : "";
}

// A bias that the dialog says: what the source does not take of it is told.
void putOnAndTell(double volts, double limit) {
    const SourceAnswer answer = applyBias(volts, limit);
    if (!answer.accepted()) showInformation(wordsOf(answer).c_str());
}

// Those of the one before.
void forgetSettings(const InstrumentKind& chosen) {
    if (chosen.settings) return; // they are its own, from its opening
    instrumentLink.settings = {};
    instrumentLink.inVolts = false;
}

void show(const Notice& notice) {
    showMessageBox(windows.main, notice.text, notice.caption, BoxButtons::Ok);
}

} // namespace

Reading readInstrument(const InstrumentKind& kind) {
    Reading reading = kind.read ? kind.read() : Reading{};
    stayWhereTheProgramEnds();                                    // taken in the dark, perhaps
    constexpr double largest = std::numeric_limits<float>::max(); // an overload ends there
    // More is no current but a sign, perhaps that of another instrument at this address.
    constexpr double mostAmperes = 1e6;
    for (size_t i = 0; i < kind.channels.size(); ++i) { // also of those in volts
        float& value = reading.values[i];
        const double told = static_cast<double>(value) * kind.channels[i].scale;
        const bool isCurrent = kind.channels[i].unit->si[0] == 'A';
        reading.overloaded |=
            reading.answered &&
            (isOverload(value) ||
             (isCurrent && std::fabs(told) * kind.channels[i].unit->perValue > mostAmperes));
        value = static_cast<float>(std::clamp(told, -largest, largest));
    }
    return reading;
}

Reading readPhotocurrent() {
    return readInstrument(selectedInstrument());
}

void connectInstrument(int32_t kind) {
    if (!isInstrumentKind(kind)) return;
    const InstrumentKind& chosen = instrumentKind(kind);
    InstrumentLink& link = instrumentLink;
    const int32_t previous = link.ammeterKind;
    const auto limit = static_cast<double>(link.currentLimit);
    const bool biasWasOn = link.bias.volts != 0.0f;
    if (!chosen.open && chosen.failed.text) { // nothing is changed but the bias, if one was typed
        const bool typed = link.bias.volts != link.biasVoltage;
        if (biasWasOn && typed) putOnAndTell(static_cast<double>(link.biasVoltage), limit);
        return show(chosen.failed);
    }
    // Nobody could take it away over a link that is no longer the selected one.
    if (biasWasOn || link.bias.state != BiasState::Off) applyBias(0.0, limit);
    const Place before = selectedPlace();
    link.ammeterKind = kind;
    logEvent("Instrument: " + narrowed(chosen.name));
    if (!chosen.open) {
        forgetSettings(chosen);
        return followSelection(before);
    }
    if (chosen.open(static_cast<double>(link.biasVoltage))) {
        forgetSettings(chosen);
        link.openedAt = addressOf(chosen);
        link.opened = true;
        followSelection(before);
        // It is back, and may still have what could not be taken off.
        if (link.bias.state != BiasState::Off) applyBias(0.0, limit);
        return show(chosen.connected);
    }
    link.ammeterKind = previous;
    if (chosen.holdsOneConnection && previous == kind) link.biasVoltage = 0.0f;
    if (biasWasOn) putOnAndTell(static_cast<double>(link.biasVoltage), limit);
    show(chosen.failed);
}

void connectInstrumentAtStart() {
    const InstrumentKind& chosen = selectedInstrument();
    InstrumentLink& link = instrumentLink;
    logEvent("Instrument at start: " + narrowed(chosen.name));
    Place before = selectedPlace();
    link.openedAt = addressOf(chosen);
    followSelection(before);
    const auto open = chosen.openAtStart ? chosen.openAtStart : chosen.open;
    if (!open) return;
    link.opened = open(0.0);
    if (link.opened) {
        if (link.bias.state != BiasState::Off)
            applyBias(0.0, static_cast<double>(link.currentLimit));
        return;
    }
    before = selectedPlace();
    if (!chosen.keptAtStart) link.ammeterKind = kindArduino;
    followSelection(before);
    show(chosen.failedAtStart.text ? chosen.failedAtStart : chosen.failed);
}

void disconnectInstrument() {
    applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
    if (selectedInstrument().close) selectedInstrument().close();
}

const InstrumentKind& selectedInstrument() {
    return instrumentKind(instrumentLink.ammeterKind);
}

bool askSettings() {
    return !selectedInstrument().settings || selectedInstrument().settings();
}

std::string settingsDifference(const std::string& before, const std::string& now) {
    std::string words;
    for (size_t a = 0, b = 0; a < before.size() && b < now.size();) {
        const size_t endA = std::min(before.find(", ", a), before.size());
        const size_t endB = std::min(now.find(", ", b), now.size());
        const std::string was = before.substr(a, endA - a), is = now.substr(b, endB - b);
        if (was != is) {
            if (!words.empty()) words += "; ";
            words += was;
            words += " became ";
            words += is;
        }
        a = endA + 2;
        b = endB + 2;
    }
    return words;
}

namespace {

// What a filter of n equal poles lets through of a step after t time constants.
double passed(int poles, double t) {
    double term = 1.0, rest = 1.0;
    for (int i = 1; i < poles; ++i) rest += term *= t / i;
    return 1.0 - std::exp(-t) * rest;
}

} // namespace

double settledPercent(const InstrumentSettings& settings, double ms) {
    if (settings.poles <= 0) return 100.0;
    const double filteredMs = std::max(ms - settings.syncMs, 0.0);
    return 100.0 * passed(settings.poles, filteredMs / settings.timeConstantMs);
}

double settlingMs(const InstrumentSettings& settings, double percent) {
    if (settings.poles <= 0) return 0.0;
    double low = 0.0, high = 100.0; // time constants
    while (high - low > 1e-6) {
        const double middle = (low + high) / 2;
        (passed(settings.poles, middle) < percent / 100.0 ? low : high) = middle;
    }
    return settings.syncMs + high * settings.timeConstantMs;
}
