// The maps of one scan and the text files they are saved in.
#pragma once

#include "mapping/map_planes.h"
#include "mapping/scan_area.h"
#include "mapping/scan_plan.h"
#include "platform/clock.h"
#include "session/data_folders.h"
#include "session/outcome.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// [column][row]; row 0 is the last scanned stage row, the one with the largest Y, so that the order
// of rows is that of the screen.
using Map = std::vector<std::vector<float>>;

// What is known of a cell's values. A journal holds the numbers: never change one.
enum class PointMark : uint8_t {
    NotMeasured = 0,
    Measured = 1,
    NotReached = 2, // measured where the stage stood, which is not the point's place
    Silent = 3,     // the laser board or the instrument did not answer
    NoColour = 4,   // measured, but without the camera
    Unlit = 5,      // not in the light of the laser alone
    Overloaded = 6, // beyond the instrument's range
    Unlocked = 7,   // a lock-in amplifier had no reference
    Unsettled = 8,  // it had been set otherwise meanwhile
};
constexpr PointMark lastPointMark = PointMark::Unsettled;

// How the scan of the map ended, and what had changed by then.
struct ScanOutcome {
    ProcessEnd end = ProcessEnd::Running;
    LocalTime ended;
    double zUm = 0.0;
    double laserLevel = 0.0;             // V
    double laserPowerUw = -1.0;          // negative: not known
    double gain = 0.0, exposureUs = 0.0; // as the camera had them
    bool blueOnly = false;
    std::string trouble = troubleLine({}); // what the operator is told of it
};

enum MapChannel : int {
    channelPhotocurrent = 0,
    channelRed = 1,
    channelGreen = 2,
    channelBlue = 3,
    channelConfocal = 4, // red, green and blue together
    channelFurther = 5,  // and above: what the instrument measures beside the photocurrent
};

// What the two picture windows show.
struct MapViews {
    int mapChannel = channelPhotocurrent;
    int confocalChannel = channelConfocal;
    int liveRowsFrom = -1; // first row, from the top, that a running scan has drawn; -1 no scan
};

struct ScanMap {
    std::vector<Map> maps = std::vector<Map>(firstFurtherMap); // by the planes; colours 0..255
    std::vector<std::vector<PointMark>> marks;                 // by cell, as the maps
    std::optional<ScanConditions> conditions; // as the map's scan started; none before a scan
    ScanOutcome outcome;
    std::optional<DataFolders> folders; // where its files go; none: into the session's
    std::string file;           // that it was read from, as the operator finds it; empty: from none
    std::vector<Plane> planes;  // of that; empty: by its conditions
    bool lacksFiles = false;    // of its numbers, as they were last saved
    bool onlyInJournal = false; // its scan is over, and not all of its files were written
    MapViews views;
    int32_t saveCount = 0;
    float mapMax = 0.0f, mapMin = 0.0f; // of the map when it was last drawn whole
    // While no scan has filled these maps: those of the scan before, which are still shown.
    std::shared_ptr<const ScanMap> before;
};

extern ScanMap scanMap;

// The map of a file that the map window shows instead of them; null without one.
extern const ScanMap* fileMapShown;

// The map that the windows show.
inline const ScanMap& shownMap() {
    if (fileMapShown) return *fileMapShown;
    return scanMap.conditions || !scanMap.before ? scanMap : *scanMap.before;
}

// The planes that the map has: as its scan found them, or as the next one would.
std::vector<Plane> planesOf(const ScanMap& map);

// Whether a cell of an instrument's plane holds a number that was measured or its 0 from the
// beginning: no sign of an instrument's for a reading beyond its range.
bool isInRange(const ScanMap& map, size_t column, size_t row, size_t plane = planePhotocurrent);

// Whether it has a colour in the scale: none that a lock-in amplifier says is no measurement, nor,
// behind a current amplifier, the 0 from the beginning.
bool isInScale(const ScanMap& map, size_t column, size_t row, size_t plane);

// Whether a cell of a plane holds no measured number, as the .gwy file has it.
bool isMasked(const ScanMap& map, size_t column, size_t row, size_t plane);

// "not measured", "not reached": what is to be said of a cell; empty of one that is in order.
const char* wordsOf(PointMark mark);

struct Extremes {
    float lowest, highest;
};

// Of the cells of an instrument's plane in the rows [first, end); 0 where none is in the scale.
Extremes extremesOf(const ScanMap& map, size_t plane, size_t first, size_t end);

// So many maps and the marks, of the area's size, all cells 0 and not measured.
void emptyMaps(ScanMap& map, const ScanArea& area, size_t count);

// The maps of a scan that begins, all cells 0 and not measured.
void beginMap(const ScanConditions& conditions);

// The maps that a scan with the present settings would have, of the scan area's size, all cells 0
// and not measured.
void allocateMaps();

// Whether the maps have confocal planes: as their scan found it, or as the next one would.
bool mapIsConfocal();

// Those of the map in memory: as its scan started, or the present ones before a scan.
ScanConditions mapConditions();

// A path in the map's folder that tells its conditions: `number` stands behind the prefix, `colon`
// behind "Step".
std::wstring mapPath(const ScanConditions& scan, const char* prefix, const std::string& number,
                     const char* colon, const char* ending);

// A text file's path that is not taken yet.
std::wstring makeMapFileName(const char* prefix);

// One text line a map row, each value with six decimals or as seven digits and followed by a comma.
// A file that cannot be written raises a
// box, and the next save makes a new folder. Returns whether it was written whole.
bool writeMapFile(const std::wstring& path, const Map& map, bool digits = false);

// Where the files of the map in memory go.
DataFolders& foldersOfMap();

// What became of the files of a map.
struct SavedFiles {
    bool textFiles = true;               // each was written
    bool numbers = true;                 // each is in a file, with its unit where that is wanted
    std::vector<std::string> notWritten; // for the operator
};

// Writes the text file of each plane that has one, and the document of a scan that is to have it.
SavedFiles saveMapFiles();

// The same without the box, for the program's forced end and in the middle of a scan.
SavedFiles saveMapFilesQuietly();
