// How messages come to the virtual instruments and their replies go out, whatever carries them.
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <utility>

void (*labOnCommand)(LabInstrument, const std::string&) = nullptr;

static LabInstrumentLine& lineOf(LabInstrument who) {
    return lab.instruments.lines[who];
}

static const LabInstrumentFaults& faultsOf(LabInstrument who) {
    return lab.faults.instruments[who];
}

bool instrumentPresent(LabInstrument who) {
    if (who == labSecondScope && lab.faults.scopes < 2) return false;
    return !faultsOf(who).absent;
}

LabTransfer sendToInstrument(LabInstrument who, const std::string& message, double timeoutMs) {
    {
        LabLock lock;
        if (!instrumentPresent(who)) return LabTransfer::Lost;
        if (!faultsOf(who).stuck) {
            logEntry(lineOf(who).commands, message);
            if (labOnCommand) labOnCommand(who, message);
            labInstrumentKinds[who].takes(who, message);
            return LabTransfer::Ended;
        }
    }
    labSleepMs(timeoutMs);
    return LabTransfer::TimedOut;
}

static LabTransfer takeBytes(LabInstrument who, void* buffer, size_t count, size_t& received) {
    std::string& bytes = lineOf(who).output.front().bytes;
    received = std::min(count, bytes.size());
    std::memcpy(buffer, bytes.data(), received);
    bytes.erase(0, received);
    if (!bytes.empty()) return LabTransfer::Full;
    lineOf(who).output.pop_front();
    return LabTransfer::Ended;
}

LabTransfer receiveFromInstrument(LabInstrument who, void* buffer, size_t count, double timeoutMs,
                                  size_t& received) {
    received = 0;
    double deadlineMs = labNowMs() + timeoutMs;
    for (bool first = true;; first = false) {
        double sleepMs = 0;
        {
            LabLock lock;
            if (!instrumentPresent(who)) return LabTransfer::Lost;
            bool stuck = faultsOf(who).stuck;
            const LabInstrumentKind& kind = labInstrumentKinds[who];
            if (first && kind.talks && !stuck && lineOf(who).output.empty()) kind.talks();
            const std::deque<LabReply>& output = lineOf(who).output;
            bool coming = !stuck && !output.empty();
            double nowMs = labNowMs();
            if (coming && output.front().readyMs <= nowMs)
                return takeBytes(who, buffer, count, received);
            if (nowMs >= deadlineMs) {
                if (kind.hadNothingToSay && output.empty() && !stuck && !faultsOf(who).silent)
                    kind.hadNothingToSay(who);
                return LabTransfer::TimedOut;
            }
            // Short enough to notice an instrument that is switched off meanwhile.
            constexpr double longestSleepMs = 50;
            double untilMs = coming ? std::min(deadlineMs, output.front().readyMs) : deadlineMs;
            sleepMs = std::min(untilMs - nowMs, longestSleepMs);
        }
        labSleepMs(sleepMs);
    }
}

// Zeros at the end of the digits before the exponent.
static void lengthenNumber(std::string& text, size_t length) {
    for (size_t i = 1; i < text.size() && text.size() < length; ++i)
        if ((text[i] == 'E' || text[i] == 'e') &&
            std::isdigit(static_cast<unsigned char>(text[i - 1])))
            text.insert(i, length - text.size(), '0');
}

void reply(LabInstrument who, std::string text, const char* terminator, double takesMs) {
    const LabInstrumentFaults& faults = faultsOf(who);
    if (faults.silent) return;
    if (faults.garbage) text = "?@#\x80~*Q\xFF%&u";
    if (faults.longNumbers) lengthenNumber(text, labInstrumentKinds[who].longNumber);
    if (!faults.unterminated) text += terminator;
    lineOf(who).output.push_back({text, labNowMs() + takesMs + faults.slowMs});
}

void noteError(LabInstrument who, const std::string& what, const std::string& command) {
    logEntry(lineOf(who).errors, command.empty() ? what : what + " " + command);
    ++lab.counters.instrumentErrors;
}

void noteMeasurement(LabInstrument who, double biasVolts, double value, bool flagged, double x,
                     double y) {
    LabPoint spot = labLaserSpotSample();
    logEntry(lab.instruments.measurements,
             {who, labNowMs(), spot.x, spot.y, biasVolts, value, lab.board.laserPwm > 0,
              lab.board.illuminated, flagged, x, y});
}

// Handles are never given twice: what a program still holds is worthless.
void resetInstruments() {
    const LabInstruments before = std::move(lab.instruments);
    lab.instruments = {};
    lab.instruments.lastDescriptor = before.lastDescriptor;
    lab.instruments.lastVisaObject = before.lastVisaObject;
    for (int i = 0; i < labInstrumentCount; ++i) {
        labInstrumentKinds[i].renew(static_cast<LabInstrument>(i));
        lab.instruments.gpibAddresses[i] = labInstrumentKinds[i].gpibAddress;
    }
}

// As after a turn of the mains switch; what programs hold of it is worthless from then on.
void switchOffAbsentInstruments() {
    for (int i = 0; i < labInstrumentCount; ++i) {
        const auto who = static_cast<LabInstrument>(i);
        if (instrumentPresent(who)) continue;
        lineOf(who).output.clear();
        const LabInstrumentKind& kind = labInstrumentKinds[who];
        (kind.switchOff ? kind.switchOff : kind.renew)(who);
        for (auto& [handle, object] : lab.instruments.visaObjects)
            if (object.instrument == who) object.lost = true;
    }
}

const std::vector<std::string>& labInstrumentCommands(LabInstrument instrument) {
    return lineOf(instrument).commands;
}

const std::vector<std::string>& labInstrumentErrors(LabInstrument instrument) {
    return lineOf(instrument).errors;
}

const std::vector<LabMeasurement>& labMeasurements() {
    return lab.instruments.measurements;
}
