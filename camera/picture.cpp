// Converts raw frames: the work of every frame, so it takes sixteen cells at a time where
// the processor can.
#include "camera/picture.h"
#include "camera/camera.h"

#include <algorithm>
#include <immintrin.h>
#include <new>

CameraImage cameraImage;

CameraImage::CameraImage()
    : spare(new (std::nothrow) uint8_t[byteCount]()),
      pixels(new (std::nothrow) uint8_t[byteCount]()) {}

bool pictureMemoryMissing() {
    return !cameraImage.spare || !cameraImage.pixels;
}

namespace {

struct Cell {
    uint8_t red, green1, green2, blue;
};

Cell cellAt(const uint8_t* raw, int32_t index, int32_t width) {
    if (cameraState.blueOnly) return {0, 0, 0, raw[index + width + 1]};
    return {raw[index], raw[index + width], raw[index + 1], raw[index + width + 1]};
}

void putCell(uint8_t* out, Cell cell) {
    out[0] = cell.blue;
    out[1] = static_cast<uint8_t>((cell.green1 + cell.green2) / 2);
    out[2] = cell.red;
}

constexpr int32_t cellsAtOnce = 16;

bool canConvertAtOnce() {
    static const bool can = __builtin_cpu_supports("avx2");
    return can;
}

__attribute__((target("avx2"))) inline __m256i load(const uint8_t* bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
}

// Converts `count` cells of one row pair, a multiple of cellsAtOnce. A little-endian 16-bit load of
// the upper raw row holds red low and green high, of the lower row green low and blue high.
__attribute__((target("avx2"))) void convertAtOnce(const uint8_t* upper, uint8_t* out,
                                                   int32_t width, int32_t count, bool blue) {
    const __m256i lowBytes = _mm256_set1_epi16(0x00FF);
    const __m256i unwritten = _mm256_set1_epi32(static_cast<int>(0xFF000000));
    const __m256i keptUpper = blue ? _mm256_setzero_si256() : _mm256_set1_epi8(-1);
    const __m256i keptLower = blue ? _mm256_set1_epi16(static_cast<short>(0xFF00)) : keptUpper;
    for (int32_t cell = 0; cell < count; cell += cellsAtOnce) {
        // The next row pair and the next row of the picture, which lies before this one: both come
        // from memory, and their rows are too short for the processor to see where they go on.
        __builtin_prefetch(upper + 2 * cell + 2 * width);
        __builtin_prefetch(upper + 2 * cell + 3 * width);
        __builtin_prefetch(out + 4 * cell - 2 * width, 1);
        const __m256i top = _mm256_and_si256(keptUpper, load(upper + 2 * cell));
        const __m256i bottom = _mm256_and_si256(keptLower, load(upper + width + 2 * cell));
        const __m256i green = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_srli_epi16(top, 8), _mm256_and_si256(bottom, lowBytes)), 1);
        const __m256i blueGreen =
            _mm256_or_si256(_mm256_slli_epi16(green, 8), _mm256_srli_epi16(bottom, 8));
        const __m256i red = _mm256_and_si256(top, lowBytes);
        // Interleaving works in halves of a register: pixels 0-3 and 8-11, then 4-7 and 12-15.
        const __m256i outer = _mm256_unpacklo_epi16(blueGreen, red);
        const __m256i inner = _mm256_unpackhi_epi16(blueGreen, red);
        uint8_t* first = out + 4 * cell;
        uint8_t* second = first + 32;
        const __m256i pixels0 = _mm256_permute2x128_si256(outer, inner, 0x20);
        const __m256i pixels1 = _mm256_permute2x128_si256(outer, inner, 0x31);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(first),
                            _mm256_or_si256(pixels0, _mm256_and_si256(load(first), unwritten)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(second),
                            _mm256_or_si256(pixels1, _mm256_and_si256(load(second), unwritten)));
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
        int32_t converted = 0;
        if (canConvertAtOnce()) {
            const int32_t unclamped = std::clamp((lastSource - rowSource) / 2, 0, width / 2);
            converted = unclamped / cellsAtOnce * cellsAtOnce;
            convertAtOnce(raw + rowSource, out + rowTarget, width, converted,
                          cameraState.blueOnly != 0);
        }
        for (int32_t x = 2 * converted; x < width; x += 2) {
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

uint32_t channelAt(const CameraImage& image, size_t offset) {
    return image.pixels ? image.pixels[offset] : 0;
}

} // namespace

uint32_t pixelBlue(const CameraImage& image, int32_t x, int32_t y) {
    return channelAt(image, pixelOffset(x, y));
}

uint32_t pixelGreen(const CameraImage& image, int32_t x, int32_t y) {
    return channelAt(image, pixelOffset(x, y) + 1);
}

uint32_t pixelRed(const CameraImage& image, int32_t x, int32_t y) {
    return channelAt(image, pixelOffset(x, y) + 2);
}

std::vector<uint32_t> smallPicture(const CameraImage& image) {
    std::vector<uint32_t> small;
    if (!image.pixels) return small;
    small.reserve(size_t{smallPictureWidth} * smallPictureHeight);
    const size_t rowBytes = size_t{smallPictureWidth} * 8;
    for (size_t row = smallPictureHeight; row-- > 0;) {
        const uint8_t* pixel = image.pixels.get() + 2 * row * rowBytes;
        for (int32_t x = 0; x < smallPictureWidth; ++x, pixel += 8) {
            const auto mean = [&](size_t channel) {
                return uint32_t{pixel[channel]} + pixel[channel + 4] + pixel[channel + rowBytes] +
                       pixel[channel + rowBytes + 4];
            };
            small.push_back(mean(2) / 4 << 16 | mean(1) / 4 << 8 | mean(0) / 4);
        }
    }
    return small;
}
