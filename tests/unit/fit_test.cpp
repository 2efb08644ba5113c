// The scale of the windows, and where a scaled picture's pixels lie.
#include "ui/fit.h"

#include "camera/picture.h"
#include "platform/area_scaler.h"
#include "screen/control_ids.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/memory_screen.h"
#include "ui/commands.h"
#include "ui/fit_option.h"

namespace {

constexpr ScreenArea lastEdit{1322, 710, 55, 20}, rightmost{1429, 270, 15, 25};

struct Screen {
    Extent room; // without frame and task bar
    int dpi;
    double picture, column; // the least that is wanted
};

TEST(Fit, ShowsEverythingOnEveryScreen) {
    constexpr Screen screens[] = {
        {{1350, 669}, 96, 0.64, 0.90},   // 1366 x 768
        {{1904, 981}, 96, 0.95, 1.00},   // 1920 x 1080
        {{1904, 960}, 120, 0.93, 1.25},  // the same at 125 %
        {{3840, 1998}, 144, 1.50, 1.50}, // 3840 x 2160 at 150 %
        {{1064, 1800}, 96, 0.68, 1.00},  // upright
        {{784, 500}, 144, 0.45, 0.60},   // hardly any
    };
    for (const Screen& screen : screens) {
        const Fit fit = fitInto(screen.room, screen.dpi);
        SCOPED_TRACE(screen.room.width);
        EXPECT_GE(fit.picture, screen.picture);
        EXPECT_GE(fit.column, screen.column);
        EXPECT_LE(std::max(fit.picture, fit.column), screen.dpi / 96.0);
        EXPECT_LE(fit.shownPicture().height, screen.room.height);
        EXPECT_LE(fit.place(lastEdit).bottom(), screen.room.height);
        EXPECT_LE(fit.place(rightmost).right(), screen.room.width);
        EXPECT_GE(fit.place({1242, 260, 85, 20}).left, fit.shownPicture().width);
        // The window that is made for it is scaled in the same way.
        const Extent client = fittedClient(screen.room, screen.dpi);
        EXPECT_LE(client.width, screen.room.width);
        EXPECT_EQ(fitInto(client, screen.dpi).shownPicture().width, fit.shownPicture().width);
        EXPECT_EQ(fitInto(client, screen.dpi).column, fit.column);
    }
    EXPECT_EQ(fitInto({1446, 1049}, 96), Fit()) << "the unscaled window";
    EXPECT_EQ(Fit().place(lastEdit), lastEdit);
    EXPECT_GT(fitInto({0, -20}, 96).shownPicture().width, 0);
}

TEST(Fit, FindsThePicturesPixelUnderThePointer) {
    for (const double scale : {0.4, 0.643, 0.688, 1.0, 1.25, 1.5, 2.0}) {
        const Fit fit{scale, 1.0};
        SCOPED_TRACE(scale);
        const int slack = scale < 1.0 ? 2 : 0; // several pixels share one of the window
        for (int at = 0; at < imageHeight; ++at) {
            const PixelPoint window = fit.toWindow({at, at}), found = fit.toPicture(window);
            EXPECT_NEAR(found.x, at, slack);
            EXPECT_NEAR(found.y, at, slack);
            // What that pixel shows is found again.
            EXPECT_EQ(fit.toWindow(found).x, window.x) << at;
        }
        const Extent shown = fit.shownPicture();
        EXPECT_LT(fit.toPicture({shown.width - 1, 0}).x, imageWidth);
        EXPECT_GE(fit.toPicture({shown.width, 0}).x, imageWidth) << "the first beside it";
        EXPECT_LT(fit.toPicture({-1, -1}).x, 0) << "a capture goes on outside";
        EXPECT_LT(fit.toPicture({-1, -1}).y, 0);
    }
    for (const int at : {-3, 0, 1, 616, 1232, 1400})
        EXPECT_EQ(Fit().toPicture({at, 0}).x, at) << "unscaled";
}

TEST(Fit, PutsTheMapsWhereTheyAreSeen) {
    const Extent size{490, 445};
    const ScreenArea laptop{0, 0, 1366, 728}, large{0, 0, 2600, 1400}, beside{1366, 0, 1920, 1080};
    const ScreenArea wide{0, 0, 1462, 1108}, narrow{0, 0, 1020, 728};
    const auto first = [&](const ScreenArea& window, const std::vector<ScreenArea>& screens) {
        return placeOfMaps(Picture::First, size, window, 812, screens);
    };
    const auto second = [&](const ScreenArea& window, const std::vector<ScreenArea>& screens) {
        return placeOfMaps(Picture::Second, size, window, 812, screens);
    };
    EXPECT_EQ(first(wide, {large}), (ScreenArea{1450, 0, 490, 445})) << "as unscaled";
    EXPECT_EQ(second(wide, {large}), (ScreenArea{1450, 450, 490, 445}));
    EXPECT_EQ(first(narrow, {laptop, beside}), (ScreenArea{1366, 0, 490, 445}));
    EXPECT_EQ(second(narrow, {laptop, beside}), (ScreenArea{1366, 450, 490, 445}));
    EXPECT_EQ(first(narrow, {laptop}), (ScreenArea{812 - 490, 728 - 445, 490, 445}));
    EXPECT_EQ(second(narrow, {laptop}), (ScreenArea{0, 728 - 445, 490, 445}));
    EXPECT_EQ(movedInto(laptop, {620, 700, 500, 800}), (ScreenArea{620, 0, 500, 800}))
        << "the title is seen of one that is too large";
    EXPECT_EQ(scaleOf({862, 520}, {1366, 700}, 96), 1.0);
    EXPECT_EQ(scaleOf({862, 520}, {1366, 260}, 144), 0.5);
    EXPECT_EQ(scaleOf({862, 520}, {3840, 2000}, 144), 1.5);
}

// Pixels of bytes: the same in all four.
std::vector<uint8_t> greys(std::initializer_list<int> values) {
    std::vector<uint8_t> pixels;
    for (const int value : values) pixels.insert(pixels.end(), 4, static_cast<uint8_t>(value));
    return pixels;
}

std::vector<int> shownOf(const std::vector<uint8_t>& pixels, Extent drawn, Extent shown, int left,
                         int top, Extent part) {
    AreaScaler scaler(drawn, shown);
    std::vector<int> values;
    for (const uint32_t pixel : scaler.scale(pixels.data(), left, top, part)) {
        EXPECT_EQ(pixel, (pixel & 255) * 0x010101u);
        values.push_back(static_cast<int>(pixel & 255));
    }
    return values;
}

TEST(AreaScaler, GivesEachPixelTheMeanOfWhatItCovers) {
    const auto line = greys({0, 255, 0, 100, 100, 100});
    const auto row = [&](int shown) { return shownOf(line, {6, 1}, {shown, 1}, 0, 0, {shown, 1}); };
    EXPECT_EQ(row(6), (std::vector<int>{0, 255, 0, 100, 100, 100}));
    EXPECT_EQ(row(3), (std::vector<int>{128, 50, 100}));
    EXPECT_EQ(row(9), (std::vector<int>{0, 128, 255, 0, 50, 100, 100, 100, 100}));
    EXPECT_EQ(row(4), (std::vector<int>{85, 85, 100, 100})) << "a line keeps its weight";
    // The bottom row comes first in a bitmap, the top row in what is shown; a part is as the whole.
    const auto block = greys({1, 2, 3, 4, 5, 6});
    EXPECT_EQ(shownOf(block, {2, 3}, {2, 3}, 0, 0, {2, 3}), (std::vector<int>{5, 6, 3, 4, 1, 2}));
    EXPECT_EQ(shownOf(block, {2, 3}, {4, 6}, 1, 1, {2, 2}), (std::vector<int>{5, 6, 3, 4}));
    EXPECT_EQ(shownOf(block, {2, 3}, {1, 1}, 0, 0, {1, 1}), (std::vector<int>{4}));
    std::vector<uint8_t> white(4 * 1232 * 7, 255);
    for (const int value : shownOf(white, {1232, 7}, {850, 5}, 3, 1, {847, 4}))
        ASSERT_EQ(value, 255);
}

class FitOption : public LabTest {};

TEST_F(FitOption, IsOffAndIsKept) {
    restoreFit();
    EXPECT_FALSE(fittedToScreen);
    createMainWindow(1);
    onCommand(idFitToScreen);
    EXPECT_TRUE(fittedToScreen && fitIsOn());
    EXPECT_EQ(contentOf("KST_Data/Options.ini"), "fit to screen = yes\n");
    EXPECT_EQ(textIn(Field::Information).find("sharp"), std::string::npos);
    restoreFit();
    EXPECT_TRUE(fitIsOn());
    onCommand(idFitToScreen);
    EXPECT_FALSE(fittedToScreen);
    EXPECT_EQ(contentOf("KST_Data/Options.ini"), "fit to screen = no\n");
    textIsSharp = false;
    onCommand(idFitToScreen);
    EXPECT_EQ(textIn(Field::Information), "The text is sharp from the next start");
    writeDesktopFile("KST_Data/Options.ini", "fit to screen = perhaps\n");
    restoreFit();
    EXPECT_FALSE(fitIsOn());
}

} // namespace
