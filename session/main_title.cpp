// Puts the main window's title together.
#include "session/main_title.h"

#include "screen/screen.h"

namespace {

std::string loss, bias, progress;

void setTitle(std::string& part, const std::string& words) {
    if (part == words) return;
    part = words;
    std::string title = "Lumascan";
    for (const std::string* each : {&loss, &bias, &progress})
        if (!each->empty()) title += " - " + *each;
    setMainTitle(title.c_str());
}

} // namespace

void titleLoss(const std::string& words) {
    setTitle(loss, words);
}

void titleBias(const std::string& words) {
    setTitle(bias, words);
}

void titleProgress(const std::string& words) {
    setTitle(progress, words);
}
