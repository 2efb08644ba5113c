// The scan's geometry: from the rectangle drawn on the picture to a grid of stage positions.
#pragma once

#include "camera/spot.h"
#include "mapping/sample_place.h"
#include "platform/surface.h"
#include "session/picture_scale.h"

#include <cstdint>
#include <optional>
#include <string>

// Scan steps that the operator can set, um.
constexpr double scanStepLowest = 0.1;
constexpr double scanStepHighest = 40.0;

// What a map may have: a wide view as built at the smallest step has 24 million.
constexpr int64_t mostScanPoints = 36'000'000;

// A part of the sample that was chosen on a map, or is that of an earlier scan, along the stage's
// axes.
struct SamplePart {
    SamplePlace from;                     // its lower left corner, the first point
    double widthUm = 0.0, heightUm = 0.0; // the step may change
};

// Why it does not lie where it did any more; empty when it does. With another pitch or direction of
// a drive it would reach elsewhere from its corner.
std::string whyLost(const SamplePart& part);

struct ScanArea {
    double scanStep = 1.0; // um between neighbouring points
    PictureScale picture;  // of the objective that the rectangle was drawn with
    // From the laser spot that is seen to where the light acts, um.
    double correctionXUm = 3.0, correctionYUm = 2.0;

    // Of a scan list: `cols`, `rows` and the offsets are given, wherever the stage stands, and
    // there is no rectangle.
    bool placed = false;
    // Of a part of the sample, which is placed, too, and stays there when the stage moves: columns
    // and rows follow from the step, and the offsets from where the stage stands. A journal keeps
    // what came of it.
    std::optional<SamplePart> part;
    int32_t rectX1 = 0, rectY1 = 0, rectX2 = 0, rectY2 = 0; // corners, picture pixels from the top
    int32_t cols = 1, rows = 1;                             // points across and down
    double scanWidthUm = 0.0, scanHeightUm = 0.0;           // points times pixel size
    int32_t totalPoints = 1;
    int32_t viewScale = 1; // of the view that the rectangle was drawn on: 1, or 3 for the wide view
    int32_t mapWidthPx = 0, mapHeightPx = 0;
    float stepPx = 0.0f;                         // the step in picture pixels
    double imageRefX = 616.0, imageRefY = 514.0; // the picture's centre, pixels
    double offsetXUm = 0.0, offsetYUm = 0.0;     // first point relative to the stage position
    double refToRectX = 0.0, refToRectY = 0.0;   // pixels
    double refToLaserX = 0.0, refToLaserY = 0.0; // pixels
    int32_t cellPx = 0;                          // map pixels per point, at least 1
    int32_t rectLeft = 0, rectBottom = 0;        // picture pixels from the top
    int32_t mapMaxPx = 390; // largest side of the drawn map, unless it has more points than that
    int32_t estimatedMinutes = 0;
    bool isTooLarge = false; // more points than mostScanPoints: there is but one, and no scan
};

extern ScanArea scanArea;

// Another step, um: the area reaches as far as before, once it is computed.
void takeStep(ScanArea& area, double um);

// A pixel of the view that the rectangle was drawn on, as a pixel of the view that is shown now.
PixelPoint onPresentView(const ScanArea& area, double x, double y);

// A point of the scan on the view that is shown now: columns and rows in the order of the scan.
PixelPoint pointOnPresentView(const ScanArea& area, double column, double row);

// Where on that view the light acts when the stage has gone by so much, um; with the present
// objective and laser spot.
PixelPoint spotOnPresentView(double dxUm, double dyUm);

// Computes everything below `rectY2` from the rectangle, the step, the view and the laser spot; of
// a placed area what follows from its columns, rows and offsets.
// The points lie along the stage's axes: where the picture is turned against them, on the smallest
// rectangle that holds the one that was drawn. Returns the estimated minutes. Steps below
// scanStepLowest count as scanStepLowest.
int32_t computeScanArea(ScanArea& area, PicturePoint laserSpot, bool confocal);

// The same with the present objective and laser spot, for the present kind of scan; a part of a map
// is laid from where the stage stands now.
int32_t computeScanArea(ScanArea& area);

// The scan area as a scan would take it from where the stage stands now: one that stays at its
// place lies elsewhere then.
ScanArea presentArea();
