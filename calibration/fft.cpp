// Decimation in time over a table of turns.
#include "calibration/fft.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numbers>
#include <utility>

namespace {

// In blocks that stay in the cache.
void transpose(Spectrum& values) {
    constexpr size_t block = 16;
    const size_t n = values.side;
    for (size_t top = 0; top < n; top += block)
        for (size_t left = top; left < n; left += block)
            for (size_t row = top; row < std::min(top + block, n); ++row)
                for (size_t column = std::max(left, row + 1); column < std::min(left + block, n);
                     ++column)
                    std::swap(values.at[row * n + column], values.at[column * n + row]);
}

} // namespace

FourierTransform::FourierTransform(size_t ofSide)
    : side(ofSide), reversed(ofSide), turns(ofSide / 2) {
    assert(side >= 2 && (side & (side - 1)) == 0);
    for (size_t i = 0; i < side; ++i)
        reversed[i] = reversed[i / 2] / 2 + (i % 2 != 0 ? side / 2 : 0);
    for (size_t k = 0; k < turns.size(); ++k)
        turns[k] = std::polar(1.0, -2.0 * std::numbers::pi * static_cast<double>(k) /
                                       static_cast<double>(side));
}

void FourierTransform::line(Complex* values, Transform way) const {
    for (size_t i = 0; i < side; ++i)
        if (i < reversed[i]) std::swap(values[i], values[reversed[i]]);
    for (size_t half = 1; half < side; half *= 2) {
        const size_t stride = side / (2 * half);
        for (size_t start = 0; start < side; start += 2 * half)
            for (size_t k = 0; k < half; ++k) {
                const Complex turn = turns[k * stride];
                Complex& low = values[start + k];
                Complex& high = values[start + k + half];
                const Complex part = times(high, way == Transform::Forward ? turn : conj(turn));
                high = low - part;
                low += part;
            }
    }
}

void FourierTransform::square(Spectrum& values, Transform way) const {
    assert(values.side == side);
    for (int dimension = 0; dimension < 2; ++dimension) {
        for (size_t row = 0; row < side; ++row) line(&values.at[row * side], way);
        transpose(values);
    }
}

Spectrum FourierTransform::ofReal(const std::vector<float>& picture) const {
    assert(picture.size() == side * side);
    Spectrum values{side, {picture.begin(), picture.end()}};
    square(values, Transform::Forward);
    return values;
}
