// The maps of one scan and the text files they are saved in.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

enum MapPlane : int { planePhotocurrent = 0, planeRed = 1, planeGreen = 2, planeBlue = 3 };

// [column][row]; row 0 is the last scanned stage row, the one with the largest Y, so that the order
// of rows is that of the screen.
using Map = std::vector<std::vector<float>>;

struct ScanMap {
    std::array<Map, 4> maps; // by MapPlane; colours 0..255
    int32_t saveCount = 0;
    float mapMax = 0.0f, mapMin = 0.0f; // of the photocurrent map when it was last drawn whole
};

extern ScanMap scanMap;

// All four maps, of the scan area's size, all cells 0.
void allocateMaps();

// A file name in the session folder that is not taken yet.
std::wstring makeMapFileName(const char* prefix);

// One text line a map row, each value followed by a comma. A file that cannot be written raises a
// box, and the next save makes a new folder. Returns whether it was written whole.
bool writeMapFile(const std::wstring& path, const Map& map);

// The photocurrent map and, when confocal imaging is on, the three colour maps.
void saveMapFiles();

// The same without the box, for the program's forced end.
void saveMapFilesQuietly();
