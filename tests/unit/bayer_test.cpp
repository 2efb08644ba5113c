// The conversion of raw frames and the readers of the picture.
#include "camera/camera.h"
#include "camera/picture.h"
#include "tests/doubles/doubles.h"

#include <random>
#include <string>
#include <vector>

namespace {

using BayerTest = LabTest;

// The rule as it is written down, one cell after another.
void convertPlainly(const std::vector<uint8_t>& raw, std::vector<uint8_t>& out, int width,
                    int height) {
    for (int y = 0; y < height; y += 2) {
        for (int x = 0; x < width; x += 2) {
            int source = x + y * width;
            if (source >= (height - 2) * (width - 2)) source = (height - 2) * (width - 2);
            const auto at = [&](int index) { return raw[static_cast<size_t>(index)]; };
            const int red = cameraState.blueOnly ? 0 : at(source);
            const int green1 = cameraState.blueOnly ? 0 : at(source + width);
            const int green2 = cameraState.blueOnly ? 0 : at(source + 1);
            int target = (height - y - 2) * width + 2 * x;
            if (target + 4 >= height * width) target = height * width - 4;
            const auto to = static_cast<size_t>(target);
            out[to] = at(source + width + 1);
            out[to + 1] = static_cast<uint8_t>((green1 + green2) / 2);
            out[to + 2] = static_cast<uint8_t>(red);
        }
    }
}

TEST_F(BayerTest, EqualsTheRuleOnEveryByte) {
    std::minstd_rand random(1);
    std::vector<uint8_t> raw(cameraImage.byteCount);
    for (uint8_t& byte : raw) byte = static_cast<uint8_t>(random() >> 8);
    for (const int32_t blue : {0, 1}) {
        cameraState.blueOnly = blue;
        std::vector<uint8_t> expected(raw.size(), 0xA5); // shows what is written and what is not
        std::vector<uint8_t> converted = expected;
        convertPlainly(raw, expected, cameraImage.width, cameraImage.height);
        convertBayerFrame(cameraImage, raw.data(), converted.data());
        EXPECT_TRUE(converted == expected) << "blue only: " << blue;
    }
}

// The colours of a cell, its upper row first; W is a pixel without a filter. What the mean of those
// pixels of a cell is that have a colour is worked out from these letters alone.
struct Order {
    Mosaic mosaic;
    const char* cell;
};

int meanOf(const std::vector<uint8_t>& raw, int width, int x, int y, const char* cell,
           char colour) {
    int sum = 0, count = 0;
    for (int i = 0; i < 4; ++i) {
        if (cell[i] != colour && cell[i] != 'W') continue;
        sum += raw[static_cast<size_t>((y + i / 2) * width + x + i % 2)];
        ++count;
    }
    return sum / count;
}

// Pictures smaller than the display's stand in its middle, an odd last row or column is left out,
// and no byte beside that is written: neither a fourth one nor one of the black frame.
TEST_F(BayerTest, EveryOrderAndSizeGivesItsColoursInTheMiddle) {
    constexpr Order orders[] = {{Mosaic::RG, "RGGB"},
                                {Mosaic::GR, "GRBG"},
                                {Mosaic::GB, "GBRG"},
                                {Mosaic::BG, "BGGR"},
                                {Mosaic::Grey, "WWWW"}};
    constexpr int sizes[][2] = {{2464, 2056}, {641, 483}, {34, 2056}, {2464, 2}};
    std::minstd_rand random(2);
    for (const auto& [mosaic, cell] : orders)
        for (const auto& [width, height] : sizes)
            for (const int32_t blue : {0, 1}) {
                // The corner of a whole RG frame has its own rule, above.
                if (mosaic == Mosaic::RG && width == 2464 && height == 2056) continue;
                SCOPED_TRACE(std::string(cell) + " " + std::to_string(width) + "x" +
                             std::to_string(height) + (blue ? " blue" : ""));
                cameraState.blueOnly = blue;
                shapeFrames(cameraImage, width, height, mosaic);
                std::vector<uint8_t> raw(static_cast<size_t>(width * height));
                for (uint8_t& byte : raw) byte = static_cast<uint8_t>(random() >> 8);
                std::vector<uint8_t> expected(cameraImage.byteCount, 0xA5), made = expected;
                for (int y = 0; y + 1 < height; y += 2)
                    for (int x = 0; x + 1 < width; x += 2) {
                        const int column = (1232 - width / 2) / 2 + x / 2;
                        const int row = (1028 - height / 2) / 2 + height / 2 - 1 - y / 2;
                        uint8_t* pixel = &expected[static_cast<size_t>(4 * (row * 1232 + column))];
                        for (const char colour : {'B', 'G', 'R'}) {
                            const bool shown = !blue || colour == 'B' || mosaic == Mosaic::Grey;
                            *pixel++ = static_cast<uint8_t>(
                                shown ? meanOf(raw, width, x, y, cell, colour) : 0);
                        }
                    }
                convertBayerFrame(cameraImage, raw.data(), made.data());
                EXPECT_TRUE(made == expected);
            }
}

TEST_F(BayerTest, ReadersClampToThePicture) {
    const struct {
        int x, y, shownX, shownY;
        uint8_t blue;
    } cases[] = {{-5, -1, 0, 0, 1}, {5000, 1028, 1231, 1027, 4}, {10, 20, 10, 20, 7}};
    for (const auto& each : cases) {
        uint8_t* shown =
            &cameraImage.pixels[size_t{4} * static_cast<size_t>(each.shownY * 1232 + each.shownX)];
        for (uint8_t channel = 0; channel < 3; channel++)
            shown[channel] = static_cast<uint8_t>(each.blue + channel);
        EXPECT_EQ(pixelBlue(cameraImage, each.x, each.y), each.blue);
        EXPECT_EQ(pixelGreen(cameraImage, each.x, each.y), each.blue + 1u);
        EXPECT_EQ(pixelRed(cameraImage, each.x, each.y), each.blue + 2u);
    }
}

} // namespace
