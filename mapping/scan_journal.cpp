// Writes a scan's journal, and makes a map of one.
#include "mapping/scan_journal.h"

#include "mapping/raster_scan.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/document.h"

#include <charconv>
#include <cstdio>
#include <map>

namespace {

constexpr char kind[] = "scan";

using Lines = std::map<std::string, std::string>;

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

constexpr char pointsBegin[] = "points";
constexpr char unreadable[] =
    "A journal was left that cannot be read; it stays in KST_Data/Journal";

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

std::string dateOf(const LocalTime& time) {
    return formatted("%d-%02d-%02d %02d:%02d", time.year, time.month, time.day, time.hour,
                     time.minute);
}

} // namespace

void beginScanJournal() {
    if (!beginJournal(kind)) return;
    JournaledScan scan{.map = {.conditions = scanMap.conditions}, .area = scanArea};
    journalLine("folder = " + fileNameOf(dataFolders.sessionFolder));
    eachValue(scan, [](const char* name, const auto& value) {
        journalLine(std::string(name) + " = " + textOf(value));
    });
    journalLine(pointsBegin);
    flushJournal();
}

void journalPoint(size_t column, size_t mapRow) {
    if (journalIsBroken()) return;
    const auto value = [&](size_t plane) {
        return static_cast<double>(scanMap.maps[plane][column][mapRow]);
    };
    const double deviation =
        scanMap.deviation.empty() ? 0.0 : static_cast<double>(scanMap.deviation[column][mapRow]);
    journalLine(formatted("%d %d %.9g %.9g %.9g %.9g %.9g %d", static_cast<int>(column),
                          static_cast<int>(mapRow), value(planePhotocurrent), value(planeRed),
                          value(planeGreen), value(planeBlue), deviation,
                          static_cast<int>(scanMap.marks[column][mapRow])));
}

std::optional<JournaledScan> readScanJournal(const LeftJournal& journal) {
    if (journal.kind != kind) return {};
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

std::string leftScanNotice() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return {};
    const std::optional<JournaledScan> scan = readScanJournal(*left);
    if (!scan) return unreadable;
    return formatted("A scan of %s was cut off: %d of %d points. \"File\", \"Recover last scan\"",
                     dateOf(scan->map.conditions->started).c_str(), scan->points,
                     scan->area.totalPoints);
}

void recoverLastScan() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return showInformation("No scan was cut off");
    std::optional<JournaledScan> scan = readScanJournal(*left);
    if (!scan) return showInformation(unreadable);
    scan->map.saveCount = scanMap.saveCount;
    scanMap = std::move(scan->map);
    scanMap.outcome.end = ProcessEnd::CutOff;
    scanArea = scan->area;

    const DataFolders present = dataFolders;
    dataFolders.sessionFolder = dataFolders.dataRoot + L"\\" + scan->folder;
    makeFolder(dataFolders.sessionFolder); // it is there, unless somebody has moved it away
    dataFolders.sessionFolderMade = 1;
    const bool saved = saveScan();
    dataFolders = present;
    if (saved) removeLeftJournal(*left);
    showInformation(
        formatted(saved ? "Recovered: %d of %d points" : "Not all files written: the journal stays",
                  scan->points, scanArea.totalPoints)
            .c_str());
}
