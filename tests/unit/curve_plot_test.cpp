// The plot of a curve: every pixel as if drawn point by point, its labels, its colours in turn.
#include "spectroscopy/curve_plot.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <random>

namespace {

class CurvePlotTest : public WindowTest {
protected:
    std::vector<float> xs, ys;

    int draw(int first = 0) {
        return plotCurve(windows.main, xs.data(), ys.data(), first, static_cast<int>(xs.size()));
    }

    // The same line on a window of its own, drawn segment by segment.
    NativeBitmap drawnNaively(Colour colour) {
        NativeWindow naive{.client = blankBitmap(600, 400, 0xFFFFFF)};
        const ContextHandle context = windowContext(&naive);
        drawFilledRectangle(context, 9, 9, 411, 311, 0, 0xFFFFFF);
        const auto [minX, maxX] = std::minmax_element(xs.begin(), xs.end());
        const auto [minY, maxY] = std::minmax_element(ys.begin(), ys.end());
        int lastX = 0, lastY = 0;
        for (size_t i = 0; i < xs.size(); i++) {
            const int x = static_cast<int>(10 + (xs[i] - *minX) * 400 / (*maxX - *minX));
            const int y = static_cast<int>(310 - (ys[i] - *minY) * 300 / (*maxY - *minY));
            if (i > 0) drawLine(context, lastX, lastY, x, y, colour);
            lastX = x;
            lastY = y;
        }
        releaseWindowContext(&naive, context);
        return naive.client;
    }
};

TEST_F(CurvePlotTest, IsTheCurveDrawnPointByPoint) {
    std::mt19937 random(5);
    for (int round = 0; round < 40; round++) {
        xs.clear();
        ys.clear();
        const int points = 2 + round * 40; // up to four points in every column of pixels
        for (int i = 0; i < points; i++) {
            const bool loop = round % 2 == 1; // an I-V loop runs back and forth
            const int x = loop && i > points / 2 ? points - i : i;
            xs.push_back(static_cast<float>(x) * 0.01f);
            ys.push_back(static_cast<float>(random() % (round % 3 == 0 ? 7 : 1000)));
        }
        ys[0] = -1; // never one value only
        EXPECT_EQ(draw(), 1);
        const Colour colour = round % 2 == 0 ? 0xFF0000 : 0x0000FF; // blue first, then red
        const NativeBitmap naive = drawnNaively(colour);
        for (int y = 0; y < 340; y++)
            for (int x = 0; x < 600; x++)
                ASSERT_EQ(windows.main->client.at(x, y), naive.at(x, y))
                    << round << " " << x << " " << y;
    }
}

TEST_F(CurvePlotTest, LabelsAreThoseOfThePointsDrawn) {
    xs = {99, 1, 2, 3};
    ys = {99, -0.5f, 0.25f, -1.25f};
    draw(1);
    const struct {
        int x, y;
        const char* text;
    } labels[] = {{15, 15, "X=3.000"},    {15, 30, "Y=-1.250"},    {10, 313, "1.0     "},
                  {210, 313, "2.0     "}, {400, 313, "3.0      "}, {413, 300, "-1.250     "},
                  {413, 10, "0.250     "}};
    ASSERT_EQ(drawnTexts.size(), std::size(labels));
    for (size_t i = 0; i < std::size(labels); i++) {
        EXPECT_EQ(drawnTexts[i].text, labels[i].text);
        EXPECT_EQ(drawnTexts[i].x, labels[i].x);
        EXPECT_EQ(drawnTexts[i].y, labels[i].y);
        EXPECT_FALSE(drawnTexts[i].transparent);
    }
    drawnTexts.clear();
    xs = {7};
    ys = {2};
    draw();
    EXPECT_EQ(drawnTexts[4].text, "7.1      ");
    EXPECT_EQ(drawnTexts[6].text, "2.100     ");
    xs = {1e30f, 1e30f, 3e38f}; // a tenth is nothing there, and the differences are too much
    ys = {NAN, INFINITY, -INFINITY};
    EXPECT_EQ(draw(), 1);
    drawingFailures[Drawing::MakeBitmap] = 1; // then straight onto the window
    xs = ys = {0, 1};
    draw();
    EXPECT_NE(windows.main->client.at(210, 160), 0xFFFFFFu);
}

} // namespace
