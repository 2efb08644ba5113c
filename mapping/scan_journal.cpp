// Writes a scan's journal, and makes a map of one.
#include "mapping/scan_journal.h"

#include "camera/camera.h"
#include "mapping/journal_values.h"
#include "mapping/map_document.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "session/data_folders.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

// Begins a line among the points.
constexpr char pauseWord[] = "paused ";

// All that a journal keeps of a scan beside its points.
template <class Scan, class Folder, class Visit>
void eachValue(Scan& scan, Folder& folder, Visit& visit) {
    eachCondition(scan, visit);
    auto& a = scan.area;
    visit("area step um", a.scanStep);
    visit("area x1 px", a.rectX1);
    visit("area y1 px", a.rectY1);
    visit("area x2 px", a.rectX2);
    visit("area y2 px", a.rectY2);
    visit("area view scale", a.viewScale);
    visit("folder", folder);
    visit.added("area placed", a.placed);
    visit.added("x per column um", a.picture.xPerColumn);
    visit.added("x per row um", a.picture.xPerRow);
    visit.added("y per column um", a.picture.yPerColumn);
    visit.added("y per row um", a.picture.yPerRow);
    visit.added("spot correction x um", a.correctionXUm);
    visit.added("spot correction y um", a.correctionYUm);
    visit.added("follows focus plane", scan.focus.follows);
    visit.added("focus plane z per x", scan.focus.perX);
    visit.added("focus plane z per y", scan.focus.perY);
    visit.added("focus plane from x um", scan.focus.fromXUm);
    visit.added("focus plane from y um", scan.focus.fromYUm);
    visit.added("continued", scan.continued);
    visit.added("paused", scan.paused);
    visit.added("home x steps", scan.home.x.steps);
    visit.added("x steps per um", scan.home.x.perUm);
    visit.added("home y steps", scan.home.y.steps);
    visit.added("y steps per um", scan.home.y.perUm);
    visit.added("zero of x", scan.home.x.zero);
    visit.added("zero of y", scan.home.y.zero);
}

// What no scan can have is not computed: it might have no end.
bool isPossible(const ScanArea& area, const ScanOptions& options) {
    const bool allowed =
        std::all_of(std::begin(scanNumbers), std::end(scanNumbers),
                    [&](const ScanNumber& of) { return of.allows(options.*of.value); });
    const bool channelIsThere =
        options.mainChannel >= 0 && options.mainChannel < static_cast<int>(std::size(mainChannels));
    const PictureScale& picture = area.picture;
    const bool pictureIsThere = picture.umPerColumn() < 100.0 && picture.umPerRow() < 100.0 &&
                                std::fabs(picture.determinant()) > 1e-9 &&
                                std::isfinite(area.correctionXUm + area.correctionYUm);
    const bool sizeIsThere = area.cols >= 1 && area.rows >= 1;
    return allowed && channelIsThere && pictureIsThere && sizeIsThere &&
           area.scanStep >= scanStepLowest && area.scanStep <= scanStepHighest &&
           area.viewScale >= 1 && area.viewScale <= 3 && inPicture(area.rectX1, area.rectY1) &&
           inPicture(area.rectX2, area.rectY2);
}

// What would spoil all that is computed with it.
bool isPossible(const ScanPlan& plan) {
    const CurrentAmplifier& amplifier = plan.amplifier;
    const bool amplifierIsThere =
        amplifier.voltsPerAmpere == 0.0 ||
        (amplifier.voltsPerAmpere >= 1.0 && amplifier.voltsPerAmpere <= 1e15);
    const FocusSlopes& focus = plan.focus;
    const bool focusIsThere = std::hypot(focus.perX, focus.perY) <= steepestSlope &&
                              std::isfinite(focus.fromXUm + focus.fromYUm);
    return amplifierIsThere && focusIsThere && std::fabs(amplifier.offsetVolts) <= 100.0 &&
           std::isfinite(plan.laserLevel * plan.laserUaPerVolt * plan.laserPowerUw) &&
           plan.laserFullScaleVolts > 0.0;
}

// The rest of the area, by the scan's own laser spot. False when it is not what was written.
bool complete(ScanPlan& plan) {
    const ScanArea written = plan.area;
    computeScanArea(plan.area, plan.laserSpot, plan.confocal);
    const bool same =
        !plan.area.isTooLarge && plan.area.cols == written.cols && plan.area.rows == written.rows;
    plan.area.offsetXUm = written.offsetXUm;
    plan.area.offsetYUm = written.offsetYUm;
    return same;
}

// Takes the next of the numbers that stand in a line with blanks between them; false when there is
// none, or something else behind it.
template <class Number> bool takeNumber(std::string_view& line, Number& number) {
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (error != std::errc()) return false;
    line.remove_prefix(static_cast<size_t>(end - line.data()));
    if (line.empty()) return true;
    if (line.front() != ' ') return false;
    line.remove_prefix(1);
    return true;
}

struct PointLine {
    size_t column = 0, mapRow = 0;
    std::array<float, mostMaps> values{}; // by map
    int mark = 0;
};

// Nothing when it is none of that scan.
std::optional<PointLine> pointOf(std::string_view line, const JournaledScan& scan) {
    PointLine point;
    bool taken = takeNumber(line, point.column) && takeNumber(line, point.mapRow);
    for (size_t i = 0; i < scan.valuesPerPoint; ++i)
        taken = taken && takeNumber(line, point.values[i]);
    taken = taken && takeNumber(line, point.mark);
    if (!taken || !line.empty()) return {};
    const auto cols = static_cast<size_t>(scan.plan().area.cols);
    const auto rows = static_cast<size_t>(scan.plan().area.rows);
    const bool fits = point.column < cols && point.mapRow < rows && point.mark >= 0 &&
                      point.mark <= static_cast<int>(lastPointMark);
    return fits ? point : std::optional<PointLine>();
}

void takePoint(const PointLine& point, JournaledScan& scan) {
    const size_t c = point.column, m = point.mapRow;
    for (size_t i = 0; i < scan.map.maps.size(); ++i) scan.map.maps[i][c][m] = point.values[i];
    PointMark& mark = scan.map.marks[c][m];
    scan.points += mark == PointMark::NotMeasured;
    mark = static_cast<PointMark>(point.mark);
}

// All that stands before the points.
std::vector<std::string> conditionLines() {
    const std::string folder = sessionFolderName(foldersOfMap());
    JournalLines lines;
    eachValue(std::as_const(*scanMap.conditions), folder, lines);
    return lines.ended();
}

void addNumber(std::string& line, auto number) {
    char text[64];
    const auto end =
        std::to_chars(text, std::end(text), number); // floats as short as they are exact
    line.append(text, end.ptr) += ' ';
}

std::string pointLine(size_t column, size_t mapRow) {
    std::string line;
    addNumber(line, column);
    addNumber(line, mapRow);
    for (const Map& plane : scanMap.maps) addNumber(line, plane[column][mapRow]);
    addNumber(line, static_cast<int>(scanMap.marks[column][mapRow]));
    line.pop_back();
    return line;
}

// The conditions and points of scanMap, in the order of the scan.
class AllLines {
public:
    std::optional<std::string_view> next() {
        if (at < conditions.size()) return conditions[at++];
        const size_t columns = scanMap.marks.size(), rows = scanMap.marks.front().size();
        for (; point < columns * rows; ++point) {
            const size_t column = point % columns, row = rows - 1 - point / columns;
            if (scanMap.marks[column][row] == PointMark::NotMeasured) continue;
            ++point;
            return line = pointLine(column, row);
        }
        return {};
    }

private:
    const std::vector<std::string> conditions = conditionLines();
    size_t at = 0, point = 0;
    std::string line;
};

// All but the points: the maps are empty.
std::optional<JournaledScan> readHead(const NextLine& next, int version) {
    JournalValues values(next);
    JournaledScan scan;
    ScanConditions& conditions = scan.map.conditions.emplace();
    eachValue(conditions, scan.folder, values);
    if (!values.areWhole() || scan.folder.empty() ||
        !isPossible(conditions.area, conditions.options) || !isPossible(conditions) ||
        !complete(conditions))
        return {};
    conditions.home.light = lightOf(conditions);
    // The first version has room for a deviation also where there is none.
    scan.valuesPerPoint = version == 1 ? firstFurtherMap + 1 : mapCountOf(conditions);
    return scan;
}

std::optional<JournaledScan> readHead(const LeftJournal& left) {
    return readHead(linesOfJournal(left), left.version);
}

// By the place of the last one that is whole. A journal that ends otherwise is read through.
int pointsOf(const LeftJournal& left, const JournaledScan& head) {
    const std::optional<std::string> last = lastLineOfJournal(left);
    const std::optional<PointLine> point = last ? pointOf(*last, head) : std::nullopt;
    if (!point) {
        const std::optional<JournaledScan> scan = readScanJournal(left);
        return scan ? scan->points : 0;
    }
    const ScanArea& area = head.plan().area;
    return (area.rows - 1 - static_cast<int>(point->mapRow)) * area.cols +
           static_cast<int>(point->column) + 1;
}

} // namespace

void beginScanJournal() {
    if (!beginJournal(scanJournalKind)) return;
    for (const std::string& line : conditionLines()) journalLine(line);
    flushJournal();
}

void continueScanJournal(const LeftJournal& left) {
    AllLines lines;
    continueJournal(left, [&] { return lines.next(); });
}

void journalPoint(size_t column, size_t mapRow) {
    if (!journalIsBroken()) journalLine(pointLine(column, mapRow));
}

void notePause(ScanConditions& scan, const std::string& words) {
    if (!scan.paused.empty()) scan.paused += "; ";
    scan.paused += words;
}

void journalPause(const std::string& words) {
    if (!journalIsBroken()) journalLine(pauseWord + words);
    flushJournal();
}

void keepScanPicture() {
    // Another one would follow the stage away from the first place at each time that it goes on.
    if (!cameraState.connected || !scanMap.conditions->continued.empty()) return;
    const std::vector<uint32_t> pixels = smallPicture(cameraImage);
    keepJournalPicture(
        {reinterpret_cast<const char*>(pixels.data()), pixels.size() * sizeof pixels.front()});
}

std::vector<uint32_t> scanPicture(const LeftJournal& journal) {
    const std::string bytes = journalPicture(journal);
    std::vector<uint32_t> pixels(size_t{smallPictureWidth} * smallPictureHeight);
    if (bytes.size() != pixels.size() * sizeof pixels.front()) return {};
    std::memcpy(pixels.data(), bytes.data(), bytes.size());
    return pixels;
}

std::optional<JournaledScan> readScanJournal(const LeftJournal& journal) {
    if (journal.kind != scanJournalKind) return {};
    return scanOfLines(linesOfJournal(journal), journal.version);
}

std::optional<JournaledScan> scanOfLines(const NextLine& next, int version) {
    std::optional<JournaledScan> scan = readHead(next, version);
    if (!scan) return {};
    emptyMaps(scan->map, scan->plan().area, mapCountOf(*scan->map.conditions));
    while (const std::optional<std::string_view> line = next()) {
        if (line->starts_with(pauseWord)) {
            notePause(*scan->map.conditions, std::string(line->substr(sizeof pauseWord - 1)));
            continue;
        }
        const std::optional<PointLine> point = pointOf(*line, *scan);
        if (!point) break;
        takePoint(*point, *scan);
    }
    return scan;
}

bool isJournalOf(const LeftJournal& left, const ScanConditions& scan) {
    const std::optional<JournaledScan> head = readHead(left);
    return head && head->map.conditions->started == scan.started;
}

int firstMissingRow(const ScanMap& map) {
    const auto rows = static_cast<int>(map.marks.front().size());
    for (int row = 0; row < rows; ++row)
        for (const std::vector<PointMark>& column : map.marks)
            if (column[static_cast<size_t>(rows - 1 - row)] == PointMark::NotMeasured) return row;
    return rows;
}

std::string startOf(const ScanConditions& measurement) {
    return timeText(measurement.started).substr(0, sizeof "2026-11-25 12:30" - 1);
}

std::string scanNotice(const LeftJournal& left) {
    if (left.kind != scanJournalKind) return {};
    const std::optional<JournaledScan> scan = readHead(left);
    if (!scan) return {};
    return formatted(
        "A scan of %s was cut off: %d of %d points. \"File\", \"Continue last scan\" or "
        "\"Recover last scan\"",
        startOf(*scan->map.conditions).c_str(), pointsOf(left, *scan),
        scan->plan().area.totalPoints);
}
