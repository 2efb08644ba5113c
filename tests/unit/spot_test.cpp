// The colour at the laser spot.
#include "camera/picture.h"
#include "camera/spot.h"
#include "tests/doubles/doubles.h"

namespace {

using SpotTest = LabTest;

void paint(int x, int y, uint8_t value) {
    uint8_t* at = &cameraImage.pixels[(static_cast<size_t>(y) * 1232 + static_cast<size_t>(x)) * 4];
    at[0] = value;
    at[1] = value / 2;
    at[2] = value / 5;
}

TEST_F(SpotTest, SquareIsHalfOpenStaysInThePictureAndIsShown) {
    // A single pixel of 250 shows by its share of the mean how many pixels a square has.
    const struct {
        PicturePoint spot;
        int32_t r;
        int inX, inY, outX, outY; // pixels just inside and just outside the square
        Colour mean;
    } cases[] = {
        {{600, 500}, 5, 595, 495, 605, 505, 0x020100}, // 250 / 100
        {{600, 500}, 5, 604, 504, 594, 494, 0x020100},
        {{0, 0}, 5, 4, 4, 5, 5, 0x0A0502},                   // 250 / 25
        {{1231, 1027}, 5, 1226, 1022, 1225, 1021, 0x060301}, // 250 / 36
    };
    for (const auto& each : cases) {
        paint(each.outX, each.outY, 250);
        EXPECT_EQ(sampleSpotColour(each.spot, each.r), 0u) << each.outX;
        paint(each.outX, each.outY, 0);
        paint(each.inX, each.inY, 250);
        EXPECT_EQ(sampleSpotColour(each.spot, each.r), each.mean) << each.inX;
        paint(each.inX, each.inY, 0);
    }
    openBareWindow();
    showSpotColour(cases[2].mean);
    EXPECT_EQ(textIn(Field::Red), "2");
    EXPECT_EQ(textIn(Field::Green), "5");
    EXPECT_EQ(textIn(Field::Blue), "10");
    EXPECT_EQ(sampleSpotColour({600, 500}, 0), 0u);
    EXPECT_EQ(sampleSpotColour({-50, 2000000000}, 2000000000), 0u);
}

} // namespace
