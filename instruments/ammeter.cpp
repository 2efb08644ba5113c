// Reads, biases and connects the selected instrument.
#include "instruments/ammeter.h"

#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"

namespace {

// Of the readings since biasWasLimited was asked.
bool readingAtLimit = false;
bool readingAnswered = false;

void show(const Notice& notice) {
    showMessageBox(mainWindow, notice.text, notice.caption, BoxButtons::Ok);
}

} // namespace

float readPhotocurrent() {
    const InstrumentKind& selected = selectedInstrument();
    const Reading reading = noteReading(selected.read ? selected.read() : Reading{});
    return static_cast<float>(static_cast<double>(reading.value) * selected.readingScale);
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
    const bool limited = readingAtLimit;
    readingAtLimit = false;
    // A source that no longer answers would only cost another time-out.
    if (limited || !readingAnswered) return limited;
    const InstrumentKind& source = selectedInstrument();
    return source.isLimited && source.isLimited();
}

std::string biasTrouble() {
    std::string text = biasWasLimited() ? ". Current limit reached" : "";
    const InstrumentKind& source = selectedInstrument();
    const std::string refusal = source.takeRefusal ? source.takeRefusal() : "";
    if (!refusal.empty()) text += ". Bias refused: " + refusal;
    return text;
}

void applyBias(double voltage, double limit) {
    if (selectedInstrument().applyBias)
        logEvent(formatted("Bias %g V, current limit %g A", voltage, limit));
    stepBias(voltage, limit);
}

void stepBias(double voltage, double limit) {
    const InstrumentKind& source = selectedInstrument();
    const auto volts = static_cast<float>(voltage);
    instrumentLink.appliedVoltage = source.applyBias ? volts : 0.0f;
    if (source.applyBias) source.applyBias(volts, static_cast<float>(limit));
}

void connectInstrument(int32_t kind) {
    if (!isInstrumentKind(kind)) return;
    const InstrumentKind& chosen = instrumentKind(kind);
    if (!chosen.open && chosen.failed.text) return show(chosen.failed); // and nothing is changed
    InstrumentLink& link = instrumentLink;
    const int32_t previous = link.ammeterKind;
    const auto limit = static_cast<double>(link.currentLimit);
    // Nobody could take it away over a link that is no longer the selected one.
    const bool biasWasOn = link.appliedVoltage != 0.0f;
    if (biasWasOn) applyBias(0.0, limit);
    link.ammeterKind = kind;
    logEvent("Instrument: " + narrowed(chosen.name));
    if (!chosen.open) return;
    if (chosen.open(static_cast<double>(link.biasVoltage))) return show(chosen.connected);
    link.ammeterKind = previous;
    if (chosen.holdsOneConnection && previous == kind) link.biasVoltage = 0.0f;
    if (biasWasOn) applyBias(static_cast<double>(link.biasVoltage), limit);
    show(chosen.failed);
}

void connectInstrumentAtStart() {
    const InstrumentKind& chosen = selectedInstrument();
    logEvent("Instrument at start: " + narrowed(chosen.name));
    const auto open = chosen.openAtStart ? chosen.openAtStart : chosen.open;
    if (!open || open(0.0)) return;
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
