// Smooths the sample's picture: means of cells that lie fixed on the sample, weighted by a
// Gaussian, with straight lines from one to the next.
#include "virtual_lab/defocus.h"

#include "virtual_lab/lab.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

constexpr int pictureWidth = labRawWidth / 2, pictureHeight = labRawHeight / 2;
constexpr int channels = 3;

// Cells that pixels 0..count - 1 lie between the middles of.
static int cellsAcross(int count, int side) {
    return (count - 1) / side + 2 + 1;
}

// The last cell whose middle lies at or before a pixel's.
static int cellBefore(int pixel, int doublings) {
    return (2 * pixel + 1 - (1 << doublings)) >> (doublings + 1);
}

// How far the pixel is from that cell's middle, in cells.
static float wayFrom(int cell, int pixel, int doublings) {
    const int side = 1 << doublings;
    return static_cast<float>(2 * (pixel - cell * side) + 1 - side) / static_cast<float>(2 * side);
}

static void addCell(std::vector<float>& grid, int column, int row, int side) {
    constexpr int mostSamplesAcross = 8;
    const int across = std::min(side / 2, mostSamplesAcross);
    auto um = [&](int cell, int sample) {
        return ((cell + (sample + 0.5) / across) * side - 0.5) * labUmPerPixel;
    };
    Rgb sum;
    for (int y = 0; y < across; ++y) {
        for (int x = 0; x < across; ++x) {
            Rgb colour = textureAt(um(column, x), um(row, y));
            sum.red += colour.red;
            sum.green += colour.green;
            sum.blue += colour.blue;
        }
    }
    for (double channel : {sum.red, sum.green, sum.blue})
        grid.push_back(static_cast<float>(channel * 255 / (across * across)));
}

// An odd number of weights, their sum 1.
static std::vector<float> gaussian(double sigma) {
    const int reach = static_cast<int>(std::ceil(3 * sigma));
    std::vector<double> weights;
    double sum = 0;
    for (int i = -reach; i <= reach; ++i)
        sum += weights.emplace_back(std::exp(-i * i / (2 * sigma * sigma)));
    std::vector<float> kernel;
    for (double weight : weights) kernel.push_back(static_cast<float>(weight / sum));
    return kernel;
}

// Every value becomes the weighted sum of itself and of those after it, `step` apart; the last
// ones, which have too few after them, fall away. No sanitizer's checks in the inner loops here and
// below: they run a million times for a frame.
__attribute__((no_sanitize("address", "undefined"))) static void
smooth(std::vector<float>& values, const std::vector<float>& kernel, int step) {
    const size_t stepOver = static_cast<size_t>(step);
    std::vector<float> sums(values.size() - (kernel.size() - 1) * stepOver);
    const size_t count = sums.size();
    const float* from = values.data();
    float* __restrict out = sums.data();
    for (float weight : kernel) {
        for (size_t i = 0; i < count; ++i) out[i] += weight * from[i];
        from += stepOver;
    }
    values.swap(sums);
}

void defocusSample(DefocusedSample& sample, int left, int bottom, double sigma) {
    if (sample.left == left && sample.bottom == bottom && sample.sigma == sigma) return;
    const int doublings = std::max(1, static_cast<int>(std::floor(std::log2(sigma))));
    const int side = 1 << doublings;
    // The means and the lines between them smooth, too: together as a Gaussian of half a cell.
    const double inCells = sigma / side;
    const std::vector<float> kernel = gaussian(std::sqrt(std::max(inCells * inCells - 0.25, 0.01)));
    const int reach = static_cast<int>(kernel.size()) / 2;

    sample = {left, bottom, sigma, doublings, cellsAcross(pictureWidth, side) + 2 * reach, {}};
    const int rows = cellsAcross(pictureHeight, side) + 2 * reach;
    const int firstColumn = cellBefore(left, doublings) - reach;
    const int firstRow = cellBefore(bottom, doublings) - reach;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < sample.stride; ++column)
            addCell(sample.grid, firstColumn + column, firstRow + row, side);
    smooth(sample.grid, kernel, channels);
    smooth(sample.grid, kernel, channels * sample.stride);
}

__attribute__((no_sanitize("address", "undefined"))) void
defocusedRow(const DefocusedSample& sample, int row, uint8_t* upper, uint8_t* lower) {
    const int firstRow = cellBefore(sample.bottom, sample.doublings);
    const int firstColumn = cellBefore(sample.left, sample.doublings);
    const int cellRow = cellBefore(sample.bottom + row, sample.doublings);
    const float up = wayFrom(cellRow, sample.bottom + row, sample.doublings);
    const float* below = sample.grid.data() + channels * sample.stride * (cellRow - firstRow);
    const float* above = below + channels * sample.stride;
    // Half a grey level, so that cutting off rounds.
    float line[channels * (pictureWidth / 2 + 3)];
    const int cells = cellsAcross(pictureWidth, 1 << sample.doublings);
    for (int i = 0; i < channels * cells; ++i)
        line[i] = below[i] + up * (above[i] - below[i]) + 0.5f;
    for (int column = 0; column < pictureWidth; ++column) {
        const int pixel = sample.left + column;
        const int cell = cellBefore(pixel, sample.doublings);
        const float across = wayFrom(cell, pixel, sample.doublings);
        const float* at = line + channels * (cell - firstColumn);
        auto level = [&](int channel) {
            return static_cast<uint8_t>(at[channel] +
                                        across * (at[channel + channels] - at[channel]));
        };
        upper[2 * column] = level(0);
        upper[2 * column + 1] = lower[2 * column] = level(1);
        lower[2 * column + 1] = level(2);
    }
}
