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
    {"Not reached", PointMark::NotReached, 2},     {"No laser board", PointMark::Silent, 4},
    {"Laser off or lamp on", PointMark::Unlit, 3}, {"No reading", PointMark::Silent, 4},
    {"Overload", PointMark::Overloaded, 5}, // the pictures' scale must know of it
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
        SpoiltPoints& of = spoilt[i];
        if (of.points++ == 0) {
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

std::string ScanReport::whyMissed() const {
    std::string text;
    for (const auto& [cause, points] : misses)
        text += (text.empty() ? " (" : ", ") +
                formatted("%c %s: %d", cause.axis, nameOf(cause.why), points);
    return text.empty() ? text : text + ")";
}

std::string ScanReport::words(bool documentLost) const {
    std::string text;
    if (!endedBy.empty()) text += ". " + endedBy;
    for (size_t i = 0; i < spoiltCount; ++i)
        if (const SpoiltPoints& of = spoilt[i]; of.points > 0) {
            text += formatted(". %s: %d from row %d, column %d", kinds[i].words, of.points, of.row,
                              of.column);
            if (i == static_cast<size_t>(Spoilt::NotReached)) text += whyMissed();
        }
    if (!focus.empty()) text += ". " + focus;
    text += bias;
    if (stayedAway) text += ". The stage did not come back";
    if (swingFailed) text += ". Hysteresis not compensated";
    if (journalLost) text += ". Journal not written";
    if (documentLost) text += ". Not written: the map's .gwy file";
    return text;
}
