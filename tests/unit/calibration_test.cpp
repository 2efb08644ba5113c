// The mathematics of the calibrations, on pictures and places whose truth is known.
#include "calibration/dark_value.h"
#include "calibration/fft.h"
#include "calibration/matrix_fit.h"
#include "calibration/phase_correlation.h"
#include "calibration/play.h"
#include "calibration/spot_centroid.h"

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
    const auto grating = [](double shift, unsigned seed, double across = 30) {
        std::mt19937 random(seed);
        GreyPicture made{600, 600, {}};
        for (int i = 0; i < 360000; ++i) {
            const double x = i % 600 - shift, y = i / 600; // NOLINT
            const double bars = std::fmod(x + 6000, 40) < 20 ? 120 : 60;
            made.at.push_back(
                float(bars + (std::fmod(y, 50) < 25 ? across : 0) + double(random() % 3)));
        }
        return made;
    };
    const PictureShift found =
        shiftBetween(grating(0, 1), grating(83, 2), {.expected = {80, 0}, .within = 15});
    EXPECT_TRUE(found.isFound()) << found.refusal;
    EXPECT_NEAR(found.px.columns, 83, 0.3);
    EXPECT_NEAR(found.px.rows, 0, 0.3);
    EXPECT_EQ(shiftBetween(grating(0, 1, 0), grating(7, 2, 0)).refusal,
              "The picture looks the same a little further on");
}

// --- The matrix ----------------------------------------------------------------------------------

PictureScale turned(double umPerPixel, double degrees, double mirrorX, double mirrorY) {
    const double c = std::cos(degrees * std::numbers::pi / 180) * umPerPixel;
    const double s = std::sin(degrees * std::numbers::pi / 180) * umPerPixel;
    return {c * mirrorX, -s * mirrorY, s * mirrorX, c * mirrorY};
}

// A square of places, seen with an error of the first picture, which all have, and of their own.
std::vector<MeasuredPlace> placesOf(const PictureScale& matrix, double noisePx, int side = 4) {
    std::mt19937 random(4);
    std::normal_distribution<double> gauss(0, noisePx);
    std::vector<MeasuredPlace> places;
    for (int i = 0; i < side * side; ++i) {
        const StageVector um{300 * matrix.umPerColumn() * (i % side) / side, // NOLINT
                             300 * matrix.umPerColumn() * (i / side) / side};
        const PixelVector px = matrix.pixelsOf(um);
        places.push_back({um, {-px.columns + 0.4 + gauss(random), -px.rows - 0.3 + gauss(random)}});
    }
    return places;
}

TEST(CalibrationTest, TheMatrixOfAnyCameraIsFoundWithinItsUncertainty) {
    const struct {
        PictureScale matrix;
        double scale, degrees;
        Mirroring mirroring;
    } cases[] = {{PictureScale(), 180.0 / 1232, 0, Mirroring::None},
                 {turned(0.02, 1.3, -1, 1), 0.02, 1.3, Mirroring::LeftRight},
                 {turned(2, -91, 1, 1), 2, -91, Mirroring::None},
                 {turned(0.4, 30, 1, -1), 0.4, 30, Mirroring::UpsideDown}};
    for (const auto& each : cases) {
        const MatrixFit fit = fitMatrix(placesOf(each.matrix, 0.1));
        ASSERT_TRUE(fit.isFound()) << fit.refusal;
        EXPECT_NEAR(fit.umPerPixel, each.scale, 4 * fit.umPerPixelUncertainty);
        EXPECT_LT(fit.umPerPixelUncertainty, 0.001 * each.scale);
        EXPECT_NEAR(fit.rotationDegrees, each.degrees, 4 * fit.rotationUncertainty);
        EXPECT_LT(fit.rotationUncertainty, 0.03);
        EXPECT_EQ(fit.mirroring, each.mirroring);
        EXPECT_NEAR(fit.skewDegrees, 0, 0.1);
        EXPECT_NEAR(fit.rowsPerColumns, 1, 0.002);
        EXPECT_NEAR(fit.residualUm, 0.1 * std::sqrt(2) * each.scale, 0.05 * each.scale);
        EXPECT_NEAR(fit.matrix.xPerRow, each.matrix.xPerRow, 4 * fit.uncertainty[1]);
        EXPECT_NEAR(fit.matrix.yPerColumn, each.matrix.yPerColumn, 4 * fit.uncertainty[2]);
        EXPECT_TRUE(fit.outliers.empty());
    }
}

TEST(CalibrationTest, PlacesThatDoNotAgreeAreToldAndLeftOut) {
    std::vector<MeasuredPlace> places = placesOf(PictureScale(), 0.1);
    places[2].shift.columns += 2;
    places[15].shift.rows += 40;
    places[9].shift = {};
    const MatrixFit fit = fitMatrix(places);
    ASSERT_TRUE(fit.isFound()) << fit.refusal;
    EXPECT_EQ(fit.outliers, (std::vector<size_t>{2, 9, 15}));
    EXPECT_NE(fit.words().find("left out: place 3, 10, 16"), std::string::npos);
    EXPECT_NEAR(fit.umPerPixel, 180.0 / 1232, 4 * fit.umPerPixelUncertainty);

    places[0].shift.rows += 7;
    places[4].shift.rows -= 20;
    EXPECT_EQ(fitMatrix(places).refusal, "Only 11 of 16 places agree");
    places = placesOf(PictureScale(), 0, 3);
    EXPECT_TRUE(fitMatrix(places).outliers.empty()) << "exact";
    places.resize(7);
    EXPECT_EQ(fitMatrix(places).refusal, "7 places are too few, it needs 8");
    places = placesOf(PictureScale(), 0.1);
    for (MeasuredPlace& place : places) place.shift.rows = 0.01 * place.stageUm.y;
    EXPECT_EQ(fitMatrix(places).refusal, "The picture moved along one line only");
}

// --- Laser spot, play, dark value ----------------------------------------------------------------

struct SpotPicture {
    static constexpr int width = 300, height = 200;
    std::vector<uint8_t> pixels = std::vector<uint8_t>(size_t{width} * height * 4);

    explicit SpotPicture(double column, double row, double peak, double sigma = 6) {
        std::mt19937 random(8);
        for (size_t i = 0; i < pixels.size(); ++i) {
            const double x = int(i / 4 % width) - column, y = int(i / 4 / width) - row; // NOLINT
            const double light = peak * std::exp(-(x * x + y * y) / (2 * sigma * sigma));
            pixels[i] = uint8_t(
                std::min(255.0, 3 + light * (1 - 0.3 * double(i % 4)) + double(random() % 3)));
        }
    }
    SpotFound found() const { return findSpot(pixels.data(), width, {0, 0, width, height}); }
};

TEST(CalibrationTest, FindsTheSpotAmongHotPixelsAndSaysWhatIsWrongWithIt) {
    SpotPicture picture(120.3, 88.8, 180);
    for (const size_t hot : {size_t{500}, size_t{4000}}) picture.pixels[4 * hot] = 255;
    for (int i = 0; i < 4; ++i) // a reflection
        for (int k = 0; k < 4; ++k) picture.pixels[4 * size_t((20 + i) * 300 + 30 + k)] = 255;
    SpotFound spot = picture.found();
    ASSERT_TRUE(spot.isFound()) << spot.refusal;
    EXPECT_NEAR(spot.place.columns, 120.3, 0.1);
    EXPECT_NEAR(spot.place.rows, 88.8, 0.1);
    EXPECT_LT(spot.uncertaintyPx, 0.1);
    EXPECT_NEAR(spot.radiusPx, 6 * 1.1774, 0.4);
    EXPECT_EQ(spot.saturatedPixels, 18);
    EXPECT_FALSE(spot.cutByEdge);

    EXPECT_GT(SpotPicture(120.3, 88.8, 600).found().saturatedPixels, 50);
    EXPECT_TRUE(SpotPicture(3, 88, 180).found().cutByEdge);
    EXPECT_EQ(SpotPicture(120, 88, 0).found().refusal, "There is no laser spot on the picture");
    EXPECT_EQ(SpotPicture(120, 88, 9000, 900).found().refusal, "The picture is overexposed");
}

TEST(CalibrationTest, ThePlayIsWhatBothSidesDifferBy) {
    std::mt19937 random(6);
    std::normal_distribution<double> gauss(0, 0.1);
    std::vector<PlayVisit> visits;
    for (int i = 0; i < 12; ++i)
        visits.push_back({10.0 * i + gauss(random), 10.0 * i + 3 + gauss(random)});
    visits[5].fromAboveUm += 9;
    const AxisPlay play = playOf(visits, 0.15);
    ASSERT_TRUE(play.isFound()) << play.refusal;
    EXPECT_EQ(play.leftOut, 1u);
    EXPECT_NEAR(play.um, 3, 3 * play.uncertaintyUm);
    EXPECT_NEAR(play.scatterUm, 0.14, 0.08);
    EXPECT_NEAR(play.uncertaintyUm, play.scatterUm / std::sqrt(11), 0.002);
    EXPECT_EQ(runInFor(play, AxisPlay()), 6);
    for (int i = 0; i < 12; i += 3) visits[size_t(i)].fromBelowUm -= 9;
    EXPECT_EQ(playOf(visits, 0.15).refusal, "Only 7 of 12 places agree");
}

TEST(CalibrationTest, TheDarkValueKnowsItsNoise) {
    std::vector<Reading> readings;
    for (int i = 0; i < 20; ++i)
        readings.push_back({.values = {i % 2 != 0 ? 0.5f : 0.3f}, .answered = true});
    readings.resize(23);
    const DarkValue dark = darkValueOf(readings);
    ASSERT_TRUE(dark.isFound()) << dark.refusal;
    EXPECT_NEAR(dark.mean, 0.4, 1e-6);
    EXPECT_NEAR(dark.deviation, 0.1 * std::sqrt(20.0 / 19), 1e-6);
    EXPECT_NEAR(dark.standardError, dark.deviation / std::sqrt(20), 1e-9);
    EXPECT_EQ(dark.unanswered, 3);
    readings[22] = {.values = {9.9e37f}, .answered = true};
    EXPECT_EQ(darkValueOf(readings).refusal, "The instrument is overloaded");
    EXPECT_EQ(darkValueOf(std::vector<Reading>(30)).refusal,
              "The instrument answered 0 of 30 readings");
}

} // namespace
