// Phase correlation, coarse by the inverse transform and fine by Newton's method.
#include "calibration/phase_correlation.h"

#include "calibration/fft.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <memory>
#include <numbers>
#include <numeric>
#include <utility>

namespace {

constexpr int32_t largestWindow = 512, smallestWindow = 64; // pixels

// Above this quality a peak is none of noise: among 512 x 512 values of noise the highest is at 5.
constexpr double leastQuality = 8.0;

// Edges that all run the same way have another peak nearly as high beside it.
constexpr double mostSecond = 0.75;

// The correlation's weights over the frequencies, cycles a pixel: what is finer than a pixel or two
// is mostly noise; what is as wide as the window is light and shadow.
constexpr double weightSigma = 0.2;
constexpr double leastCyclesInWindow = 3.0;
constexpr double mostOverNoise = 300.0; // so many times the noise tells no more
constexpr double noiseFactor = 8.0;     // so many times the noise a frequency counts for a quarter

constexpr float saturated = 250.0f; // grey levels

struct Window {
    int32_t left = 0, bottom = 0, side = 0;
};

struct WindowPair {
    Window before, after;
};

struct Offset {
    int32_t columns = 0, rows = 0;
};

Offset rounded(PixelVector px) {
    return {static_cast<int32_t>(std::lround(px.columns)),
            static_cast<int32_t>(std::lround(px.rows))};
}

int32_t powerOfTwoIn(int32_t pixels) {
    int32_t side = largestWindow;
    while (side > pixels) side /= 2;
    return side;
}

// So that what the first shows lies, moved by `offset`, in the second; of side 0 where the picture
// is too small for that.
WindowPair windowsFor(const GreyPicture& picture, Offset offset) {
    const int32_t room =
        std::min(picture.width - std::abs(offset.columns), picture.height - std::abs(offset.rows));
    if (room < smallestWindow) return {};
    const int32_t side = powerOfTwoIn(room);
    // Both within the picture, as far from its middle as each other.
    const auto place = [&](int32_t size, int32_t by) {
        return std::clamp((size - side - by) / 2, std::max(0, -by),
                          std::min(size - side, size - side - by));
    };
    const Window before{place(picture.width, offset.columns), place(picture.height, offset.rows),
                        side};
    return {before, {before.left + offset.columns, before.bottom + offset.rows, side}};
}

float meanOf(const GreyPicture& picture) {
    const double sum = std::accumulate(picture.at.begin(), picture.at.end(), 0.0);
    return static_cast<float>(sum / static_cast<double>(picture.at.size()));
}

// 1, but for an eighth at either end, where it comes up from 0.
const std::vector<float>& taper(size_t side) {
    static std::vector<float> made;
    if (made.size() == side) return made;
    made.assign(side, 1.0f);
    const size_t edge = side / 8;
    for (size_t i = 0; i < edge; ++i) {
        const double turn = (static_cast<double>(i) + 0.5) / static_cast<double>(edge);
        made[i] = made[side - 1 - i] =
            static_cast<float>(0.5 - 0.5 * std::cos(std::numbers::pi * turn));
    }
    return made;
}

// The window of the picture less `factor` times what it shows of another, without its mean, faded
// towards its edges.
std::vector<float> cut(const GreyPicture& picture, const Window& window, float factor = 0.0f,
                       const GreyPicture* less = nullptr) {
    const auto side = static_cast<size_t>(window.side);
    const std::vector<float>& fade = taper(side);
    std::vector<float> out(side * side);
    for (size_t row = 0; row < side; ++row) {
        const size_t from =
            (static_cast<size_t>(window.bottom) + row) * static_cast<size_t>(picture.width) +
            static_cast<size_t>(window.left);
        for (size_t column = 0; column < side; ++column)
            out[row * side + column] =
                picture.at[from + column] - (less ? factor * less->at[from + column] : 0.0f);
    }
    double sum = 0.0, weights = 0.0;
    for (size_t i = 0; i < out.size(); ++i) {
        const float weight = fade[i / side] * fade[i % side];
        sum += static_cast<double>(out[i] * weight);
        weights += static_cast<double>(weight);
    }
    const auto mean = static_cast<float>(sum / weights);
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = (out[i] - mean) * fade[i / side] * fade[i % side];
    return out;
}

const FourierTransform& transformOf(size_t side) {
    static std::unique_ptr<FourierTransform> made;
    static size_t madeFor = 0;
    if (madeFor != side) made = std::make_unique<FourierTransform>(side);
    madeFor = side;
    return *made;
}

// What of the finest structure, where there is little but noise, is in a spectrum: power.
double noisePower(const Spectrum& spectrum) {
    double sum = 0.0;
    size_t count = 0;
    const size_t n = spectrum.side;
    for (size_t row = n / 2 - n / 10; row < n / 2 + n / 10; ++row)
        for (size_t column = n / 2 - n / 10; column < n / 2 + n / 10; ++column, ++count)
            sum += std::norm(spectrum.at[row * n + column]);
    return sum / static_cast<double>(count);
}

// Of the two windows. Where the sample has moved `difference` is the second one less the whole
// first picture there: what stands still is not in it, what moves is in it twice.
struct WindowSpectra {
    Spectrum before, after, difference;
    double noise = 0.0; // power
};

WindowSpectra spectraOf(const GreyPicture& before, const GreyPicture& after,
                        const WindowPair& windows, bool hasMoved) {
    const FourierTransform& transform = transformOf(static_cast<size_t>(windows.before.side));
    WindowSpectra made{.before = transform.ofReal(cut(before, windows.before)),
                       .after = transform.ofReal(cut(after, windows.after))};
    made.noise = std::sqrt(noisePower(made.before) * noisePower(made.after));
    const float brighter = meanOf(after) / std::max(meanOf(before), 1.0f);
    if (hasMoved) made.difference = transform.ofReal(cut(after, windows.after, brighter, &before));
    return made;
}

enum class Fineness { Coarse, Fine };

// What the frequencies of a window count for, whatever is seen.
const std::vector<double>& frequencyWeights(size_t n) {
    static std::vector<double> made;
    if (made.size() == n * n) return made;
    made.assign(n * n, 0.0);
    for (size_t row = 0; row < n; ++row)
        for (size_t column = 0; column < n; ++column) {
            const double k = std::hypot(frequencyOf(row, n), frequencyOf(column, n));
            if (k * static_cast<double>(n) >= leastCyclesInWindow)
                made[row * n + column] = std::exp(-k * k / (2.0 * weightSigma * weightSigma));
        }
    return made;
}

// The weighted phases: their inverse transform is the correlation. The coarse search wants a sharp
// peak, and what stands still out of the way; the fine one, in windows that show the same, asks how
// much each frequency can tell.
Spectrum phases(const WindowSpectra& spectra, Fineness fineness) {
    const bool coarse = fineness == Fineness::Coarse;
    const std::vector<double>& weights = frequencyWeights(spectra.before.side);
    const double noise = std::max(spectra.noise, 1e-9);
    Spectrum product = coarse && spectra.difference.side != 0 ? spectra.difference : spectra.after;
    for (size_t i = 0; i < weights.size(); ++i) {
        const double power = std::max(
            std::sqrt(std::norm(spectra.before.at[i]) * std::norm(spectra.after.at[i])), 1e-9);
        const double structure = power / (power + noiseFactor * noise);
        double weight = structure * structure * weights[i];
        if (!coarse) weight *= std::min(power / noise, mostOverNoise);
        product.at[i] = times(product.at[i], conj(spectra.before.at[i]) * (weight / power));
    }
    return product;
}

struct Peak {
    Offset at;
    double height = 0.0;
    double quality = 0.0;
    double second = 0.0; // of what was searched, some pixels away, in parts of the highest
};

int32_t unwrapped(size_t index, size_t side) {
    return static_cast<int32_t>(index) - (index < side / 2 ? 0 : static_cast<int32_t>(side));
}

// The highest place of the correlation within so many pixels of `about`.
Peak highest(Spectrum correlation, PixelVector about, double within) {
    const size_t n = correlation.side;
    transformOf(n).square(correlation, Transform::Back);
    Peak peak{.height = -1.0};
    double squares = 0.0;
    for (size_t i = 0; i < n * n; ++i) {
        const double value = correlation.at[i].real();
        squares += value * value;
        if (value <= peak.height) continue;
        const Offset at{unwrapped(i % n, n), unwrapped(i / n, n)};
        if (std::hypot(at.columns - about.columns, at.rows - about.rows) > within) continue;
        peak.at = at;
        peak.height = value;
    }
    // The rest of it is what lies some pixels away.
    constexpr int32_t near = 5;
    auto count = static_cast<double>(n * n);
    for (int32_t y = -near; y <= near; ++y)
        for (int32_t x = -near; x <= near; ++x) {
            const size_t row = static_cast<size_t>(peak.at.rows + y) & (n - 1);
            const size_t column = static_cast<size_t>(peak.at.columns + x) & (n - 1);
            const double value = correlation.at[row * n + column].real();
            squares -= value * value;
            count -= 1.0;
        }
    double second = 0.0;
    for (size_t i = 0; i < n * n; ++i) {
        const double value = correlation.at[i].real();
        if (value <= second) continue;
        const Offset at{unwrapped(i % n, n), unwrapped(i / n, n)};
        const double away = std::hypot(at.columns - peak.at.columns, at.rows - peak.at.rows);
        if (away <= near || std::hypot(at.columns - about.columns, at.rows - about.rows) > within)
            continue;
        second = value;
    }
    peak.second = peak.height > 0.0 ? second / peak.height : 1.0;
    const double rest = std::sqrt(std::max(squares, 0.0) / count);
    peak.quality = rest > 0.0 ? peak.height / rest : 0.0;
    return peak;
}

// Slopes and curvatures of the correlation at a place between the pixels.
struct Slopes {
    double x = 0.0, y = 0.0, xx = 0.0, xy = 0.0, yy = 0.0;
};

Slopes slopesAt(const Spectrum& product, PixelVector at) {
    const size_t n = product.side;
    constexpr double turn = 2.0 * std::numbers::pi;
    std::vector<Complex> columns(n);
    for (size_t k = 0; k < n; ++k)
        columns[k] = std::polar(1.0, turn * frequencyOf(k, n) * at.columns);
    Slopes sums;
    // Of a real correlation the other half of the rows says the same once more.
    for (size_t row = 0; row <= n / 2; ++row) {
        Complex plain, byU, byUu;
        for (size_t column = 0; column < n; ++column) {
            const Complex part = times(product.at[row * n + column], columns[column]);
            const double u = turn * frequencyOf(column, n);
            plain += part;
            byU += part * u;
            byUu += part * (u * u);
        }
        const double v = turn * frequencyOf(row, n);
        const Complex phase = std::polar(row == 0 || row == n / 2 ? 1.0 : 2.0, v * at.rows);
        sums.x -= times(byU, phase).imag();
        sums.y -= v * times(plain, phase).imag();
        sums.xx -= times(byUu, phase).real();
        sums.xy -= v * times(byU, phase).real();
        sums.yy -= v * v * times(plain, phase).real();
    }
    return sums;
}

// The top of the correlation beside its highest pixel.
PixelVector refined(const Spectrum& product, Offset start) {
    PixelVector at{static_cast<double>(start.columns), static_cast<double>(start.rows)};
    for (int i = 0; i < 10; ++i) {
        const Slopes s = slopesAt(product, at);
        const double determinant = s.xx * s.yy - s.xy * s.xy;
        if (s.xx >= 0.0 || determinant <= 0.0) break; // no top here
        const double dx = std::clamp(-(s.yy * s.x - s.xy * s.y) / determinant, -0.5, 0.5);
        const double dy = std::clamp(-(s.xx * s.y - s.xy * s.x) / determinant, -0.5, 0.5);
        at.columns += dx;
        at.rows += dy;
        if (std::hypot(dx, dy) < 1e-4) break;
    }
    return at;
}

PictureShift refused(const std::string& why) {
    return {.refusal = why};
}

} // namespace

GreyPicture greyPicture(const uint8_t* pixels, int32_t rowPixels, const PicturePart& part) {
    GreyPicture picture{part.width, part.height, {}};
    picture.at.reserve(static_cast<size_t>(part.width) * static_cast<size_t>(part.height));
    for (int32_t row = part.bottom; row < part.bottom + part.height; ++row) {
        const uint8_t* at = pixels + (static_cast<size_t>(row) * static_cast<size_t>(rowPixels) +
                                      static_cast<size_t>(part.left)) *
                                         4;
        for (int32_t column = 0; column < part.width; ++column, at += 4)
            picture.at.push_back(static_cast<float>(at[0] + at[1] + at[2]) / 3.0f);
    }
    return picture;
}

std::string whyWithoutStructure(const GreyPicture& picture) {
    if (picture.at.empty()) return "There is no picture";
    constexpr float dark = 4.0f;
    const auto count = static_cast<double>(picture.at.size());
    const auto bright =
        std::count_if(picture.at.begin(), picture.at.end(), [](float v) { return v >= saturated; });
    if (static_cast<double>(bright) > 0.5 * count) return "The picture is overexposed";
    const float mean = meanOf(picture);
    double squares = 0.0;
    for (const float value : picture.at)
        squares += static_cast<double>((value - mean) * (value - mean));
    if (std::sqrt(squares / count) >= 0.3) return mean < dark ? "The picture is dark" : "";
    return mean < dark ? "The picture is dark" : "The picture is plain";
}

GreyPicture withoutWhatStandsStill(const GreyPicture& picture, const GreyPicture& still) {
    const float brighter = meanOf(picture) / std::max(meanOf(still), 1.0f);
    GreyPicture out = picture;
    for (size_t i = 0; i < out.at.size(); ++i) // what is saturated tells nothing
        out.at[i] = still.at[i] >= saturated ? 128.0f : out.at[i] + 128.0f - brighter * still.at[i];
    return out;
}

GreyPicture whatStandsStill(const std::vector<GreyPicture>& pictures) {
    assert(!pictures.empty());
    const float first = std::max(meanOf(pictures.front()), 1.0f);
    std::vector<float> factors(pictures.size());
    std::transform(
        pictures.begin(), pictures.end(), factors.begin(),
        [&](const GreyPicture& picture) { return first / std::max(meanOf(picture), 1.0f); });
    GreyPicture still = pictures.front();
    std::vector<float> values(pictures.size());
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    for (size_t i = 0; i < still.at.size(); ++i) {
        for (size_t k = 0; k < values.size(); ++k) values[k] = pictures[k].at[i] * factors[k];
        std::nth_element(values.begin(), middle, values.end());
        still.at[i] = *middle;
    }
    return still;
}

PictureShift shiftBetween(const GreyPicture& before, const GreyPicture& after,
                          const ShiftSearch& search) {
    assert(before.width == after.width && before.height == after.height);
    for (const GreyPicture* picture : {&before, &after})
        if (std::string why = whyWithoutStructure(*picture); !why.empty()) return refused(why);
    Offset offset = rounded(search.expected);
    PixelVector about{search.expected.columns - offset.columns, search.expected.rows - offset.rows};
    double within = search.within > 0.0 ? search.within : largestWindow;
    PictureShift shift;
    double second = 0.0;
    constexpr int mostRounds = 5;
    for (int round = 0; round < mostRounds; ++round) {
        const WindowPair windows = windowsFor(before, offset);
        if (windows.before.side == 0) return refused("The picture has moved too far");
        const WindowSpectra spectra = spectraOf(before, after, windows, search.hasMoved);
        const Peak peak = highest(phases(spectra, Fineness::Coarse), about, within);
        shift.quality = peak.quality;
        // A weak peak, of windows that do not show the same yet, has noise beside it.
        if (round > 0 || peak.quality >= 2.0 * leastQuality) second = std::max(second, peak.second);
        const PixelVector rest = refined(phases(spectra, Fineness::Fine), peak.at);
        shift.px = {offset.columns + rest.columns, offset.rows + rest.rows};
        const Offset next = rounded(shift.px);
        if (next.columns == offset.columns && next.rows == offset.rows) break;
        offset = next;
        // The same peak, where the windows show the same.
        about = {};
        within = 8.0;
    }
    if (shift.quality >= leastQuality && second <= mostSecond) return shift;
    if (shift.quality >= leastQuality) {
        shift.refusal = "The picture looks the same a little further on";
        return shift;
    }
    shift.refusal = search.hasMoved ? "The picture has no structure that moves with the stage"
                                    : "The picture has no structure that could be followed";
    return shift;
}
