// Samples the picture around the laser spot.
#include "camera/spot.h"

#include "platform/text_format.h"
#include "screen/screen.h"

#include <algorithm>

Colour sampleSpotColour(PicturePoint spot, int32_t r) {
    const PictureArea& seen = cameraImage.seen;
    const int64_t left = std::max<int64_t>(int64_t{spot.x} - r, seen.left);
    const int64_t right = std::min<int64_t>(int64_t{spot.x} + r, seen.left + seen.width);
    const int64_t bottom = std::max<int64_t>(int64_t{spot.y} - r, seen.bottom);
    const int64_t top = std::min<int64_t>(int64_t{spot.y} + r, seen.bottom + seen.height);
    if (left >= right || bottom >= top) return 0;

    uint64_t red = 0, green = 0, blue = 0;
    for (auto x = static_cast<int32_t>(left); x < right; ++x) {
        for (auto y = static_cast<int32_t>(bottom); y < top; ++y) {
            red += pixelRed(cameraImage, x, y);
            green += pixelGreen(cameraImage, x, y);
            blue += pixelBlue(cameraImage, x, y);
        }
    }
    const auto count = static_cast<uint64_t>((right - left) * (top - bottom));
    const auto mean = [count](uint64_t sum) { return static_cast<unsigned>(sum / count & 255); };
    return colourRgb(mean(red), mean(green), mean(blue));
}

void showSpotColour(Colour colour) {
    setField(Field::Red, formatted("%u", redOf(colour)).c_str());
    setField(Field::Green, formatted("%u", greenOf(colour)).c_str());
    setField(Field::Blue, formatted("%u", blueOf(colour)).c_str());
}
