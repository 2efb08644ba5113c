// Makes and reads bitmap files of one size.
#include "camera/picture_file.h"

#include "camera/picture.h"

#include <array>

namespace {

static_assert(2 * thumbnailWidth == smallPictureWidth && 2 * thumbnailHeight == smallPictureHeight);

constexpr size_t pixelCount = size_t{thumbnailWidth} * thumbnailHeight;
constexpr size_t lineBytes = size_t{thumbnailWidth} * 3; // a multiple of 4, as the format wants it
static_assert(lineBytes % 4 == 0);
constexpr size_t headSize = 14 + 40;
constexpr size_t fileSize = headSize + lineBytes * thumbnailHeight;

// BITMAPFILEHEADER and BITMAPINFOHEADER, low bytes first.
std::string head() {
    std::string bytes = "BM";
    const auto put = [&bytes](uint64_t value, int count) {
        for (; count > 0; --count, value >>= 8) bytes += static_cast<char>(value & 255);
    };
    put(fileSize, 4);
    put(0, 4);
    put(headSize, 4);
    put(40, 4);
    put(thumbnailWidth, 4);
    put(thumbnailHeight, 4); // from the bottom
    put(1, 2);
    put(24, 2);
    put(0, 24); // not compressed, no palette
    return bytes;
}

} // namespace

std::vector<uint32_t> thumbnail() {
    const std::vector<uint32_t> half = smallPicture(cameraImage);
    std::vector<uint32_t> small;
    if (half.empty()) return small;
    small.reserve(pixelCount);
    for (size_t y = 0; y < thumbnailHeight; ++y)
        for (size_t x = 0; x < thumbnailWidth; ++x) {
            const uint32_t* const at = &half[2 * y * smallPictureWidth + 2 * x];
            const std::array<uint32_t, 4> four = {at[0], at[1], at[smallPictureWidth],
                                                  at[smallPictureWidth + 1]};
            uint32_t mean = 0;
            for (const int shift : {0, 8, 16}) {
                uint32_t sum = 0;
                for (const uint32_t pixel : four) sum += pixel >> shift & 255;
                mean |= sum / 4 << shift;
            }
            small.push_back(mean);
        }
    return small;
}

std::string bitmapOfThumbnail(const std::vector<uint32_t>& pixels) {
    std::string file = head();
    for (size_t y = thumbnailHeight; y-- > 0;)
        for (size_t x = 0; x < thumbnailWidth; ++x)
            for (const int shift : {0, 8, 16})
                file += static_cast<char>(pixels[y * thumbnailWidth + x] >> shift & 255);
    return file;
}

std::vector<uint32_t> thumbnailOfBitmap(const std::string& file) {
    std::vector<uint32_t> pixels;
    if (file.size() != fileSize || !file.starts_with(head())) return pixels;
    pixels.resize(pixelCount);
    size_t at = headSize;
    for (size_t y = thumbnailHeight; y-- > 0;)
        for (size_t x = 0; x < thumbnailWidth; ++x)
            for (const int shift : {0, 8, 16})
                pixels[y * thumbnailWidth + x] |= uint32_t{static_cast<uint8_t>(file[at++])}
                                                  << shift;
    return pixels;
}
