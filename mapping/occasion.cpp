// Keeps what the operator measures.
#include "mapping/occasion.h"

#include "platform/text_format.h"
#include "session/day_log.h"
#include "session/options.h"

#include <utility>

Occasion occasion;

namespace {

Occasion ofOperator;

constexpr char sampleName[] = "sample", noteName[] = "note";

} // namespace

void readOccasion() {
    ofOperator = {.sample = readOption(sampleName), .note = readOption(noteName)};
    useOperatorsOccasion();
}

bool keepOccasion(std::string sample, std::string note) {
    sample = oneLine(std::move(sample));
    note = oneLine(std::move(note));
    const bool same = sample == ofOperator.sample && note == ofOperator.note;
    ofOperator = {.sample = sample, .note = note};
    if (occasion.list.empty()) useOperatorsOccasion();
    return same || writeOptions({{sampleName, sample}, {noteName, note}});
}

void useOperatorsOccasion() {
    occasion = ofOperator;
}

void logOccasion(const Occasion& of) {
    if (!of.sample.empty()) logEvent("Sample: " + of.sample);
    if (!of.note.empty()) logEvent("Note: " + of.note);
}
