// Remembers the last words of each device.
#include "session/refusals.h"

#include <cstdio>
#include <map>

static std::map<std::string, std::string>& lastWords() {
    static std::map<std::string, std::string> words;
    return words;
}

// One line a refusal: the vendors' texts end in line ends, or have some inside.
static std::string inOneLine(std::string words) {
    for (char& c : words)
        if (c == '\r' || c == '\n') c = ' ';
    words.erase(words.find_last_not_of(' ') + 1);
    return words;
}

void printRefusal(const char* device, const std::string& words) {
    std::string& last = lastWords()[device];
    const std::string line = inOneLine(words);
    if (line == last) return;
    last = line;
    std::printf("%s: %s\n", device, line.c_str());
    std::fflush(stdout); // it must be there to read while the program runs
}

void forgetRefusal(const char* device) {
    lastWords().erase(device);
}

void forgetAllRefusals() {
    lastWords().clear();
}
