// Draws what breaks.
#include "tests/simulation/day/faults.h"

#include "platform/text_format.h"
#include "tests/simulation/day/swarm.h"
#include "tests/simulation/judge/judge.h"

#include <iterator>
#include <sstream>

namespace {

constexpr const char* faultLines[] = {
    "camera silent",       "camera unsettled",
    "camera lost",         "camera absent",
    "stage absent",        "stage count 1",
    "stage count 2",       "stage order xzy",
    "stage stranger",      "stage calls 5",
    "axis x absent",       "axis y absent",
    "axis z replaced",     "axis x stalled",
    "axis z stalled",      "axis x lost",
    "axis y lost 20",      "axis z lost 10",
    "axis y mute",         "axis z mute",
    "axis x disturbed 40", "axis y disturbed 15",
    "axis z disturbed 7",  "axis x alarm current 30",
    "axis y alarm heat",   "axis z alarm supply 10",
    "axis x unpowered",    "axis x slips 20",
    "axis y slips 3",      "axis x slow 60",
    "axis y turn 20",      "axis x old",
    "axis z old",          "limit x right at 15",
    "limit y left at -30", "limit z right at 5",
    "backlash x 5",        "board unplugged",
    "board absent",        "gpib error",
    "gpib error ibrd 2",   "gpib error ibwrt 3",
    "gpib error ibclr",    "gpib error ibonl",
    "gpib absent",         "visa absent",
    "visa empty",          "k2450 other",
    "instrument absent",   "instrument refused",
    "instrument stuck",    "instrument silent",
    "instrument garbage",  "instrument unterminated",
    "instrument overload", "board overload",
    "lock-in unlocked",    "lock-in overload filter",
    "lock-in slow 1000",   "chopper stopped",
};

// A call that fails, with or without doing what it was asked, or is late, from the n-th on.
std::string breakCall(Dice& dice, Judge& judge) {
    const struct {
        const char* device;
        const char* library;
    } devices[] = {{"stage", "libximc.dll"}, {"camera", "PylonC_v9.dll"}, {"visa", "VISA64.dll"}};
    const auto device = dice.oneOf(devices);
    const std::vector<std::string> names = faultyFunctions(device.library);
    CallFault fault{names[static_cast<size_t>(dice.below(static_cast<int>(names.size())))]};
    fault.from = dice.from(1, 30);
    fault.fails = dice.percent(75);
    fault.carriedOut = dice.percent(33);
    if (!fault.fails) fault.lateMs = dice.from(100, 5100);
    libraries.callFaults.push_back(fault);
    judge.count(formatted("fault: %s call ", device.device) + (!fault.fails ? "late"
                                                               : fault.carriedOut
                                                                   ? "done and failed"
                                                                   : "fails"));
    return formatted("%s call %s %s from the %d. on", device.device, fault.function.c_str(),
                     fault.fails ? "fails" : "is late", fault.from);
}

std::string breakDevices(Dice& dice, const Swarm& swarm, Judge& judge) {
    std::string lines;
    libraries.callFaults.clear();
    serial.replies.clear();
    serial.refuseWrite = false;
    const bool breaks = !dice.percent(swarm.mendPercent);
    if (breaks) lines = faultLines[swarm.faults.draw(dice)];
    if (breaks && dice.percent(swarm.pairPercent))
        lines += std::string("\n") + faultLines[swarm.faults.draw(dice)];
    if (!judge.laboratory.apply(lines)) judge.find(Rule::End, "no such fault: " + lines);
    std::istringstream each(lines);
    for (std::string line; std::getline(each, line);)
        if (!line.empty()) judge.count("fault: " + line);
    if (lines.empty()) judge.count("all mended");
    if (dice.percent(swarm.callPercent)) lines += "\n" + breakCall(dice, judge);
    if (!dice.percent(swarm.boardPercent)) return lines;
    serial.refuseWrite = dice.percent(40);
    if (!serial.refuseWrite) serial.replies.assign(3, "\xFFx,");
    const char* const what = serial.refuseWrite ? "board takes nothing" : "board answers garbage";
    judge.count(std::string("fault: ") + what);
    return lines + "\n" + what;
}

// For the log, not for the judge: none of it excuses anything.
std::string breakFiles(Dice& dice, Judge& judge) {
    const char* const files[] = {"", "", "Confocal", "KST_Data"};
    refusedFile = dice.oneOf(files);
    foldersRefused = dice.percent(15);
    diskFull = dice.percent(15);
    drawingFailures[static_cast<Drawing>(dice.below(8))] = dice.below(25);
    std::string broken;
    if (foldersRefused) broken += " | folders";
    if (diskFull) broken += " | disk full";
    if (!refusedFile.empty()) broken += " | file " + refusedFile;
    for (const char* what : {"| folders", "| disk full", "| file"})
        if (broken.find(what) != std::string::npos) judge.count(std::string("fault: ") + what);
    return broken;
}

} // namespace

size_t faultCount() {
    return std::size(faultLines);
}

void breakOrMend(Dice& dice, const Swarm& swarm, Judge& judge) {
    const std::string lines = swarm.devicesBreak ? breakDevices(dice, swarm, judge) : "";
    const std::string files = swarm.filesBreak ? breakFiles(dice, judge) : "";
    judge.breaks(lines);
    judge.note("broken: " + lines + files);
}
