// The plane that a tilted sample's foci lie in.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

// Where the sample was in focus, um.
struct FocusPoint {
    double xUm = 0.0, yUm = 0.0, zUm = 0.0;
};

struct FocusPlane {
    double perX = 0.0, perY = 0.0; // um of Z to a um of X and of Y
    FocusPoint through;
    double at(double xUm, double yUm) const {
        return through.zUm + perX * (xUm - through.xUm) + perY * (yUm - through.yUm);
    }
    double degrees() const; // between it and the stage's
};

// By least squares in Z.
struct FocusFit {
    FocusPlane plane;
    std::vector<double> residualsUm; // of each point: its Z less the plane's
    double largestUm() const;        // of them, without its sign
};

// Nothing, and `fault` says why, of fewer than three points and of points that lie nearly on a line
// or at one spot: the slope across it would be the noise of the foci.
std::optional<FocusFit> fitFocusPlane(std::span<const FocusPoint> points, std::string& fault);

// What a scan follows: slopes, from the Z that it starts with. Neither another zero of the stage
// nor a focus that has drifted since changes them.
struct FocusSlopes {
    bool follows = false;
    double perX = 0.0, perY = 0.0; // um of Z to a um of X and of Y
    // Where the Z of the start is right: so far from where the stage stands then, um.
    double fromXUm = 0.0, fromYUm = 0.0;
    // So much higher is the plane so far beside a place, um.
    double riseUm(double dx, double dy) const { return perX * dx + perY * dy; }
};
constexpr double steepestSlope = 1.0;

// "Z +0.01745 um per um along X, -0.00030 along Y"
std::string wordsOf(const FocusSlopes& slopes);

// Of this run: made of remembered places, followed by the scans that are started while it is
// switched on.
struct PlaneInUse {
    std::optional<FocusPlane> plane;
    std::string drives; // how X, Y and Z were driven when it was made: its slopes are in their um
    bool follows = false;
};
extern PlaneInUse planeInUse;

// Makes it the plane in use.
void usePlane(const FocusPlane& plane);

// What the next scan follows.
FocusSlopes slopesToFollow();

// Whether the drives are still those that the plane was made with.
bool planeFitsDrives();
