// Puts the main window's title together.
#include "session/main_title.h"

#include "screen/screen.h"
#include "session/day_log.h"

namespace {

struct {
    std::string loss, bias, script, list, progress;
} said;

void setTitle(std::string& part, const std::string& words) {
    if (part == words) return;
    part = words;
    showMainTitle();
}

// What is lost stands in the log, too, with the time when it was and when it was no longer.
void setLoss(std::string& part, const std::string& words) {
    if (part != words) logEvent(words.empty() ? "No longer: " + part : words);
    setTitle(part, words);
}

} // namespace

void showMainTitle() {
    std::string title = "Lumascan";
    for (const std::string* each :
         {&said.loss, &said.bias, &said.script, &said.list, &said.progress})
        if (!each->empty()) title += " - " + *each;
    setMainTitle(title.c_str());
}

void titleLoss(const std::string& words) {
    setLoss(said.loss, words);
}

void titleBias(const std::string& words) {
    setLoss(said.bias, words);
}

void titleScript(const std::string& words) {
    setTitle(said.script, words);
}

void titleList(const std::string& words) {
    setTitle(said.list, words);
}

void titleProgress(const std::string& words) {
    setTitle(said.progress, words);
}
