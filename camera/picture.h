// The display picture and the conversion of raw frames into it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Display picture size in pixels: half the sensor's 2464 x 2056 in each direction.
constexpr int32_t imageWidth = 1232;
constexpr int32_t imageHeight = 1028;
constexpr size_t displayPixelCount = 1232 * 1028;

// Whether a click at a pixel, counted from the top or from the bottom, is one on the picture: one
// pixel past either end still counts.
inline bool inPicture(int x, int y) {
    return x >= 0 && x <= imageWidth && y >= 0 && y <= imageHeight;
}

// Which colours the upper left cell of a raw frame has, first its upper row: BayerRG8 and so on.
enum class Mosaic { RG, GR, GB, BG, Grey };

// A part of the display picture, pixels; rows from the bottom.
struct PictureArea {
    int32_t left = 0, bottom = 0, width = imageWidth, height = imageHeight;
    bool operator==(const PictureArea&) const = default;
};

struct CameraImage {
    CameraImage();

    uint64_t byteCount = displayPixelCount * 4; // of the picture, and of one raw frame
    std::unique_ptr<uint8_t[]> spare; // a second block of the picture's size, zero at start
    // Blue, green, red and a byte that is never written; rows bottom-up.
    std::unique_ptr<uint8_t[]> pixels;
    int32_t width = 2464; // raw frame, pixels
    int32_t height = 2056;
    Mosaic mosaic = Mosaic::RG;
    PictureArea seen; // what of the picture the camera sees; the rest is black
    // As clicks count: one pixel past either end, too.
    bool sees(int32_t x, int32_t y) const {
        return x >= seen.left && x <= seen.left + seen.width && y >= seen.bottom &&
               y <= seen.bottom + seen.height;
    }
};

// Raw frames are so large from now on, 2 x 2 up to 2464 x 2056 pixels: a smaller one stands in the
// middle of a black picture.
void shapeFrames(CameraImage& image, int32_t width, int32_t height, Mosaic mosaic);

extern CameraImage cameraImage;

// True when there was no memory for a block: then there is no picture, and all else works.
bool pictureMemoryMissing();

// Makes one display pixel of every 2 x 2 cell of a raw frame of `width` x `height` bytes, rows
// top-down: of its colours, or of grey pixels their mean. `out` is the picture, bottom-up; its
// fourth bytes stay as they are.
void convertBayerFrame(const CameraImage& image, const uint8_t* raw, uint8_t* out);

// The display picture at half its size, each pixel the mean of four: top-down, 0x00RRGGBB. Empty
// without picture memory.
constexpr int32_t smallPictureWidth = 616, smallPictureHeight = 514;
std::vector<uint32_t> smallPicture(const CameraImage& image);

// One channel of a display pixel, row counted from the bottom; positions outside the picture give
// its edge.
uint32_t pixelRed(const CameraImage& image, int32_t x, int32_t y);
uint32_t pixelGreen(const CameraImage& image, int32_t x, int32_t y);
uint32_t pixelBlue(const CameraImage& image, int32_t x, int32_t y);

struct PicturePoint {
    int32_t x = 0; // display column
    int32_t y = 0; // display row, counted from the bottom
};
