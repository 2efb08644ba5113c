// Remembers the last words of each device.
#include "session/refusals.h"

#include "platform/clock.h"
#include "platform/messages.h"
#include "session/day_log.h"
#include "session/device_report.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>

namespace {

struct Spoken {
    std::string last;    // words
    int budget = 10;     // lines that the log still takes; one more each minute
    uint64_t minute = 0; // of the last addition
    int leftOut = 0;     // lines, since the log took one
};

std::map<std::string, Spoken>& spoken() {
    static std::map<std::string, Spoken> words;
    return words;
}

void log(const char* device, Spoken& of, const std::string& line) {
    constexpr uint64_t largestBudget = 10;
    const uint64_t minute = tickCountMs() / 60'000;
    of.budget += static_cast<int>(
        std::min(minute - of.minute, largestBudget - static_cast<uint64_t>(of.budget)));
    of.minute = minute;
    if (of.budget == 0) {
        ++of.leftOut;
        return;
    }
    --of.budget;
    const std::string before =
        of.leftOut == 0 ? "" : "(" + std::to_string(of.leftOut) + " lines left out) ";
    of.leftOut = 0;
    logEvent(before + device + ": " + line);
}

// False when these were the last words. The words are kept for the windows' thread alone: another
// one speaks while the program ends by force, seldom, and must not wait for anybody.
bool isNews(const char* device, const std::string& line) {
    if (!onWindowThread()) {
        logEvent(std::string(device) + ": " + line);
        return true;
    }
    Spoken& of = spoken()[device];
    if (line == of.last) return false;
    of.last = line;
    log(device, of, line);
    return true;
}

} // namespace

void printNews(const char* device, const std::string& words) {
    const std::string line = inOneLine(words);
    if (!isNews(device, line)) return;
    std::printf("%s: %s\n", device, line.c_str());
    std::fflush(stdout); // it must be there to read while the program runs
}

void printRefusal(const char* device, const std::string& words) {
    reportFailure(device, words);
    printNews(device, words);
}

void noteRefusal(const char* device, const std::string& words) {
    reportFailure(device, words);
    isNews(device, inOneLine(words));
}

void forgetRefusal(const char* device) {
    if (!onWindowThread()) return;
    const auto found = spoken().find(device);
    if (found != spoken().end()) found->second.last.clear();
}

void forgetAllRefusals() {
    spoken().clear();
}
