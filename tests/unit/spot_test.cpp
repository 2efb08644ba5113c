// The colour at the laser spot.
#include "camera/picture.h"
#include "camera/spot.h"
#include "tests/doubles/doubles.h"

namespace {

using SpotTest = LabTest;

void paint(int x, int y, uint8_t value) {
    uint8_t* at = &cameraImage.pixels[(static_cast<size_t>(y) * 1232 + static_cast<size_t>(x)) * 4];
    at[0] = at[1] = at[2] = value;
}

TEST_F(SpotTest, SquareIsHalfOpenAndStaysInThePicture) {
    // A single pixel of 250 shows by its share of the mean how many pixels a square has.
    const struct {
        PicturePoint spot;
        int32_t r;
        int inX, inY, outX, outY; // pixels just inside and just outside the square
        uint32_t mean;
    } cases[] = {
        {{600, 500}, 5, 595, 495, 605, 505, 2}, // 250 / 100
        {{600, 500}, 5, 604, 504, 594, 494, 2},
        {{0, 0}, 5, 4, 4, 5, 5, 10},                  // 250 / 25
        {{1231, 1027}, 5, 1226, 1022, 1225, 1021, 6}, // 250 / 36
    };
    for (const auto& each : cases) {
        paint(each.outX, each.outY, 250);
        EXPECT_EQ(sampleSpotColour(each.spot, each.r), 0u) << each.outX;
        paint(each.outX, each.outY, 0);
        paint(each.inX, each.inY, 250);
        EXPECT_EQ(sampleSpotColour(each.spot, each.r), each.mean * 0x010101) << each.inX;
        paint(each.inX, each.inY, 0);
    }
    EXPECT_EQ(sampleSpotColour({600, 500}, 0), 0u);
    EXPECT_EQ(sampleSpotColour({-50, 2000000000}, 2000000000), 0u);
}

TEST_F(SpotTest, ChannelsArePackedAndShown) {
    openBareWindow();
    for (size_t i = 0; i < cameraImage.byteCount; i += 4) {
        cameraImage.pixels[i] = 200;
        cameraImage.pixels[i + 1] = 100;
        cameraImage.pixels[i + 2] = 50;
    }
    const Colour colour = sampleSpotColour({3, 700}, 5);
    EXPECT_EQ(colour, 50u | 100u << 8 | 200u << 16);
    showSpotColour(colour);
    EXPECT_EQ(textIn(Field::Red), "50");
    EXPECT_EQ(textIn(Field::Green), "100");
    EXPECT_EQ(textIn(Field::Blue), "200");
}

} // namespace
