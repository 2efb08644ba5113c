// Background by the median, the blob by flooding.
#include "calibration/spot_centroid.h"

#include "platform/text_format.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <vector>

namespace {

constexpr uint8_t saturatedLevel = 250; // grey levels
constexpr size_t leastPixels = 9;
constexpr double leastPeak = 6.0;  // grey levels over the background
constexpr double leastNoise = 0.5; // grey levels of a pixel

struct Brightest { // channel of each pixel
    GreyPicture picture;
    int32_t saturated = 0;
};

Brightest brightest(const uint8_t* pixels, int32_t rowPixels, const PicturePart& part) {
    Brightest made{{part.width, part.height, {}}};
    for (int32_t row = part.bottom; row < part.bottom + part.height; ++row) {
        const uint8_t* at = pixels + (static_cast<size_t>(row) * static_cast<size_t>(rowPixels) +
                                      static_cast<size_t>(part.left)) *
                                         4;
        for (int32_t column = 0; column < part.width; ++column, at += 4) {
            const uint8_t value = std::max({at[0], at[1], at[2]});
            made.picture.at.push_back(value);
            if (value >= saturatedLevel) ++made.saturated;
        }
    }
    return made;
}

float medianOf(std::vector<float> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Each pixel the mean of itself and its eight neighbours; those at the edge as they are.
GreyPicture smoothed(const GreyPicture& picture) {
    GreyPicture out = picture;
    const auto width = static_cast<size_t>(picture.width);
    for (size_t row = 1; row + 1 < static_cast<size_t>(picture.height); ++row)
        for (size_t column = 1; column + 1 < width; ++column) {
            float sum = 0.0f;
            for (size_t r = row - 1; r <= row + 1; ++r)
                for (size_t c = column - 1; c <= column + 1; ++c) sum += picture.at[r * width + c];
            out.at[row * width + column] = sum / 9.0f;
        }
    return out;
}

double columnOf(size_t i, size_t width) {
    return static_cast<double>(i % width);
}

double rowOf(size_t i, size_t width) {
    const size_t row = i / width;
    return static_cast<double>(row);
}

// The largest connected part above a level.
std::vector<size_t> largestBlob(const GreyPicture& picture, double level) {
    std::vector<bool> seen(picture.at.size());
    const auto width = static_cast<size_t>(picture.width);
    std::vector<size_t> largest;
    for (size_t start = 0; start < seen.size(); ++start) {
        if (seen[start] || static_cast<double>(picture.at[start]) <= level) continue;
        std::vector<size_t> blob{start};
        seen[start] = true;
        for (size_t next = 0; next < blob.size(); ++next) {
            const size_t i = blob[next];
            const auto visit = [&](bool there, size_t neighbour) {
                if (!there || seen[neighbour] ||
                    static_cast<double>(picture.at[neighbour]) <= level)
                    return;
                seen[neighbour] = true;
                blob.push_back(neighbour);
            };
            visit(i % width > 0, i - 1);
            visit(i % width + 1 < width, i + 1);
            visit(i >= width, i - width);
            visit(i + width < seen.size(), i + width);
        }
        if (blob.size() > largest.size()) largest = std::move(blob);
    }
    return largest;
}

struct Centroid {
    double column = 0.0, row = 0.0;
    double deviation = 0.0; // of either, by the noise of the pixels
};

// Of the light over `level` in these pixels.
Centroid centroidOf(const GreyPicture& picture, const std::vector<size_t>& blob, double level,
                    double noise) {
    const auto width = static_cast<size_t>(picture.width);
    double sum = 0.0, columns = 0.0, rows = 0.0;
    for (const size_t i : blob) {
        const double light = std::max(0.0, static_cast<double>(picture.at[i]) - level);
        sum += light;
        columns += light * columnOf(i, width);
        rows += light * rowOf(i, width);
    }
    Centroid made{columns / sum, rows / sum};
    double squares = 0.0;
    for (const size_t i : blob)
        squares +=
            std::pow(columnOf(i, width) - made.column, 2) + std::pow(rowOf(i, width) - made.row, 2);
    made.deviation = noise * std::sqrt(squares / 2.0) / sum;
    return made;
}

bool touchesEdge(const GreyPicture& picture, const std::vector<size_t>& blob) {
    const auto width = static_cast<size_t>(picture.width);
    const auto height = static_cast<size_t>(picture.height);
    return std::any_of(blob.begin(), blob.end(), [&](size_t i) {
        return i % width == 0 || i % width == width - 1 || i / width == 0 ||
               i / width == height - 1;
    });
}

} // namespace

SpotFound findSpot(const uint8_t* pixels, int32_t rowPixels, const PicturePart& part) {
    SpotFound spot;
    const Brightest light = brightest(pixels, rowPixels, part);
    const GreyPicture& picture = light.picture;
    spot.saturatedPixels = light.saturated;
    const float background = medianOf(picture.at);
    if (background >= saturatedLevel) {
        spot.refusal = "The picture is overexposed";
        return spot;
    }
    std::vector<float> beside(picture.at.size());
    std::transform(picture.at.begin(), picture.at.end(), beside.begin(),
                   [&](float value) { return std::fabs(value - background); });
    const double noise = std::max(1.48 * static_cast<double>(medianOf(beside)), leastNoise);

    const GreyPicture smooth = smoothed(picture);
    const auto ground = static_cast<double>(background);
    spot.peak = static_cast<double>(*std::max_element(smooth.at.begin(), smooth.at.end())) - ground;
    const auto above = [&](double part_) { return ground + part_ * spot.peak; };
    const std::vector<size_t> blob =
        largestBlob(smooth, std::max(above(0.1), ground + 3.0 * noise));
    if (spot.peak < std::max(leastPeak, 5.0 * noise) || blob.size() < leastPixels) {
        spot.refusal = "There is no laser spot on the picture";
        return spot;
    }
    // The light may have a brighter speck that is no part of the largest blob.
    spot.peak = 0.0;
    for (const size_t i : blob)
        spot.peak = std::max(spot.peak, static_cast<double>(smooth.at[i]) - ground);
    const double low = std::max(above(0.1), ground + 3.0 * noise);
    const Centroid whole = centroidOf(picture, blob, low, noise);
    std::vector<size_t> core;
    for (const size_t i : blob)
        if (static_cast<double>(smooth.at[i]) >= above(0.5)) core.push_back(i);
    const Centroid middle = centroidOf(picture, core, above(0.4), noise);
    spot.place = {part.left + whole.column, part.bottom + whole.row};
    const double lopsided = std::hypot(whole.column - middle.column, whole.row - middle.row) / 2.0;
    spot.uncertaintyPx = std::hypot(whole.deviation, lopsided);
    spot.radiusPx = std::sqrt(static_cast<double>(core.size()) / std::numbers::pi);
    spot.cutByEdge = touchesEdge(picture, blob);
    return spot;
}
