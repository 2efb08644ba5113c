// Puts an outcome into words.
#include "session/outcome.h"

#include "platform/text_format.h"

namespace {

std::string sentenceOf(const Doubt& doubt) {
    std::string text = formatted("%s: %d", doubt.cause.c_str(), doubt.count);
    if (doubt.of > 0) text += formatted(" of %d", doubt.of);
    if (doubt.row > 0) text += formatted(" from row %d, column %d", doubt.row, doubt.column);
    return doubt.why.empty() ? text : text + " (" + doubt.why + ")";
}

std::vector<std::string> sentencesOf(const Outcome& outcome) {
    std::vector<std::string> all;
    if (!outcome.endedBy.empty()) all.push_back(outcome.endedBy);
    for (const Doubt& doubt : outcome.doubts)
        if (doubt.count > 0) all.push_back(sentenceOf(doubt));
    all.insert(all.end(), outcome.troubles.begin(), outcome.troubles.end());
    for (const std::string& what : outcome.notWritten) all.push_back("Not written: " + what);
    return all;
}

} // namespace

const char* nameOf(ProcessEnd end) {
    constexpr const char* names[] = {"running",       "finished",
                                     "declined",      "stopped",
                                     "window closed", "stopped, the computer went to sleep",
                                     "forced end",    "cut off, recovered from its journal"};
    return names[static_cast<size_t>(end)];
}

bool Outcome::isSound() const {
    return sentencesOf(*this).empty();
}

std::string Outcome::trouble() const {
    std::string text;
    for (const std::string& sentence : sentencesOf(*this)) text += ". " + sentence;
    return text;
}

std::string troubleLine(const Outcome& outcome) {
    std::string line;
    for (const std::string& sentence : sentencesOf(outcome))
        line += (line.empty() ? "" : ". ") + sentence;
    for (char& letter : line)
        if (letter < ' ' || letter > '~') letter = '?';
    return line.empty() ? "none" : line;
}
