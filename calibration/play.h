// The play of an axis, from places that were approached from both sides.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// One place of an axis, where the picture saw it come to, um along the axis.
struct PlayVisit {
    double fromBelowUm = 0.0; // after a way upwards
    double fromAboveUm = 0.0;
};
constexpr size_t leastVisits = 4;

struct AxisPlay {
    std::string refusal;        // why there is none; empty when it was found
    double um = 0.0;            // by how much it comes to rest higher from above than from below
    double uncertaintyUm = 0.0; // one standard deviation of that
    double scatterUm = 0.0;     // and of a single visit's
    size_t leftOut = 0;         // visits that do not agree with the others

    bool isFound() const { return refusal.empty(); }
    std::string words() const; // "2.03 um (+- 0.05)"
};

// Visits that lie far beside the median are left out and counted; where that is more than a
// quarter of them, or fewer than four are left, it is refused. `resolutionUm` is what the picture
// can tell: nothing nearer to the median is left out, and a scatter of
// five times that is refused, and a play that is clearly negative.
AxisPlay playOf(const std::vector<PlayVisit>& visits, double resolutionUm);

// The run-in that takes up a play of either axis with room to spare, whole um, 1 at least.
int runInFor(const AxisPlay& x, const AxisPlay& y);
