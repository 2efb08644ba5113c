// The values of the shown map along a line.
#pragma once

#include "mapping/map_place.h"

#include <string>
#include <vector>

struct MapProfile {
    std::string scan;                 // its name
    std::string title, unit;          // of the values: "Photocurrent", "nA"
    std::vector<float> placesUm;      // along the line, from its beginning; a point for each step
    std::vector<float> values;        // of the cell that the point lies in, not between cells
    std::vector<StageVector> stageUm; // as the program counts; empty where that is not known
    std::vector<std::string> notes;   // of a masked cell why it is; empty of the others
};

// From the first to the last point; one of a map without values is empty. Of the colours together
// their mean.
MapProfile profileAlong(MapPoint from, MapPoint to, int channel);

// The text of its file: the scan's name, a heading, a line for each point.
std::string textOf(const MapProfile& profile);

// The next free "profile(n).txt" in the session's folder; empty when it was not written.
std::string saveProfile(const MapProfile& profile);
