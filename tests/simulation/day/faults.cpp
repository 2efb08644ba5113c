// Draws what breaks.
#include "tests/simulation/day/faults.h"

#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <sstream>

namespace {

constexpr const char* faultLines[] = {
    "camera silent",           "camera unsettled",   "axis y mute",         "axis x old",
    "stage count 1",           "limit z right at 5", "backlash x 5",        "gpib error ibrd 2",
    "gpib error ibclr",        "gpib error ibonl",   "visa empty",          "k2450 other",
    "instrument unterminated", "camera lost",        "camera absent",       "stage absent",
    "stage count 2",           "axis x absent",      "axis y absent",       "axis x stalled",
    "axis z stalled",          "axis x lost",        "axis y lost 20",      "axis z mute",
    "axis x slow 60",          "axis z old",         "limit x right at 15", "limit y left at -30",
    "board unplugged",         "board unplugged",    "board absent",        "gpib error",
    "gpib error ibwrt 3",      "gpib absent",        "visa absent",         "instrument absent",
    "instrument refused",      "instrument stuck",   "instrument silent",   "instrument garbage"};

// A call that fails, with or without doing what it was asked, or is late, from the n-th on.
std::string breakCall(Dice& dice, Judge& judge) {
    const struct {
        const char* device;
        const char* library;
    } devices[] = {{"stage", "libximc.dll"}, {"camera", "PylonC_v9.dll"}, {"visa", "VISA64.dll"}};
    const auto device = dice.oneOf(devices);
    const std::vector<std::string> names = faultyFunctions(device.library);
    CallFault fault{names[static_cast<size_t>(dice.below(static_cast<int>(names.size())))]};
    fault.from = 1 + dice.below(30);
    fault.fails = dice.below(4) != 0;
    fault.carriedOut = dice.below(3) == 0;
    if (!fault.fails) fault.lateMs = 100 + dice.below(5000);
    libraries.callFaults.push_back(fault);
    judge.count(formatted("fault: %s call ", device.device) + (!fault.fails ? "late"
                                                               : fault.carriedOut
                                                                   ? "done and failed"
                                                                   : "fails"));
    return formatted("%s %s %s from the %d. call on", device.device, fault.function.c_str(),
                     fault.fails ? "fails" : "is late", fault.from);
}

} // namespace

void breakOrMend(Dice& dice, Judge& judge) {
    std::string lines = dice.below(2) == 0 ? "" : dice.oneOf(faultLines);
    if (dice.below(3) == 0) lines += std::string("\n") + dice.oneOf(faultLines);
    if (!applyLabFaults(lines)) judge.find(Rule::End, "no such fault: " + lines);
    std::istringstream each(lines);
    for (std::string line; std::getline(each, line);)
        if (!line.empty()) judge.count("fault: " + line);
    if (lines.empty()) judge.count("all mended");
    libraries.callFaults.clear();
    if (dice.below(3) == 0) lines += "\n" + breakCall(dice, judge);
    serial.refuseWrite = dice.below(12) == 0;
    serial.replies.clear();
    for (int left = dice.below(8) == 0 ? 3 : 0; left > 0; --left)
        serial.replies.push_back("\xFFx,");
    if (serial.refuseWrite) lines += "\nboard takes nothing";
    if (!serial.replies.empty()) lines += "\nboard answers garbage";
    const char* const files[] = {"", "Confocal", "KST_Data"};
    refusedFile = dice.oneOf(files);
    foldersRefused = dice.below(4) == 0;
    diskFull = dice.below(6) == 0;
    judge.breaks(lines);
    drawingFailures[static_cast<Drawing>(dice.below(8))] = dice.below(25);
    if (foldersRefused) lines += " | folders";
    if (diskFull) lines += " | disk full";
    if (!refusedFile.empty()) lines += " | file " + refusedFile;
    for (const char* what :
         {"board takes nothing", "board answers garbage", "| folders", "| disk full", "| file"})
        if (lines.find(what) != std::string::npos) judge.count(std::string("fault: ") + what);
    judge.note("broken: " + lines);
}
