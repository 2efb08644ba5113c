// The laser spot on a dark picture: its place and its size.
#pragma once

#include "calibration/phase_correlation.h"
#include "session/picture_scale.h"

#include <cstdint>
#include <string>

struct SpotFound {
    std::string refusal; // why there is none; empty when it was found
    // Display pixels, columns from the left, rows from the bottom; the middle of pixel n is at n.
    PixelVector place;
    double uncertaintyPx = 0.0;  // one standard deviation: by its noise, and how lopsided it is
    double radiusPx = 0.0;       // at half its height
    double peak = 0.0;           // grey levels of its brightest channel over the background
    int32_t saturatedPixels = 0; // of the picture, in one channel at least
    bool cutByEdge = false;

    bool isFound() const { return refusal.empty(); }
};

// Of display pixels (camera/picture.h), `rowPixels` to a row: the centroid of the largest blob that
// stands out of the background, less the background. What is smaller than 9 pixels is none (hot
// pixels); a spot that the edge cuts, or that is saturated, is found and said so, since its
// centroid and its radius are not those of the light.
SpotFound findSpot(const uint8_t* pixels, int32_t rowPixels, const PicturePart& part);
