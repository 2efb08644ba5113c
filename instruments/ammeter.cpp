// Reads, biases and connects the selected instrument.
#include "instruments/ammeter.h"

#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/message_box.h"
#include "session/options.h"
#include "session/stay_awake.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <utility>

namespace {

std::string addressOf(const InstrumentKind& kind) {
    return kind.address ? kind.address() : "";
}

// What a bias is kept for: another instrument of the same kind is not the one that has it.
std::pair<int32_t, std::string> selectedPlace() {
    return {instrumentLink.ammeterKind, instrumentLink.openedAt};
}

bool mayBeBiased() {
    return instrumentLink.mayBeBiased.count(selectedPlace()) != 0;
}

void sayWhetherABiasIsLost() {
    const std::string words = biasLeftOn();
    titleBias(words);
    if (!words.empty()) showInformation(words.c_str());
}

// In Options.ini: the sources that may have a bias, as "3 24; 4": kind and address.
constexpr char keptBias[] = "bias may be on at";

std::string biasToKeep() {
    std::string text;
    for (const auto& [kind, address] : instrumentLink.mayBeBiased)
        text += (text.empty() ? "" : "; ") + formatted("%d %s", kind, address.c_str());
    return text;
}

void keepBias() {
    const std::string text = biasToKeep();
    if (text == instrumentLink.biasOnFile) return;
    instrumentLink.biasOnFile = text;
    writeOptions({{keptBias, text}});
}

void show(const Notice& notice) {
    showMessageBox(mainWindow, notice.text, notice.caption, BoxButtons::Ok);
}

} // namespace

Reading readPhotocurrent() {
    const InstrumentKind& selected = selectedInstrument();
    Reading reading = noteReading(selected.read ? selected.read() : Reading{});
    constexpr double largest = std::numeric_limits<float>::max(); // an overload ends there
    reading.value = static_cast<float>(
        std::clamp(static_cast<double>(reading.value) * selected.readingScale, -largest, largest));
    return reading;
}

Reading noteReading(Reading reading) {
    stayWhereTheProgramEnds(); // taken in the dark, perhaps
    instrumentLink.readingAtLimit = instrumentLink.readingAtLimit || reading.limited;
    instrumentLink.readingAnswered = reading.answered;
    reading.overloaded |= reading.answered && isOverload(reading.value);
    return reading;
}

bool biasWasLimited() {
    const bool limited = instrumentLink.readingAtLimit;
    instrumentLink.readingAtLimit = false;
    // A source that no longer answers would only cost another time-out.
    if (limited || !instrumentLink.readingAnswered) return limited;
    const InstrumentKind& source = selectedInstrument();
    return source.isLimited && source.isLimited();
}

std::string biasNotTaken() {
    std::string text = std::exchange(instrumentLink.biasMissed, false) ? ". Bias not heard" : "";
    const std::string refusal = std::exchange(instrumentLink.biasRefused, {});
    return refusal.empty() ? text : text + ". Bias refused: " + refusal;
}

std::string biasTrouble() {
    const std::string limited = biasWasLimited() ? ". Current limit reached" : "";
    return biasNotTaken() + limited;
}

std::string limitText(double amperes) {
    const std::string text = formatted("%f", amperes);
    constexpr double sameLimit = 0.1;
    const bool same =
        std::fabs(std::strtod(text.c_str(), nullptr) - amperes) <= sameLimit * amperes;
    return same ? text : formatted("%g", amperes);
}

std::string biasLeftOn() {
    const InstrumentLink& link = instrumentLink;
    const size_t meant = link.biasHeard ? link.mayBeBiased.count(selectedPlace()) : 0;
    return link.mayBeBiased.size() > meant ? "instrument lost: the bias may be on" : "";
}

void applyBias(double voltage, double limit) {
    const InstrumentKind& source = selectedInstrument();
    if (source.applyBias) logEvent(formatted("Bias %g V, current limit %g A", voltage, limit));
    if (source.beginAnew) source.beginAnew();
    instrumentLink.biasMissed = false;
    instrumentLink.biasRefused.clear();
    stepBias(voltage, limit);
    keepBias();
}

void stepBias(double voltage, double limit) {
    const InstrumentKind& source = selectedInstrument();
    const auto volts = static_cast<float>(voltage);
    if (volts != 0.0f) stayWhereTheProgramEnds();
    instrumentLink.appliedVoltage = source.applyBias ? volts : 0.0f;
    if (!source.applyBias) return;
    auto& mayBeOn = instrumentLink.mayBeBiased;
    // Also when only a part of it goes out; where nobody answered from the start, nothing does.
    if (volts != 0.0f && instrumentLink.opened) mayBeOn.insert(selectedPlace());
    // Before it is on; that it is off again is written by applyBias alone, not at each pass of a
    // sweep through 0.
    if (volts != 0.0f) keepBias();
    const SourceAnswer answer = source.applyBias(volts, static_cast<float>(limit));
    if (volts == 0.0f) {
        if (answer.taken()) mayBeOn.erase(selectedPlace());
    } else if (answer.heard) {
        mayBeOn.insert(selectedPlace());
    }
    instrumentLink.biasMissed |= !answer.heard && volts != 0.0f;
    if (instrumentLink.biasRefused.empty()) instrumentLink.biasRefused = answer.refusal;
    stayAwakeFor(AwakeFor::Bias, !mayBeOn.empty());
    instrumentLink.biasHeard = volts == 0.0f ? answer.taken() : answer.heard;
    sayWhetherABiasIsLost();
}

void connectInstrument(int32_t kind) {
    if (!isInstrumentKind(kind)) return;
    const InstrumentKind& chosen = instrumentKind(kind);
    InstrumentLink& link = instrumentLink;
    const int32_t previous = link.ammeterKind;
    const auto limit = static_cast<double>(link.currentLimit);
    const bool biasWasOn = link.appliedVoltage != 0.0f;
    if (!chosen.open && chosen.failed.text) { // nothing is changed but the bias, if one was typed
        const bool typed = link.appliedVoltage != link.biasVoltage;
        if (biasWasOn && typed) applyBias(static_cast<double>(link.biasVoltage), limit);
        return show(chosen.failed);
    }
    // Nobody could take it away over a link that is no longer the selected one.
    if (biasWasOn || mayBeBiased()) applyBias(0.0, limit);
    link.ammeterKind = kind;
    logEvent("Instrument: " + narrowed(chosen.name));
    if (!chosen.open) return;
    if (chosen.open(static_cast<double>(link.biasVoltage))) {
        link.openedAt = addressOf(chosen);
        link.opened = true;
        // It is back, and may still have what could not be taken off.
        if (mayBeBiased()) applyBias(0.0, limit);
        return show(chosen.connected);
    }
    link.ammeterKind = previous;
    if (chosen.holdsOneConnection && previous == kind) link.biasVoltage = 0.0f;
    if (biasWasOn) applyBias(static_cast<double>(link.biasVoltage), limit);
    show(chosen.failed);
}

void readBiasLeftOn() {
    instrumentLink.biasOnFile = readOption(keptBias);
    std::istringstream places(instrumentLink.biasOnFile);
    for (std::string place; std::getline(places, place, ';');) {
        std::istringstream words(place);
        int32_t kind = 0;
        std::string address;
        if (words >> kind && isInstrumentKind(kind) && instrumentKind(kind).applyBias) {
            words >> address;
            instrumentLink.mayBeBiased.insert({kind, address});
            // Nobody means it, also where it is the selected one.
            instrumentLink.biasHeard = false;
        }
    }
    sayWhetherABiasIsLost();
}

void connectInstrumentAtStart() {
    const InstrumentKind& chosen = selectedInstrument();
    logEvent("Instrument at start: " + narrowed(chosen.name));
    instrumentLink.openedAt = addressOf(chosen);
    const auto open = chosen.openAtStart ? chosen.openAtStart : chosen.open;
    if (!open) return;
    instrumentLink.opened = open(0.0);
    if (instrumentLink.opened) {
        if (mayBeBiased()) applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
        return;
    }
    if (!chosen.keptAtStart) instrumentLink.ammeterKind = kindArduino;
    show(chosen.failedAtStart.text ? chosen.failedAtStart : chosen.failed);
}

void disconnectInstrument() {
    applyBias(0.0, static_cast<double>(instrumentLink.currentLimit));
    if (selectedInstrument().close) selectedInstrument().close();
}

const InstrumentKind& selectedInstrument() {
    return instrumentKind(instrumentLink.ammeterKind);
}
