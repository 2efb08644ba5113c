// Writes a scan's journal, and makes a map of one.
#include "mapping/scan_journal.h"

#include "camera/camera.h"
#include "mapping/journal_values.h"
#include "mapping/map_document.h"
#include "mapping/raster_scan.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/data_folders.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

// All that a journal keeps of a scan beside its points.
template <class Scan, class Visit> void eachValue(Scan& scan, Visit& visit) {
    eachCondition(*scan.map.conditions, visit);
    auto& a = scan.area;
    visit("area step um", a.scanStep);
    visit("area x1 px", a.rectX1);
    visit("area y1 px", a.rectY1);
    visit("area x2 px", a.rectX2);
    visit("area y2 px", a.rectY2);
    visit("area view scale", a.viewScale);
    visit("folder", scan.folder);
    visit.added("continued", scan.map.conditions->continued);
}

// What no scan can have is not computed: it might have no end.
bool isPossible(const ScanArea& area, const ScanOptions& options) {
    const bool allowed =
        std::all_of(std::begin(scanNumbers), std::end(scanNumbers),
                    [&](const ScanNumber& of) { return of.allows(options.*of.value); });
    return allowed && area.scanStep >= scanStepLowest && area.scanStep <= scanStepHighest &&
           area.viewScale >= 1 && area.viewScale <= 3 && inPicture(area.rectX1, area.rectY1) &&
           inPicture(area.rectX2, area.rectY2);
}

// The cells' place and values; the laser spot is the scan's own while the geometry is computed.
void computeArea(JournaledScan& scan) {
    const PicturePoint present = laserOffset;
    laserOffset = scan.map.conditions->laserSpot;
    computeScanArea(scan.area);
    laserOffset = present;
}

// One point's line; false when it is none of this scan.
bool takePoint(const std::string& line, JournaledScan& scan) {
    unsigned long column = 0, row = 0;
    int mark = 0;
    float values[4] = {}, deviation = 0.0f;
    if (std::sscanf(line.c_str(), "%lu %lu %f %f %f %f %f %d", &column, &row, &values[0],
                    &values[1], &values[2], &values[3], &deviation, &mark) != 8)
        return false;
    if (mark < 0 || mark > static_cast<int>(lastPointMark)) return false;
    if (column >= scan.map.marks.size() || row >= scan.map.marks[column].size()) return false;
    for (size_t plane = 0; plane < 4; ++plane) scan.map.maps[plane][column][row] = values[plane];
    if (!scan.map.deviation.empty()) scan.map.deviation[column][row] = deviation;
    scan.points += scan.map.marks[column][row] == PointMark::NotMeasured;
    scan.map.marks[column][row] = static_cast<PointMark>(mark);
    return true;
}

// All that stands before the points.
std::vector<std::string> conditionLines() {
    JournaledScan scan{.map = {.conditions = scanMap.conditions},
                       .area = scanArea,
                       .folder = sessionFolderName(dataFolders)};
    JournalLines lines;
    eachValue(scan, lines);
    return lines.ended();
}

std::string pointLine(size_t column, size_t mapRow) {
    const auto value = [&](size_t plane) {
        return static_cast<double>(scanMap.maps[plane][column][mapRow]);
    };
    const double deviation =
        scanMap.deviation.empty() ? 0.0 : static_cast<double>(scanMap.deviation[column][mapRow]);
    return formatted("%d %d %.9g %.9g %.9g %.9g %.9g %d", static_cast<int>(column),
                     static_cast<int>(mapRow), value(planePhotocurrent), value(planeRed),
                     value(planeGreen), value(planeBlue), deviation,
                     static_cast<int>(scanMap.marks[column][mapRow]));
}

} // namespace

void beginScanJournal() {
    if (!beginJournal(scanJournalKind)) return;
    for (const std::string& line : conditionLines()) journalLine(line);
    flushJournal();
}

void continueScanJournal(const LeftJournal& left) {
    std::vector<std::string> lines = conditionLines();
    for (size_t row = scanMap.marks.front().size(); row-- > 0;)
        for (size_t column = 0; column < scanMap.marks.size(); ++column)
            if (scanMap.marks[column][row] != PointMark::NotMeasured)
                lines.push_back(pointLine(column, row));
    continueJournal(left, lines);
}

void journalPoint(size_t column, size_t mapRow) {
    if (!journalIsBroken()) journalLine(pointLine(column, mapRow));
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
    JournalValues values(journal);
    JournaledScan scan;
    scan.map.conditions.emplace();
    eachValue(scan, values);
    const ScanConditions& conditions = *scan.map.conditions;
    if (!values.areWhole() || scan.folder.empty() || !isPossible(scan.area, conditions.options))
        return {};
    computeArea(scan);
    if (scan.area.cols != conditions.cols || scan.area.rows != conditions.rows) return {};
    emptyMaps(scan.map, scan.area);
    if (conditions.options.readingsPerPoint > 1)
        scan.map.deviation = scan.map.maps[planePhotocurrent];
    for (size_t i = values.firstPoint(); i < journal.lines.size(); ++i)
        if (!takePoint(journal.lines[i], scan)) break;
    return scan;
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
    const std::optional<JournaledScan> scan = readScanJournal(left);
    if (!scan) return unreadableJournal;
    return formatted(
        "A scan of %s was cut off: %d of %d points. \"File\", \"Continue last scan\" or "
        "\"Recover last scan\"",
        startOf(*scan->map.conditions).c_str(), scan->points, scan->area.totalPoints);
}

void recoverScan(const LeftJournal& left) {
    std::optional<JournaledScan> scan = readScanJournal(left);
    if (!scan) return showInformation(unreadableJournal);
    scan->map.saveCount = scanMap.saveCount;
    scanMap = std::move(scan->map);
    scanMap.outcome.end = ProcessEnd::CutOff;
    scanArea = scan->area;

    const bool saved = [&] {
        const OtherSessionFolder folder(scan->folder);
        return saveScan();
    }();
    if (saved) removeLeftJournal(left);
    // It may be scanned again, with the laser spot of today.
    ScanArea today = scanArea;
    computeScanArea(today);
    scanArea.offsetXUm = today.offsetXUm;
    scanArea.offsetYUm = today.offsetYUm;
    showInformation(
        formatted(saved ? "Recovered: %d of %d points" : "Not all files written: the journal stays",
                  scan->points, scanArea.totalPoints)
            .c_str());
}
