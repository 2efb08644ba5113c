// By how many pixels the sample has moved between two pictures, to a part of a pixel.
#pragma once

#include "session/picture_scale.h"

#include <cstdint>
#include <string>
#include <vector>

// Grey levels 0..255, row by row from the bottom.
struct GreyPicture {
    int32_t width = 0, height = 0;
    std::vector<float> at;
};

// A part of a picture, pixels; rows from the bottom.
struct PicturePart {
    int32_t left = 0, bottom = 0, width = 0, height = 0;
};

// The mean of the three channels of display pixels (camera/picture.h), `rowPixels` to a row.
GreyPicture greyPicture(const uint8_t* pixels, int32_t rowPixels, const PicturePart& part);

struct ShiftSearch {
    PixelVector expected; // where it is looked for
    double within = 0.0;  // pixels about that; 0: up to half a window
    // The sample has moved by 3 pixels or more: what stands still in the picture (dust on the
    // sensor, a laser spot, vignetting) is not taken for it. It may bend the shift by a few pixels.
    bool hasMoved = false;
};

struct PictureShift {
    PixelVector px; // what lay at p in the first picture lies at p + px in the second
    // How far the correlation's peak stands out of the rest, in the rest's standard deviations.
    double quality = 0.0;
    std::string refusal; // why there is none: "The picture is dark"; empty when it was found

    bool isFound() const { return refusal.empty(); }
};

// Of two pictures of one size, by phase correlation of windows about their middle, of up to 512 x
// 512 pixels, that are laid onto each other again and again until they show the same. Another
// exposure does not matter. Where the place along edges that all run one way cannot be told it is
// refused. Pictures of fewer than 64 pixels on a side are refused.
PictureShift shiftBetween(const GreyPicture& before, const GreyPicture& after,
                          const ShiftSearch& search = {});

// Of pictures of the sample at different places (five or more, of one size): the median of each
// pixel, which is what stands still, and the mean sample. Without it they show the sample alone,
// about grey level 128.
GreyPicture whatStandsStill(const std::vector<GreyPicture>& pictures);
GreyPicture withoutWhatStandsStill(const GreyPicture& picture, const GreyPicture& still);

// Why a picture cannot be followed ("The picture is dark", "... overexposed", "... plain"); empty
// when there may be something to follow.
std::string whyWithoutStructure(const GreyPicture& picture);
