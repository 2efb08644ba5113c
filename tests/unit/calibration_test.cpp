// The mathematics of the calibrations, on pictures and places whose truth is known.
#include "calibration/fft.h"
#include "calibration/phase_correlation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace {

TEST(CalibrationTest, TheTransformIsItsSumAndComesBack) {
    constexpr size_t n = 8;
    std::mt19937 random(3);
    std::vector<float> picture(n * n);
    for (float& value : picture) value = static_cast<float>(random() % 256);
    const FourierTransform transform(n);
    Spectrum spectrum = transform.ofReal(picture);
    for (size_t v = 0; v < n; ++v)
        for (size_t u = 0; u < n; ++u) {
            Complex sum;
            for (size_t y = 0; y < n; ++y)
                for (size_t x = 0; x < n; ++x)
                    sum += double{picture[y * n + x]} *
                           std::polar(1.0, -2 * std::numbers::pi * double(u * x + v * y) / n);
            EXPECT_LT(std::abs(spectrum.at[v * n + u] - sum), 1e-9) << u << " " << v;
        }
    transform.square(spectrum, Transform::Back);
    for (size_t i = 0; i < n * n; ++i)
        EXPECT_NEAR(spectrum.at[i].real(), double{picture[i]} * n * n, 1e-9);
}

// A sample of smooth blobs, sharp dust on the sensor, a saturated laser spot, noise.
struct Scene {
    int width = 700, height = 600;
    double grey = 90, contrast = 60; // of the blobs
    double exposure = 1, noise = 2;
    bool dust = false, spot = false;

    GreyPicture at(PixelVector shift, unsigned seed) const {
        std::mt19937 fixed(11), random(seed);
        std::normal_distribution<double> gauss;
        std::uniform_real_distribution<double> uniform;
        GreyPicture made{width, height, {}};
        std::vector<double> light(static_cast<size_t>(width * height), grey);
        const auto blob = [&](double x, double y, double sigma, double height_) {
            for (int row = std::max(0, int(y - 4 * sigma));
                 row < std::min(height, int(y + 4 * sigma)); ++row)
                for (int column = std::max(0, int(x - 4 * sigma));
                     column < std::min(width, int(x + 4 * sigma)); ++column)
                    light[size_t(row * width + column)] +=
                        height_ * std::exp(-(std::pow(column - x, 2) + std::pow(row - y, 2)) /
                                           (2 * sigma * sigma));
        };
        for (int i = 0; i < 2500; ++i) {
            const double x = uniform(fixed) * 1400 - 350, y = uniform(fixed) * 1300 - 350;
            const double sigma = 1.2 + 4 * uniform(fixed);
            blob(x + shift.columns, y + shift.rows, sigma, contrast * (uniform(fixed) - 0.4));
        }
        if (spot) blob(350, 300, 9, 900);
        std::mt19937 grains(5);
        for (int i = 0; dust && i < 60; ++i) {
            const int x = int(grains() % 680), y = int(grains() % 580);
            for (int k = 0; k < 400; ++k) light[size_t((y + k / 20) * width + x + k % 20)] *= 0.82;
        }
        for (const double value : light)
            made.at.push_back(float(
                std::clamp(std::round(value * exposure + noise * gauss(random)), 0.0, 255.0)));
        return made;
    }
};

TEST(CalibrationTest, FindsAShiftToATwentiethOfAPixel) {
    const Scene scene, brighter{.exposure = 1.2};
    const GreyPicture before = scene.at({}, 1);
    for (const PixelVector shift : {PixelVector{0, 0},
                                    {0.37, -0.61},
                                    {-12.25, 5.5},
                                    {170.4, -33.3},
                                    {-120.2, 170.7},
                                    {171, 171}}) {
        for (const bool moved : {false, true}) {
            if (moved && std::hypot(shift.columns, shift.rows) < 3) continue;
            const PictureShift found =
                shiftBetween(before, brighter.at(shift, 2), {.hasMoved = moved});
            EXPECT_TRUE(found.isFound()) << found.refusal;
            EXPECT_NEAR(found.px.columns, shift.columns, 0.05);
            EXPECT_NEAR(found.px.rows, shift.rows, 0.05);
        }
    }
}

// A sample under dust and a bright spot, which are the same in all pictures.
TEST(CalibrationTest, WhatStandsStillIsNotTheSample) {
    Scene scene{.contrast = 30, .dust = true, .spot = true};
    const GreyPicture before = scene.at({}, 1);
    std::vector<GreyPicture> all{before};
    const PixelVector shifts[] = {{14.3, -9.8}, {-150.5, 60.25}, {40.4, 0}, {0, 90},
                                  {-60, -60},   {90, -90},       {30, 60},  {-90, 30}};
    for (const PixelVector shift : shifts) {
        scene.exposure = all.size() % 2 != 0 ? 1.01 : 0.99;
        all.push_back(scene.at(shift, unsigned(all.size() + 1)));
    }
    const GreyPicture still = whatStandsStill(all);
    const GreyPicture clean = withoutWhatStandsStill(before, still);
    for (size_t i = 0; i < std::size(shifts); ++i) {
        EXPECT_NEAR(shiftBetween(before, all[i + 1]).px.columns, 0, 0.5) << "not the sample";
        const PictureShift first = shiftBetween(before, all[i + 1], {.hasMoved = true});
        EXPECT_TRUE(first.isFound()) << first.refusal << first.quality;
        EXPECT_NEAR(first.px.columns, shifts[i].columns, 3);
        EXPECT_NEAR(first.px.rows, shifts[i].rows, 3);
        const PictureShift found = shiftBetween(clean, withoutWhatStandsStill(all[i + 1], still),
                                                {.expected = first.px, .within = 10});
        EXPECT_TRUE(found.isFound()) << found.refusal << found.quality;
        EXPECT_NEAR(found.px.columns, shifts[i].columns, 0.1);
        EXPECT_NEAR(found.px.rows, shifts[i].rows, 0.1);
    }
    scene.exposure = 1;
    EXPECT_EQ(shiftBetween(before, scene.at({}, 9), {.hasMoved = true}).refusal,
              "The picture has no structure that moves with the stage");
}

TEST(CalibrationTest, APictureWithoutStructureIsRefused) {
    const auto between = [](const Scene& scene, bool moved) {
        return shiftBetween(scene.at({}, 1), scene.at({}, 2), {.hasMoved = moved}).refusal;
    };
    for (const bool moved : {false, true}) {
        const std::string without = moved ? "The picture has no structure that moves with the stage"
                                          : "The picture has no structure that could be followed";
        EXPECT_EQ(between({.contrast = 0}, moved), without) << "noise only";
        EXPECT_EQ(between({.grey = 0, .contrast = 0, .noise = 1}, moved), "The picture is dark");
        EXPECT_EQ(between({.contrast = 0, .noise = 0}, moved), "The picture is plain");
        EXPECT_EQ(between({.grey = 300}, moved), "The picture is overexposed");
    }
    EXPECT_EQ(between({.contrast = 0, .dust = true, .spot = true}, true),
              "The picture has no structure that moves with the stage");
}

// A grating looks the same a period further; where it is expected decides.
TEST(CalibrationTest, TheExpectationChoosesAmongAlikePeaks) {
    const auto grating = [](double shift, unsigned seed) {
        std::mt19937 random(seed);
        GreyPicture made{600, 600, {}};
        for (int i = 0; i < 360000; ++i) {
            const double x = i % 600 - shift, y = i / 600; // NOLINT
            const double bars = std::fmod(x + 6000, 40) < 20 ? 120 : 60;
            made.at.push_back(
                float(bars + (std::fmod(y, 50) < 25 ? 30 : 0) + double(random() % 3)));
        }
        return made;
    };
    const PictureShift found = shiftBetween(grating(0, 1), grating(83, 2),
                                            {.expected = {80, 0}, .within = 15, .hasMoved = true});
    EXPECT_TRUE(found.isFound()) << found.refusal;
    EXPECT_NEAR(found.px.columns, 83, 0.3);
    EXPECT_NEAR(found.px.rows, 0, 0.3);
}

} // namespace
