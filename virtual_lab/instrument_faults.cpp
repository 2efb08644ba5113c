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
    for (int who = labMultimeter; who <= labAnalyzer; ++who) {
        if (device != labInstrumentKinds[who].name) continue;
        faults.gpibAddresses[who] = address;
        return true;
    }
    return false;
}

bool parseInstrumentFault(const std::string& line, LabFaults& faults) {
    std::istringstream words(line);
    std::string device, what, extra;
    words >> device >> what;
    int number = 0;
    bool known = false;
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
