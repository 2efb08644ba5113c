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

template <Mosaic mosaic> Cell cellOf(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    if constexpr (mosaic == Mosaic::RG) return {a, c, b, d};
    if constexpr (mosaic == Mosaic::GR) return {b, a, d, c};
    if constexpr (mosaic == Mosaic::GB) return {c, a, d, b};
    if constexpr (mosaic == Mosaic::BG) return {d, b, c, a};
    const auto mean = static_cast<uint8_t>((a + b + c + d) / 4);
    return {mean, mean, mean, mean};
}

// A grey picture has no blue of its own: it stays whole.
template <Mosaic mosaic> bool showsBlueOnly() {
    return mosaic != Mosaic::Grey && cameraState.blueOnly != 0;
}

template <Mosaic mosaic> Cell cellAt(const uint8_t* raw, int32_t index, int32_t width) {
    const Cell cell =
        cellOf<mosaic>(raw[index], raw[index + 1], raw[index + width], raw[index + width + 1]);
    return showsBlueOnly<mosaic>() ? Cell{0, 0, 0, cell.blue} : cell;
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

__attribute__((target("avx2"))) inline __m256i halfSum(__m256i x, __m256i y) {
    return _mm256_srli_epi16(_mm256_add_epi16(x, y), 1);
}

// Of the two bytes of each 16 bits.
__attribute__((target("avx2"))) inline __m256i pairSums(__m256i bytes) {
    return _mm256_maddubs_epi16(bytes, _mm256_set1_epi8(1));
}

// Four grey pixels, each thrice and a fourth byte of 0, of the 16-bit values that begin at byte
// `first` of each half of a register.
__attribute__((target("avx2"))) inline __m256i thrice(__m256i grey, int first) {
    const auto pixel = [first](int at) {
        return static_cast<int>(0x80000000U) | (first + 2 * at) * 0x010101;
    };
    return _mm256_shuffle_epi8(
        grey, _mm256_broadcastsi128_si256(_mm_setr_epi32(pixel(0), pixel(1), pixel(2), pixel(3))));
}

// Converts `count` cells of one row pair, a multiple of cellsAtOnce. A little-endian 16-bit load of
// a raw row holds the cell's left pixel low and its right one high.
template <Mosaic mosaic>
__attribute__((target("avx2"))) void convertAtOnce(const uint8_t* upper, uint8_t* out,
                                                   int32_t width, int32_t count, bool blue) {
    constexpr int32_t outWidth = 4 * imageWidth; // bytes
    const __m256i lowBytes = _mm256_set1_epi16(0x00FF);
    const __m256i unwritten = _mm256_set1_epi32(static_cast<int>(0xFF000000));
    const __m256i keptOthers = blue ? _mm256_setzero_si256() : _mm256_set1_epi8(-1);
    for (int32_t cell = 0; cell < count; cell += cellsAtOnce) {
        // Two row pairs and two rows of the picture, which lie before this one, ahead: both come
        // from memory, and their rows are too short for the processor to see where they go on. Each
        // line once, in their order in memory: asked for twice it costs a quarter of the time, one
        // row ahead a tenth.
        __builtin_prefetch(upper + 4 * width + 4 * cell);
        __builtin_prefetch(out + 4 * cell - 2 * outWidth, 1);
        const __m256i top = load(upper + 2 * cell);
        const __m256i bottom = load(upper + width + 2 * cell);
        // Interleaving works in halves of a register: pixels 0-3 and 8-11, then 4-7 and 12-15.
        __m256i outer, inner;
        if constexpr (mosaic == Mosaic::Grey) {
            const __m256i sums = _mm256_add_epi16(pairSums(top), pairSums(bottom));
            const __m256i mean = _mm256_srli_epi16(sums, 2);
            outer = thrice(mean, 0);
            inner = thrice(mean, 8);
        } else {
            const __m256i a = _mm256_and_si256(top, lowBytes), b = _mm256_srli_epi16(top, 8);
            const __m256i c = _mm256_and_si256(bottom, lowBytes), d = _mm256_srli_epi16(bottom, 8);
            __m256i red, green, blueLow;
            if constexpr (mosaic == Mosaic::RG) red = a, green = halfSum(b, c), blueLow = d;
            if constexpr (mosaic == Mosaic::GR) red = b, green = halfSum(a, d), blueLow = c;
            if constexpr (mosaic == Mosaic::GB) red = c, green = halfSum(a, d), blueLow = b;
            if constexpr (mosaic == Mosaic::BG) red = d, green = halfSum(b, c), blueLow = a;
            red = _mm256_and_si256(red, keptOthers);
            green = _mm256_and_si256(green, keptOthers);
            const __m256i blueGreen = _mm256_or_si256(_mm256_slli_epi16(green, 8), blueLow);
            outer = _mm256_unpacklo_epi16(blueGreen, red);
            inner = _mm256_unpackhi_epi16(blueGreen, red);
        }
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

template <Mosaic mosaic> void convert(const CameraImage& image, const uint8_t* raw, uint8_t* out) {
    const int32_t width = image.width;
    const PictureArea& seen = image.seen;
    // The sensor's corner is cut off here on purpose: cells of a whole frame as built from this
    // index on show its colour.
    const bool whole = seen == PictureArea() && mosaic == Mosaic::RG;
    const int32_t cutOff = (image.height - 2) * (width - 2);
    for (int32_t row = 0; row < seen.height; ++row) { // from the top
        const int32_t source = 2 * row * width;
        const int32_t above = seen.bottom + seen.height - 1 - row;
        uint8_t* target = out + 4 * (above * imageWidth + seen.left);
        const int32_t sound = whole ? std::clamp((cutOff - source) / 2, 0, seen.width) : seen.width;
        int32_t converted = 0;
        if (canConvertAtOnce()) {
            converted = sound / cellsAtOnce * cellsAtOnce;
            convertAtOnce<mosaic>(raw + source, target, width, converted, showsBlueOnly<mosaic>());
        }
        for (int32_t cell = converted; cell < seen.width; ++cell) {
            const int32_t from = whole ? std::min(source + 2 * cell, cutOff) : source + 2 * cell;
            putCell(target + 4 * cell, cellAt<mosaic>(raw, from, width));
        }
    }
}

} // namespace

void convertBayerFrame(const CameraImage& image, const uint8_t* raw, uint8_t* out) {
    switch (image.mosaic) {
    case Mosaic::RG:
        return convert<Mosaic::RG>(image, raw, out);
    case Mosaic::GR:
        return convert<Mosaic::GR>(image, raw, out);
    case Mosaic::GB:
        return convert<Mosaic::GB>(image, raw, out);
    case Mosaic::BG:
        return convert<Mosaic::BG>(image, raw, out);
    case Mosaic::Grey:
        return convert<Mosaic::Grey>(image, raw, out);
    }
}

void shapeFrames(CameraImage& image, int32_t width, int32_t height, Mosaic mosaic) {
    image.width = width;
    image.height = height;
    image.mosaic = mosaic;
    PictureArea seen;
    seen.width = std::min(width / 2, imageWidth);
    seen.height = std::min(height / 2, imageHeight);
    seen.left = (imageWidth - seen.width) / 2;
    seen.bottom = (imageHeight - seen.height) / 2;
    if (image.seen == seen) return;
    image.seen = seen;
    for (size_t i = 0; image.pixels && i < displayPixelCount; ++i)
        std::fill_n(image.pixels.get() + 4 * i, 3, uint8_t{0});
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
