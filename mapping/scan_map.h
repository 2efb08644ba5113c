// The maps of one scan and the text files they are saved in.
#pragma once

#include "camera/spot.h"
#include "mapping/map_planes.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "platform/clock.h"
#include "session/process.h"

#include <cstdint>
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
};
constexpr PointMark lastPointMark = PointMark::Overloaded;

// All that a scan is taken with.
struct ScanConditions {
    std::string program; // name and version
    LocalTime started;
    int32_t cols = 0, rows = 0;
    double stepUm = 0.0;
    double laserLevel = 0.0;                            // V; laserScaleFactor makes it uA
    float biasVoltage = 0.0f;                           // V
    float currentLimit = 0.0f;                          // A
    int32_t ammeterKind = 0;                            // EquipmentKind, which has the unit
    std::string instrumentIdentity;                     // empty when it was not asked
    bool confocal = false;                              // whether the colour maps are taken
    double homeXUm = 0.0, homeYUm = 0.0, homeZUm = 0.0; // where the stage stood
    double offsetXUm = 0.0, offsetYUm = 0.0;            // of the first point from there
    int32_t gain = 0;                                   // of the camera in a confocal scan, dB
    double exposureUs = 0.0;
    double takenGain = 0.0, takenExposureUs = 0.0; // what the camera made of these; 0 not known
    bool blueOnly = false;                         // of the camera's picture
    int32_t aperturePx = 0;                        // half the side of the square around the spot
    PicturePoint laserSpot;                        // picture pixels
    ScanOptions options;
    int32_t axisOrder = 0;    // of the controllers
    uint32_t rowSettleMs = 0; // before a row; those of a point are in the options
    std::string continued;    // when, and behind which row, it went on; empty of a scan in one go
};

// How the scan of the map ended, and what had changed by then.
struct ScanOutcome {
    ProcessEnd end = ProcessEnd::Running;
    LocalTime ended;
    double zUm = 0.0;
    double laserLevel = 0.0;             // V
    double gain = 0.0, exposureUs = 0.0; // as the camera had them
    bool blueOnly = false;
    std::string trouble; // what the operator is told of it; empty when all went well
};

struct ScanMap {
    std::vector<Map> maps = std::vector<Map>(firstFurtherMap); // by the planes; colours 0..255
    std::vector<std::vector<PointMark>> marks;                 // by cell, as the maps
    std::optional<ScanConditions> conditions; // as the map's scan started; none before a scan
    ScanOutcome outcome;
    bool documentLost = false;  // the last save could not write it
    bool onlyInJournal = false; // its scan is over, and not all of its files were written
    int32_t saveCount = 0;
    float mapMax = 0.0f, mapMin = 0.0f; // of the map when it was last drawn whole
};

extern ScanMap scanMap;

// The planes that the map has: as its scan found them, or as the next one would.
std::vector<Plane> planesOf(const ScanMap& map);

// Whether a cell of an instrument's plane holds a number that was measured or its 0 from the
// beginning: no sign of an instrument's for a reading beyond its range.
bool isInRange(const ScanMap& map, size_t column, size_t row, size_t plane = planePhotocurrent);

struct Extremes {
    float lowest, highest;
};

// Of the cells of an instrument's plane in the rows [first, end); 0 where none is in its range.
Extremes extremesOf(const ScanMap& map, size_t plane, size_t first, size_t end);

// How many maps a scan has.
size_t mapCountOf(const ScanConditions& scan);

// So many maps and the marks, of the area's size, all cells 0 and not measured.
void emptyMaps(ScanMap& map, const ScanArea& area, size_t count);

// The maps that a scan with the present settings would have, of the scan area's size, all cells 0
// and not measured.
void allocateMaps();

// Whether the maps have confocal planes: as their scan found it, or as the next one would.
bool mapIsConfocal();

// The conditions of a scan that starts now.
ScanConditions presentConditions();

// Those of the map in memory: as its scan started, or the present ones before a scan.
ScanConditions mapConditions();

// A file name in the session folder that is not taken yet; it tells the map's conditions.
std::wstring makeMapFileName(const char* prefix);

// The same for the document of a scan, whose numbered name has no colon.
std::wstring makeMapDocumentName(const ScanConditions& scan);

// One text line a map row, each value followed by a comma. A file that cannot be written raises a
// box, and the next save makes a new folder. Returns whether it was written whole.
bool writeMapFile(const std::wstring& path, const Map& map);

// Each plane that has a text file. Whether every map was written.
bool saveMapFiles();

// The same without the box, for the program's forced end and in the middle of a scan. Returns
// whether every map was written.
bool saveMapFilesQuietly();
