// Brings words to all that are to have them.
#include "session/announce.h"

#include "screen/screen.h"
#include "session/day_log.h"

#include <cstdio>

void announce(Severity severity, const std::string& words) {
    logEvent(words);
    if (severity == Severity::Event) return;
    std::printf("%s\n", words.c_str());
    std::fflush(stdout); // it must be there to read while the program runs
    if (severity == Severity::Trouble) showInformation(words.c_str());
}
