// A scan's .gwy file, read back: as a row of a table, and as a map that a window can show.
#pragma once

#include "archive/scan_row.h"
#include "mapping/gwy_reading.h"
#include "mapping/scan_map.h"

#include <optional>
#include <string>

// What stands in the file goes into the row: conditions, picture, and the fault of a damaged one.
void describeScan(const std::wstring& path, ScanRow& row);

// The file's channels as the planes of a map, in the units of the text files where it names them,
// otherwise in one that fits; cells that are masked are not measured. Its conditions hold the grid
// and its place by the count of that day, the rest are those of no scan. Nothing, and `fault` says
// why, of a damaged file and of one that memory does not hold.
std::optional<ScanMap> mapOfFile(const std::wstring& path, std::string& fault);

// A sound file's grid and its place on the stage, which is known where the file says it; of what
// else a scan has nothing is claimed.
ScanConditions gridOf(const GwyContents& contents);

// All that stands in the file but its numbers.
GwyContents contentsOfFile(const std::wstring& path);

// The number that a condition's text begins with; nothing where it begins with none.
std::optional<double> numberAt(const std::string& text);

// The bias of a scan whose instrument was a source of it, V.
std::optional<double> biasOf(const Conditions& conditions);
