// The laser spot on the picture and the colour found there.
#pragma once

#include "camera/picture.h"
#include "platform/surface.h"

#include <cstdint>

// Mean colour of the half-open square of half side `r` around the spot, each channel truncated.
// Black when no pixel of the square lies in the picture.
Colour sampleSpotColour(PicturePoint spot, int32_t r);

constexpr uint32_t redOf(Colour colour) {
    return colour & 255;
}
constexpr uint32_t greenOf(Colour colour) {
    return colour >> 8 & 255;
}
constexpr uint32_t blueOf(Colour colour) {
    return colour >> 16 & 255;
}

// Writes the three numbers into the red, green and blue read-outs.
void showSpotColour(Colour colour);
