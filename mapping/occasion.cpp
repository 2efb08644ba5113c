// Keeps what the operator measures.
#include "mapping/occasion.h"

#include "platform/text_format.h"
#include "session/day_log.h"
#include "session/options.h"

#include <utility>

Occasion occasion;

namespace {

constexpr char sampleName[] = "sample", noteName[] = "note";

} // namespace

void readOccasion() {
    occasion = {.sample = readOption(sampleName), .note = readOption(noteName)};
}

bool keepOccasion(std::string sample, std::string note) {
    sample = oneLine(std::move(sample));
    note = oneLine(std::move(note));
    const bool same = sample == occasion.sample && note == occasion.note;
    occasion.sample = sample;
    occasion.note = note;
    return same || writeOptions({{sampleName, sample}, {noteName, note}});
}

void logOccasion(const Occasion& of) {
    if (!of.sample.empty()) logEvent("Sample: " + of.sample);
    if (!of.note.empty()) logEvent("Note: " + of.note);
}
