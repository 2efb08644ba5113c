// Keeps the maps and writes them as text.
#include "mapping/scan_map.h"

#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/map_document.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/document.h"
#include "session/message_box.h"
#include "session/process.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <string_view>

ScanMap scanMap;
const ScanMap* fileMapShown = nullptr;

std::vector<Plane> planesOf(const ScanMap& map) {
    if (!map.planes.empty()) return map.planes;
    std::vector<Plane> planes =
        map.conditions ? planesOf(*map.conditions) : planesOf(presentPlan());
    // The settings may have changed since the maps were made.
    std::erase_if(planes, [&](const Plane& plane) { return plane.map >= map.maps.size(); });
    return planes;
}

void emptyMaps(ScanMap& map, const ScanArea& area, size_t count) {
    const auto columns = static_cast<size_t>(area.cols);
    const auto rows = static_cast<size_t>(area.rows);
    map.maps.resize(count);
    for (Map& plane : map.maps) plane.assign(columns, std::vector<float>(rows, 0.0f));
    map.marks.assign(columns, std::vector<PointMark>(rows, PointMark::NotMeasured));
}

bool isInRange(const ScanMap& map, size_t column, size_t row, size_t plane) {
    const float reading = map.maps[plane][column][row];
    return !isOverload(reading) && map.marks[column][row] != PointMark::Overloaded;
}

bool isInScale(const ScanMap& map, size_t column, size_t row, size_t plane) {
    if (!map.file.empty()) return !isMasked(map, column, row, plane); // why it is, the file keeps
    const PointMark mark = map.marks[column][row];
    // The 0 of a cell that has no reading may be any current of an amplifier with an offset.
    const bool behindAmplifier = map.conditions && map.conditions->amplifier.isKnown();
    if (behindAmplifier && mark == PointMark::NotMeasured) return false;
    return mark != PointMark::Unlocked && mark != PointMark::Unsettled &&
           isInRange(map, column, row, plane);
}

bool isMasked(const ScanMap& map, size_t column, size_t row, size_t plane) {
    const PointMark mark = map.marks[column][row];
    const bool ofCamera = plane >= planeRed && plane <= planeBlue;
    const bool known = mark == PointMark::Measured || (mark == PointMark::NoColour && !ofCamera);
    return !known || isOverload(map.maps[plane][column][row]);
}

const char* wordsOf(PointMark mark) {
    constexpr const char* words[] = {"not measured",    "",      "not reached", "no answer",
                                     "no colour",       "unlit", "overloaded",  "no reference",
                                     "settings changed"};
    static_assert(std::size(words) == static_cast<size_t>(lastPointMark) + 1);
    return words[static_cast<size_t>(mark)];
}

Extremes extremesOf(const ScanMap& map, size_t plane, size_t first, size_t end) {
    constexpr float none = std::numeric_limits<float>::infinity();
    Extremes found{none, -none};
    const Map& cells = map.maps[plane];
    for (size_t column = 0; column < cells.size(); ++column)
        for (size_t row = first; row < end; ++row) {
            if (!isInScale(map, column, row, plane)) continue;
            found.lowest = std::min(found.lowest, cells[column][row]);
            found.highest = std::max(found.highest, cells[column][row]);
        }
    return found.lowest > found.highest ? Extremes{0.0f, 0.0f} : found;
}

namespace {

// Of larger maps there would be no memory for two.
constexpr int32_t mostPointsKept = 4'000'000;

// What is shown until the next scan begins.
void keepShownMap() {
    if (!scanMap.conditions || scanMap.conditions->area.totalPoints > mostPointsKept) return;
    auto kept = std::make_shared<ScanMap>();
    kept->maps.swap(scanMap.maps);
    kept->marks.swap(scanMap.marks);
    kept->conditions = scanMap.conditions;
    kept->outcome = scanMap.outcome;
    scanMap.before = std::move(kept);
}

void forgetScan() {
    scanMap.conditions.reset();
    scanMap.outcome = {};
    scanMap.lacksFiles = scanMap.onlyInJournal = false;
    scanMap.folders.reset();
}

} // namespace

void beginMap(const ScanConditions& conditions) {
    scanMap.before.reset();
    forgetScan();
    emptyMaps(scanMap, conditions.area, mapCountOf(conditions));
    scanMap.conditions = conditions;
}

void allocateMaps() {
    keepShownMap();
    forgetScan();
    emptyMaps(scanMap, scanArea, mapCountOf(presentPlan()));
}

bool mapIsConfocal() {
    return scanMap.conditions ? scanMap.conditions->confocal : scanSettings.confocalEnabled != 0;
}

ScanConditions mapConditions() {
    return scanMap.conditions ? *scanMap.conditions : conditionsOf(presentPlan());
}

std::wstring mapPath(const ScanConditions& scan, const char* prefix, const std::string& number,
                     const char* colon, const char* ending) {
    return foldersOfMap().sessionFolder + L"\\" +
           widened(formatted("%s%s(%dX%d)Step%s%.1fum LaserIntensity%.1f Bias%.1fV.%s", prefix,
                             number.c_str(), scan.area.cols, scan.area.rows, colon,
                             scan.area.scanStep, scan.laserUa(),
                             static_cast<double>(scan.biasVoltage), ending));
}

std::wstring makeMapFileName(const char* prefix) {
    const ScanConditions scan = mapConditions();
    std::wstring path = mapPath(scan, prefix, "", "", "txt");
    // The numbered form has a colon behind "Step" where the plain form has none.
    for (int number = 0; fileExists(path); ++number)
        path = mapPath(scan, prefix, formatted("(%d)", number), ":", "txt");
    return path;
}

DataFolders& foldersOfMap() {
    return scanMap.folders ? *scanMap.folders : dataFolders;
}

namespace {

void reportFailure() {
    showMessageBox(windows.main, "File saving error. New folder will be made.",
                   "Image save Process", BoxButtons::Ok);
}

// Six decimals, as ever; seven digits where there is none to read them yet.
std::string_view numberIn(char (&text)[64], float value, bool digits) {
    const auto number = static_cast<double>(value);
    const auto end =
        digits ? std::to_chars(text, std::end(text), number, std::chars_format::general, 7)
               : std::to_chars(text, std::end(text), number, std::chars_format::fixed, 6);
    return {text, end.ptr};
}

bool writeRows(FILE* file, const Map& map, bool digits) {
    const size_t rows = map.empty() ? 0 : map.front().size();
    std::string line;
    for (size_t row = 0; row < rows; ++row) {
        line.clear();
        for (const std::vector<float>& column : map) {
            char text[64]; // the largest float has 39 digits before the point
            line.append(numberIn(text, column[row], digits)) += ',';
        }
        line += '\n';
        if (std::fwrite(line.data(), 1, line.size(), file) != line.size()) return false;
    }
    return true;
}

// A failure lets the next save make a new folder.
bool writeMap(const std::wstring& path, const Map& map, bool digits) {
    // A part of a map would look like one.
    if (writeWhole(path, L"w", [&](FILE* file) { return writeRows(file, map, digits); }))
        return true;
    DataFolders& folders = foldersOfMap();
    folders.sessionFolderMade = 0;
    // A numbered name was in question: the plain one is taken there.
    if (path.find(L"Step:") != std::wstring::npos) folders.fullFolder = folders.sessionFolder;
    return false;
}

// A map that finds no place in the session folder goes into the new one; otherwise it stays in
// memory for the next save. The path that was written; empty when none was.
using Write = bool (*)(const std::wstring& path, const Map& map, bool digits);

std::wstring saveMap(const Plane& plane, Write write) {
    const Map& map = scanMap.maps[plane.map];
    const bool digits = plane.of == Plane::Of::Channel && plane.map != planePhotocurrent;
    std::wstring path = makeMapFileName(plane.filePrefix);
    if (write(path, map, digits)) return path;
    ensureSessionFolder(foldersOfMap());
    path = makeMapFileName(plane.filePrefix);
    return writeMap(path, map, digits) ? path : L"";
}

SavedFiles saveWith(Write write) {
    ensureSessionFolder(foldersOfMap());
    SavedFiles saved;
    std::vector<std::wstring> paths;
    for (const Plane& plane : planesOf(scanMap)) {
        if (!*plane.filePrefix) continue;
        paths.push_back(saveMap(plane, write));
        saved.textFiles &= !paths.back().empty();
    }
    if (!saved.textFiles) saved.notWritten.emplace_back("a text file");
    const bool hasDocument = scanMap.conditions && scanMap.conditions->options.writesUnitFile;
    if (hasDocument && !saveMapDocument(scanMap, paths))
        saved.notWritten.emplace_back(mapDocumentWords);
    saved.numbers = saved.notWritten.empty();
    scanMap.lacksFiles = !saved.numbers;
    scanMap.saveCount += 1;
    return saved;
}

} // namespace

bool writeMapFile(const std::wstring& path, const Map& map, bool digits) {
    const bool written = writeMap(path, map, digits);
    if (!written) reportFailure();
    return written;
}

SavedFiles saveMapFiles() {
    // No box holds a list up: its record says what is not written.
    const bool ofList =
        scanMap.conditions && !scanMap.conditions->occasion.list.empty() && processUnderWay();
    return saveWith(ofList ? writeMap : writeMapFile);
}

SavedFiles saveMapFilesQuietly() {
    return saveWith(writeMap);
}
