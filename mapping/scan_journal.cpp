// Writes a scan's journal, and makes a map of one.
#include "mapping/scan_journal.h"

#include "camera/camera.h"
#include "mapping/raster_scan.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/document.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

using Lines = std::map<std::string, std::string>;
using Texts = std::vector<std::string>;

std::string textOf(int32_t value) {
    return formatted("%d", value);
}
std::string textOf(uint32_t value) {
    return formatted("%u", value);
}
std::string textOf(double value) {
    return formatted("%.17g", value);
}
std::string textOf(float value) {
    return formatted("%.9g", static_cast<double>(value));
}
std::string textOf(bool value) {
    return value ? "1" : "0";
}
std::string textOf(const std::string& value) {
    return value;
}

// False when the text is no such value, or more than one.
template <class Number> bool take(const std::string& text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}
bool take(const std::string& text, bool& value) {
    value = text == "1";
    return text == "0" || text == "1";
}
bool take(const std::string& text, std::string& value) {
    value = text;
    return true;
}

// All that a journal keeps of a scan beside its points. `visit(name, value)` writes or reads.
template <class Scan, class Visit> void eachValue(Scan& scan, Visit visit) {
    auto& c = *scan.map.conditions;
    visit("program", c.program);
    visit("year", c.started.year);
    visit("month", c.started.month);
    visit("day", c.started.day);
    visit("hour", c.started.hour);
    visit("minute", c.started.minute);
    visit("second", c.started.second);
    visit("columns", c.cols);
    visit("rows", c.rows);
    visit("step um", c.stepUm);
    visit("laser level V", c.laserLevel);
    visit("bias V", c.biasVoltage);
    visit("current limit A", c.currentLimit);
    visit("instrument kind", c.ammeterKind);
    visit("instrument", c.instrumentIdentity);
    visit("confocal", c.confocal);
    visit("home x um", c.homeXUm);
    visit("home y um", c.homeYUm);
    visit("home z um", c.homeZUm);
    visit("offset x um", c.offsetXUm);
    visit("offset y um", c.offsetYUm);
    visit("gain", c.gain);
    visit("exposure us", c.exposureUs);
    visit("aperture px", c.aperturePx);
    visit("spot x px", c.laserSpot.x);
    visit("spot y px", c.laserSpot.y);
    visit("axis order", c.axisOrder);
    visit("row settles ms", c.rowSettleMs);
    visit("looks early", c.options.looksEarly);
    visit("settles ms", c.options.settleMs);
    visit("before reading ms", c.options.beforeReadingMs);
    visit("readings per point", c.options.readingsPerPoint);
    visit("writes unit file", c.options.writesUnitFile);
    auto& a = scan.area;
    visit("area step um", a.scanStep);
    visit("area x1 px", a.rectX1);
    visit("area y1 px", a.rectY1);
    visit("area x2 px", a.rectX2);
    visit("area y2 px", a.rectY2);
    visit("area view scale", a.viewScale);
}

constexpr char folderIs[] = "folder = ", continuedIs[] = "continued = ", pointsBegin[] = "points";

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
    if (column >= scan.map.marks.size() || row >= scan.map.marks[column].size()) return false;
    for (size_t plane = 0; plane < 4; ++plane) scan.map.maps[plane][column][row] = values[plane];
    if (!scan.map.deviation.empty()) scan.map.deviation[column][row] = deviation;
    scan.points += scan.map.marks[column][row] == PointMark::NotMeasured;
    scan.map.marks[column][row] = static_cast<PointMark>(mark);
    return true;
}

// All that stands before the points.
Texts conditionLines() {
    JournaledScan scan{.map = {.conditions = scanMap.conditions}, .area = scanArea};
    Texts lines{folderIs + fileNameOf(dataFolders.sessionFolder)};
    eachValue(scan, [&](const char* name, const auto& value) {
        lines.push_back(std::string(name) + " = " + textOf(value));
    });
    if (!scanMap.conditions->continued.empty())
        lines.push_back(continuedIs + scanMap.conditions->continued);
    lines.push_back(pointsBegin);
    return lines;
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
    Texts lines = conditionLines();
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
    Lines values;
    size_t i = 0;
    for (; i < journal.lines.size() && journal.lines[i] != pointsBegin; ++i) {
        const size_t equals = journal.lines[i].find(" = ");
        if (equals == std::string::npos) return {};
        values[journal.lines[i].substr(0, equals)] = journal.lines[i].substr(equals + 3);
    }
    if (i == journal.lines.size()) return {};
    JournaledScan scan;
    scan.map.conditions.emplace();
    bool whole = true;
    eachValue(scan, [&](const char* name, auto& value) {
        const auto found = values.find(name);
        whole = whole && found != values.end() && take(found->second, value);
    });
    scan.folder = widened(values["folder"]);
    scan.map.conditions->continued = values["continued"];
    if (!whole || scan.folder.empty() || scan.area.viewScale < 1) return {};
    computeArea(scan);
    const ScanConditions& conditions = *scan.map.conditions;
    if (scan.area.cols != conditions.cols || scan.area.rows != conditions.rows) return {};
    emptyMaps(scan.map, scan.area);
    if (conditions.options.readingsPerPoint > 1)
        scan.map.deviation = scan.map.maps[planePhotocurrent];
    for (++i; i < journal.lines.size(); ++i)
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

std::string startOf(const JournaledScan& scan) {
    const LocalTime& time = scan.map.conditions->started;
    return formatted("%d-%02d-%02d %02d:%02d", time.year, time.month, time.day, time.hour,
                     time.minute);
}

std::string leftScanNotice() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return {};
    const std::optional<JournaledScan> scan = readScanJournal(*left);
    if (!scan) return unreadableJournal;
    return formatted(
        "A scan of %s was cut off: %d of %d points. \"File\", \"Continue last scan\" or "
        "\"Recover last scan\"",
        startOf(*scan).c_str(), scan->points, scan->area.totalPoints);
}

void recoverLastScan() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return showInformation("No scan was cut off");
    std::optional<JournaledScan> scan = readScanJournal(*left);
    if (!scan) return showInformation(unreadableJournal);
    scan->map.saveCount = scanMap.saveCount;
    scanMap = std::move(scan->map);
    scanMap.outcome.end = ProcessEnd::CutOff;
    scanArea = scan->area;

    const bool saved = [&] {
        const OtherSessionFolder folder(scan->folder);
        return saveScan();
    }();
    if (saved) removeLeftJournal(*left);
    showInformation(
        formatted(saved ? "Recovered: %d of %d points" : "Not all files written: the journal stays",
                  scan->points, scanArea.totalPoints)
            .c_str());
}
