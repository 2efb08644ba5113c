// Puts the main window's title together.
#include "session/main_title.h"

#include "screen/screen.h"

namespace {

std::string loss, progress;

void setTitle(std::string& part, const std::string& words) {
    if (part == words) return;
    part = words;
    std::string title = "Lumascan";
    for (const std::string* each : {&loss, &progress})
        if (!each->empty()) title += " - " + *each;
    setMainTitle(title.c_str());
}

} // namespace

void titleLoss(const std::string& words) {
    setTitle(loss, words);
}

void titleProgress(const std::string& words) {
    setTitle(progress, words);
}
