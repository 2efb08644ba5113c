// The map that is shown, cell by cell: where a cell lies in its window, on the stage and on the
// picture, and what its value is.
#pragma once

#include "mapping/sample_place.h"
#include "mapping/scan_map.h"

#include <optional>
#include <string>

// A point of the map in cells: whole numbers are their middles, rows count from the top.
struct MapPoint {
    double column = 0.0, row = 0.0;
};

struct MapCell {
    size_t column = 0, row = 0;
};

// By which the map is drawn.
const ScanArea& shownArea();

// Of a pixel of its window; nothing beside the map. `clamped` takes its edge instead, where there
// is a map.
std::optional<MapPoint> mapPointAt(int x, int y);
std::optional<MapPoint> clampedMapPointAt(int x, int y);

// Of a point of the map.
MapCell cellAt(MapPoint point);

// Why nobody knows where its cells lie now; empty where that is known.
std::string whyNoPlace();

// Of a map whose place is known.
SamplePlace placeOf(MapPoint point);

// Number of the map that a channel shows; of the colours together the first.
size_t planeShown(const ScanMap& map, int channel);
std::optional<Unit> unitOfPlane(const ScanMap& map, size_t plane);

// "12.3 nA", "R 10, G 200, B 3", with what is to be said of it: "12.3 nA (not reached)".
std::string valueText(MapCell cell, int channel);

// That, the column and the row, counted from 1 and from below, and the stage's place.
std::string cellText(MapCell cell, int channel);

// "Kestrel(22X16)Step2.0um LaserIntensity16.0 Bias0.0V of 2026-11-27 08:15": the shown map's scan.
std::string nameOfScan();
