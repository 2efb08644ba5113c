// The way of the whole stage to another place.
#pragma once

#include <string>

struct StagePlace {
    double xUm = 0.0, yUm = 0.0, zUm = 0.0;
};

// Goes there: Z first where that takes the sample away from the objective, then X and Y together,
// Z last where it comes nearer: whoever comes from above must not graze the sample. Nothing moves
// where one of the three is beyond a limit of the set-up. Empty when it has come, otherwise why
// not; what comes behind a move that failed is left out.
std::string travelTo(const StagePlace& to);

// The same for a place whose focus counts: Z comes to it from above, as the autofocus and the swing
// before a scan leave it, so that its play is the same each time. Where the highest Z leaves no
// room for that, it comes from below, and `fromBelow` says so.
std::string travelToFocus(const StagePlace& to, bool& fromBelow);
