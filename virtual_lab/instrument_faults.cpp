// What can be broken of the instruments and their links, as lines of the fault text.
#include "virtual_lab/lab_state.h"

#include <sstream>

static bool* faultNamed(const std::string& name, LabInstrumentFaults& faults) {
    if (name == "absent") return &faults.absent;
    if (name == "refused") return &faults.refused;
    if (name == "stuck") return &faults.stuck;
    if (name == "silent") return &faults.silent;
    if (name == "garbage") return &faults.garbage;
    if (name == "unterminated") return &faults.unterminated;
    if (name == "long") return &faults.longNumbers;
    if (name == "overload") return &faults.overload;
    if (name == "headers") return &faults.headers;
    if (name == "other") return &faults.otherSerial;
    return nullptr;
}

static bool isMeant(const std::string& device, LabInstrument who) {
    if (who == labSecondScope) return device == "scope" || device == "instrument";
    if (device == "lock-in") return who == labSr830 || who == labSr860;
    return device == labInstrumentKinds[who].name || device == "instrument";
}

static bool parseGpibError(std::istringstream& words, LabFaults& faults) {
    std::string call;
    faults.gpibFailing = "all";
    if (!(words >> call)) return true;
    for (const char* known : {"ibdev", "ibclr", "ibwrt", "ibrd", "ibonl"})
        if (call == known) faults.gpibFailing = call;
    if (faults.gpibFailing == "all") return false;
    std::string number;
    if (!(words >> number)) return true;
    std::istringstream digits(number);
    return digits >> faults.gpibFailingFrom && digits.eof() && faults.gpibFailingFrom >= 1;
}

static bool parseAddress(std::istringstream& words, const std::string& device, LabFaults& faults) {
    std::string at;
    int address = 0;
    if (!(words >> at >> address) || at != "at" || address < 1 || address > 30) return false;
    for (int who = labMultimeter; who <= labSr830; ++who) {
        if (device != labInstrumentKinds[who].name) continue;
        faults.gpibAddresses[who] = address;
        return true;
    }
    return false;
}

// What only lock-ins have, and their chopper.
static bool parseLockInFault(const std::string& line, LabFaults& faults) {
    std::istringstream words(line);
    std::string device, what, detail, extra;
    words >> device >> what >> detail;
    bool known = device == "chopper" && what == "stopped" && detail.empty();
    for (LabInstrument who : {labSr830, labSr860}) {
        LabInstrumentFaults& its = faults.instruments[who];
        if (device == "chopper") its.chopperStopped = known;
        if (device == "chopper" || device == "instrument" || !isMeant(device, who)) continue;
        std::istringstream number(detail.empty() ? "3000" : detail);
        if (what == "unlocked" && detail.empty()) {
            known = its.unlocked = true;
        } else if (what == "overload" && detail == "filter") {
            known = true;
            its.filterOverload = who == labSr830; // the SR860 has no bit for it
        } else if (what == "overload" && detail == "output") {
            known = its.outputOverload = true;
        } else if (what == "slow") {
            known = number >> its.slowMs && number.eof() && its.slowMs > 0;
        }
    }
    return known && !(words >> extra);
}

bool parseInstrumentFault(const std::string& line, LabFaults& faults) {
    std::istringstream words(line);
    std::string device, what, extra;
    words >> device >> what;
    int number = 0;
    bool known = false;
    if (parseLockInFault(line, faults)) return true;
    if (device == "gpib" && what == "absent") {
        known = faults.gpibAbsent = true;
    } else if (device == "gpib" && what == "error") {
        known = parseGpibError(words, faults);
    } else if (device == "gpib") {
        known = parseAddress(words, what, faults);
    } else if (device == "visa" && what == "absent") {
        known = faults.visaAbsent = true;
    } else if (device == "visa" && what == "empty") {
        known = faults.visaEmpty = true;
    } else if (device == "scope" && what == "count") {
        known = words >> number && (number == 1 || number == 2);
        faults.scopes = number;
    } else {
        for (int who = 0; who < labInstrumentCount; ++who) {
            if (!isMeant(device, static_cast<LabInstrument>(who))) continue;
            bool* fault = faultNamed(what, faults.instruments[who]);
            if (!fault) return false;
            known = *fault = true;
        }
    }
    return known && !(words >> extra);
}
