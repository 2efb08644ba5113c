// Converts raw frames: the work of every frame, so it runs eight cells at a time.
#include "camera/picture.h"

#include "ui/screen.h"

#include <algorithm>
#include <emmintrin.h>
#include <new>

int32_t imageWidth = 1232;
int32_t imageHeight = 1028;
int32_t blueOnly = 0;
CameraImage cameraImage;

CameraImage::CameraImage() {
    spare.reset(new (std::nothrow) uint8_t[byteCount]());
    pixels.reset(new (std::nothrow) uint8_t[byteCount]());
    if (!spare || !pixels) setMainTitle("error in HeapAlloc");
}

namespace {

struct Cell {
    uint8_t red, green1, green2, blue;
};

Cell cellAt(const uint8_t* raw, int32_t index, int32_t width) {
    if (blueOnly) return {0, 0, 0, raw[index + width + 1]};
    return {raw[index], raw[index + width], raw[index + 1], raw[index + width + 1]};
}

void putCell(uint8_t* out, Cell cell) {
    out[0] = cell.blue;
    out[1] = static_cast<uint8_t>((cell.green1 + cell.green2) / 2);
    out[2] = cell.red;
}

// Converts `count` cells of one row pair, a multiple of 8. A little-endian 16-bit load of the upper
// raw row holds red low and green high, of the lower row green low and blue high.
void convertCells(const uint8_t* upper, uint8_t* out, int32_t width, int32_t count, bool blue) {
    const __m128i lowBytes = _mm_set1_epi16(0x00FF);
    const __m128i unwritten = _mm_set1_epi32(static_cast<int>(0xFF000000));
    const __m128i keptUpper = blue ? _mm_setzero_si128() : _mm_set1_epi8(-1);
    const __m128i keptLower = blue ? _mm_set1_epi16(static_cast<short>(0xFF00)) : keptUpper;
    for (int32_t cell = 0; cell < count; cell += 8) {
        const __m128i top = _mm_and_si128(
            keptUpper, _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper + 2 * cell)));
        const __m128i bottom = _mm_and_si128(
            keptLower, _mm_loadu_si128(reinterpret_cast<const __m128i*>(upper + width + 2 * cell)));
        const __m128i green = _mm_srli_epi16(
            _mm_add_epi16(_mm_srli_epi16(top, 8), _mm_and_si128(bottom, lowBytes)), 1);
        const __m128i greenBlue = _mm_or_si128(_mm_slli_epi16(green, 8), _mm_srli_epi16(bottom, 8));
        const __m128i red = _mm_and_si128(top, lowBytes);
        auto* pixels = reinterpret_cast<__m128i*>(out + 4 * cell);
        const __m128i kept0 = _mm_and_si128(_mm_loadu_si128(pixels), unwritten);
        const __m128i kept1 = _mm_and_si128(_mm_loadu_si128(pixels + 1), unwritten);
        _mm_storeu_si128(pixels, _mm_or_si128(_mm_unpacklo_epi16(greenBlue, red), kept0));
        _mm_storeu_si128(pixels + 1, _mm_or_si128(_mm_unpackhi_epi16(greenBlue, red), kept1));
    }
}

} // namespace

void convertBayerFrame(const CameraImage& image, const uint8_t* raw, uint8_t* out) {
    const int32_t width = image.width;
    const int32_t height = image.height;
    // The sensor's corner is cut off here on purpose: cells from this index on show its colour.
    const int32_t lastSource = (height - 2) * (width - 2);
    const int32_t lastTarget = height * width - 4;
    for (int32_t y = 0; y < height; y += 2) {
        const int32_t rowSource = y * width;
        const int32_t rowTarget = (height - y - 2) * width;
        const int32_t whole = std::clamp((lastSource - rowSource) / 2, 0, width / 2) / 8 * 8;
        convertCells(raw + rowSource, out + rowTarget, width, whole, blueOnly != 0);
        for (int32_t x = 2 * whole; x < width; x += 2) {
            const int32_t source = std::min(rowSource + x, lastSource);
            const int32_t target = std::min(rowTarget + 2 * x, lastTarget);
            putCell(out + target, cellAt(raw, source, width));
        }
    }
}

namespace {

size_t pixelOffset(int32_t x, int32_t y) {
    x = std::clamp(x, 0, imageWidth - 1);
    y = std::clamp(y, 0, imageHeight - 1);
    return (static_cast<size_t>(imageWidth) * static_cast<size_t>(y) + static_cast<size_t>(x)) * 4;
}

} // namespace

uint32_t pixelBlue(const CameraImage& image, int32_t x, int32_t y) {
    return image.pixels[pixelOffset(x, y)];
}

uint32_t pixelGreen(const CameraImage& image, int32_t x, int32_t y) {
    return image.pixels[pixelOffset(x, y) + 1];
}

uint32_t pixelRed(const CameraImage& image, int32_t x, int32_t y) {
    return image.pixels[pixelOffset(x, y) + 2];
}
