// The map with its units, its place on the stage, its conditions and a mask over what was not
// measured, beside the text files: one file for each scan, which analysis programs open.
#pragma once

#include "mapping/gwy_file.h"
#include "mapping/scan_map.h"
#include "session/document.h"

#include <string>
#include <vector>

// What any measurement is taken with: program, instrument, light, place.
Conditions setUpOf(const ScanConditions& scan);

// As they stand in the conditions.
std::string quantity(double value, const char* unit); // nine digits
std::string biasText(const ScanConditions& scan);

// Where the map lies, in stage coordinates: a pixel for each point, the point in its middle.
GwyFrame frameOf(const ScanConditions& scan);

// The whole file of a scan: all that stands in it comes from `map`, which has its conditions.
// `textFiles` are the paths of the text files of the same save, in the order of the planes that
// have one, empty where none was written. Throws std::length_error when the format cannot hold it.
std::string mapDocument(const ScanMap& map, const std::vector<std::wstring>& textFiles);

constexpr char mapDocumentWords[] = "the map's .gwy file"; // of the operator

// Writes it to a new file in the map's folder. A failure is told in the information text and on
// standard output, and the map stays in memory.
bool saveMapDocument(const ScanMap& map, const std::vector<std::wstring>& textFiles);
