// Remembered places of the stage: KST_Data/Places.ini, one a line, beside their small pictures in
// KST_Data/Places. They are kept by the controllers' own counts, so that neither "Set Zero" nor a
// restart moves them; where an axis has begun to count anew, or has another controller, they are
// lost.
#pragma once

#include "motion/axis.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Place {
    int32_t number = 0; // in the file, from 1, and of its picture; 0: not in the file yet
    std::string name;   // one line
    std::array<AxisCount, axisCount> counts; // not known of an axis that had no controller
    std::string objective;                   // that was in use
    bool isFocus = false;                    // the sample was in focus there
};

// Of the axis, um as the program has them now; nothing where the place has none.
std::optional<double> umOf(const Place& place, const StageAxis& axis);

// Why nobody can go there any more; empty when one can.
std::string whyLost(const Place& place);

// Whether it was remembered with the objective in use: another one has its focus elsewhere, and may
// hang lower.
bool isOfPresentObjective(const Place& place);

// What stands in the file. A line that cannot be taken stays in the file as it is, and `refused`
// says its number and why.
std::vector<Place> readPlaces(std::vector<std::string>& refused);

// Where the stage stands now, with the objective in use. Nothing, and `fault` says why, where no
// axis has a controller or one of them does not answer.
std::optional<Place> presentPlace(std::string& fault);

// Puts it into the file: in its own line, or behind the others with a number that none has had yet.
// False when that was not written.
bool writePlace(Place& place);

// Takes its line out of the file, and its picture; false when that was not written.
bool removePlace(const Place& place);

// Its small picture in the folder Places, which writePlace makes.
std::wstring picturePath(const Place& place);
