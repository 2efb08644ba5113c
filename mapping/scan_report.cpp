// Counts what is in doubt of a scan and puts it into words.
#include "mapping/scan_report.h"

#include "platform/text_format.h"

namespace {

struct SpoiltKind {
    const char* words;
    PointMark mark;
    int weight; // the cell gets the mark of the heaviest
};

constexpr SpoiltKind kinds[spoiltCount] = {
    {"Not reached", PointMark::NotReached, 2},      {"No laser board", PointMark::Silent, 4},
    {"Laser off or lamp on", PointMark::Unlit, 3},  {"No reading", PointMark::Silent, 4},
    {"Overload", PointMark::Overloaded, 5}, // the pictures' scale must know of it
    {"Reference unlocked", PointMark::Unlocked, 3}, {"Settings changed", PointMark::Unsettled, 2},
    {"No camera", PointMark::NoColour, 1},
};

// Which cause is told of a cell of which only the mark is known: of two that give it the later one.
size_t causeOf(PointMark mark) {
    size_t cause = spoiltCount;
    for (size_t i = 0; i < spoiltCount; ++i)
        if (kinds[i].mark == mark) cause = i;
    return cause;
}

} // namespace

PointMark ScanReport::take(const std::array<bool, spoiltCount>& causes, int scanRow, int column) {
    PointMark mark = PointMark::Measured;
    int weight = 0;
    for (size_t i = 0; i < spoiltCount; ++i) {
        if (!causes[i]) continue;
        Doubt& of = spoilt[i];
        if (of.count++ == 0) {
            of.row = scanRow + 1;
            of.column = column + 1;
        }
        if (kinds[i].weight <= weight) continue;
        weight = kinds[i].weight;
        mark = kinds[i].mark;
    }
    pointsInDoubt += weight > 0;
    return mark;
}

void ScanReport::takeMiss(NotThere missed) {
    for (auto& [cause, points] : misses)
        if (cause.axis == missed.axis && cause.why == missed.why)
            return static_cast<void>(++points);
    misses.emplace_back(missed, 1);
}

void ScanReport::takeMarked(PointMark mark, int scanRow, int column) {
    const size_t cause = causeOf(mark);
    if (cause == spoiltCount) return;
    std::array<bool, spoiltCount> causes{};
    causes[cause] = true;
    take(causes, scanRow, column);
}

void ScanReport::takeOverload(const char* cause) {
    for (auto& [what, points] : overloads)
        if (what == cause) return static_cast<void>(++points);
    overloads.emplace_back(cause, 1);
}

PointMark ScanReport::spoil(Spoilt cause, PointMark before, int scanRow, int column) {
    const size_t known = causeOf(before);
    const int weight = known == spoiltCount ? 0 : kinds[known].weight;
    std::array<bool, spoiltCount> causes{};
    causes[static_cast<size_t>(cause)] = true;
    const PointMark mark = take(causes, scanRow, column);
    if (weight > 0) --pointsInDoubt; // it is already
    return kinds[static_cast<size_t>(cause)].weight > weight ? mark : before;
}

std::string ScanReport::whyMissed() const {
    std::string text;
    for (const auto& [cause, points] : misses)
        text += (text.empty() ? "" : ", ") +
                formatted("%c %s: %d", cause.axis, nameOf(cause.why), points);
    return text;
}

Outcome ScanReport::outcome(ProcessEnd end) const {
    Outcome told{.end = end, .lastWords = "Mapping finished", .endedBy = endedBy};
    for (size_t i = 0; i < spoiltCount; ++i) {
        told.doubts.push_back(spoilt[i]);
        told.doubts.back().cause = kinds[i].words;
    }
    told.doubts[static_cast<size_t>(Spoilt::NotReached)].why = whyMissed();
    told.doubts[static_cast<size_t>(Spoilt::Unlit)].why = whyUnlit;
    std::string& ofOverload = told.doubts[static_cast<size_t>(Spoilt::Overload)].why;
    for (const auto& [cause, points] : overloads)
        ofOverload += (ofOverload.empty() ? "" : ", ") + cause + formatted(": %d", points);
    told.doubts[static_cast<size_t>(Spoilt::Unsettled)].why = whyUnsettled;
    if (!settings.empty()) told.troubles.push_back(settings);
    if (!focus.empty()) told.troubles.push_back(focus);
    told.troubles.insert(told.troubles.end(), bias.begin(), bias.end());
    if (stayedAway) told.troubles.emplace_back("The stage did not come back");
    if (swingFailed) told.troubles.emplace_back("Hysteresis not compensated");
    if (journalLost) told.troubles.emplace_back("Journal not written");
    return told;
}
