// The fast Fourier transform of what has a power of two of elements, in one and two dimensions.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

using Complex = std::complex<double>;

// std::complex's own product looks for infinities.
inline Complex times(Complex a, Complex b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

enum class Transform { Forward, Back };

// A square of side x side values, row by row.
struct Spectrum {
    size_t side = 0;
    std::vector<Complex> at;
};

// For squares of one side, a power of two from 2 on.
class FourierTransform {
public:
    explicit FourierTransform(size_t side);

    // In place, a line of `side` values. Forward: X[k] = sum of x[n] exp(-2 pi i k n / side); Back
    // with the other sign, and without the division by `side`.
    void line(Complex* values, Transform way) const;

    // In place, rows and columns. Back after Forward gives side x side times what it was.
    void square(Spectrum& values, Transform way) const;

    // Of a real picture, side x side.
    Spectrum ofReal(const std::vector<float>& picture) const;

private:
    size_t side;
    std::vector<size_t> reversed; // by its bits, of each index
    std::vector<Complex> turns;   // exp(-2 pi i k / side) for the first half of k
};

// What the k-th of `side` frequencies is in cycles a sample, -1/2 to below 1/2.
inline double frequencyOf(size_t k, size_t side) {
    const auto signedK = static_cast<double>(k);
    const auto n = static_cast<double>(side);
    return (k < side / 2 ? signedK : signedK - n) / n;
}
