// Autofocus, the wide view and clicks on the picture, against where the sample really is.
#include "tests/simulation/whole_run.h"

#include "camera/autofocus.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "ui/commands.h"
#include "ui/configuration.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

namespace {

class OpticsTest : public LabTest {
protected:
    // The devices are connected and the live view shows the sample.
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
        onLeftButtonDown(5000, 5000); // outside the picture: only frees the keys
        ASSERT_TRUE(applyLabFaults(laboratory));
        ASSERT_TRUE(openStages(2, motorSpeed));
        ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
        cameraState.laserOffset = {labSpotPixel().column, labSpotPixel().row};
        setLaserOutput(1);
        switchLiveView(LiveView::On);
        for (int i = 0; i < 15; ++i) grabFrames(cameraState, 1);
    }

    static constexpr const char* exactStage = "backlash x 0\nbacklash y 0\n";
    std::string laboratory = exactStage;

    static void pump() {
        for (Message message; takeMessage(message);) dispatchMessage(message);
    }

    // Brings a sample point under the laser spot.
    static void putUnderSpot(LabPoint place) {
        const LabPoint spot = labLaserSpotSample();
        moveXYBy(place.x - spot.x, place.y - spot.y, motorSpeed);
    }

    static LabPoint sampleAt(double column, double row, double scale = 1) {
        return {labStageUm(labX) + (column - labCentreColumn) * labUmPerPixel * scale,
                labStageUm(labY) + (row - labCentreRow) * labUmPerPixel * scale};
    }
};

// --- Autofocus -----------------------------------------------------------------------------------

// How a search ends: in focus and said so, in focus but too dark to be sure of it, lost and said
// so. Anything else is a fault.
enum : char { completed = 'c', incomplete = 'i', lost = 'x', wrong = '!' };

struct FocusCase {
    const char* name;
    LabPoint place;
    double microamperes; // of laser intensity
    double exposureUs;
    const char* ends; // one for each start
};

constexpr double starts[] = {-1500, -930, 20, 370, 1500}; // um
constexpr LabPoint gold{60, 3}, flake{5, -8}, substrate{-30, -40};

class FocusTest : public OpticsTest, public testing::WithParamInterface<FocusCase> {};

TEST_P(FocusTest, EndsInFocusOrSaysThatItDidNot) {
    const FocusCase& each = GetParam();
    laserLink.laserLevel = each.microamperes / setUp.laserUaPerVolt;
    cameraState.exposureUs = each.exposureUs;
    putUnderSpot(each.place);
    std::string ends;
    for (const double start : starts) {
        moveTo(stageZ, start);
        onCommand(idFocus);
        const LabPoint spot = labLaserSpotSample();
        const double off = std::fabs(labStageUm(labZ) - surfaceHeightAt(spot.x, spot.y));
        const bool says = textIn(Field::Information) == "Focusing Completed!";
        EXPECT_TRUE(says || textIn(Field::Information) == "Focusing incompleted!");
        const bool sharp = off <= labDepthOfFocusUm;
        ends += says ? (sharp ? completed : wrong) : (sharp ? incomplete : lost);
        EXPECT_EQ(session.processRunning, 0);
        EXPECT_TRUE(timerRuns());
        EXPECT_FALSE(labIlluminated());
        EXPECT_GT(labLaserPwm(), 0);
    }
    EXPECT_EQ(ends, each.ends);
}

INSTANTIATE_TEST_SUITE_P(Places, FocusTest,
                         testing::Values(FocusCase{"GoldAt1", gold, 1, 100, "xxxxx"},
                                         FocusCase{"GoldAt10", gold, 10, 100, "ixixi"},
                                         FocusCase{"GoldAt20", gold, 20, 100, "ccccc"},
                                         FocusCase{"FlakeAt1", flake, 1, 100, "xxxxx"},
                                         FocusCase{"FlakeAt10", flake, 10, 100, "ixixi"},
                                         FocusCase{"FlakeAt20", flake, 20, 100, "ixixi"},
                                         FocusCase{"SubstrateAt1", substrate, 1, 100, "xxxxx"},
                                         FocusCase{"SubstrateAt10", substrate, 10, 100, "ixixi"},
                                         FocusCase{"SubstrateAt20", substrate, 20, 100, "ixixi"},
                                         FocusCase{"FlakeAt10Longer", flake, 10, 1000, "ccccc"}),
                         [](const testing::TestParamInfo<FocusCase>& info) {
                             return std::string(info.param.name);
                         });

TEST_F(OpticsTest, FocusFactorIsTheSumOverThreeChannels) {
    std::mt19937 random(7);
    for (const PicturePoint spot : {PicturePoint{640, 500}, PicturePoint{3, 1020},
                                    PicturePoint{1231, 0}, PicturePoint{-90, 2000}}) {
        std::generate_n(cameraImage.pixels.get(), cameraImage.byteCount,
                        [&] { return static_cast<uint8_t>(random()); });
        cameraState.laserOffset = spot;
        float expected = 0;
        for (const auto channel : {pixelBlue, pixelRed, pixelGreen}) {
            double sum = 0;
            for (int px = spot.x - 100; px <= spot.x + 99; ++px) {
                for (int py = spot.y - 100; py <= spot.y + 99; ++py) {
                    const double squared = std::pow(spot.x - px, 2.0) + std::pow(spot.y - py, 2.0);
                    sum += channel(cameraImage, px, py) / (squared < 1 ? 1 : squared);
                }
            }
            expected += static_cast<float>(sum / 40000);
        }
        FocusState search;
        EXPECT_EQ(focusFactor(search), expected);
    }
    const float curve[] = {1, 3, 2, 2};
    EXPECT_EQ(meanStepChange(curve, 4), 1.0f);
    EXPECT_EQ(meanStepChange(curve, 1), 0.0f);
}

TEST_F(OpticsTest, StoppedFocusingStaysWhereItIsInTheDark) {
    moveTo(stageZ, 300);
    in(6000, [] { postCommand(idStart); }); // in the downward sweep
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    onCommand(idFocus);
    EXPECT_EQ(textIn(Field::Information), "Focusing aborted");
    EXPECT_GT(labStageUm(labZ), 310);
    EXPECT_EQ(labLaserPwm(), 0); // it was off before
    EXPECT_FALSE(labIlluminated());
    EXPECT_FALSE(timerRuns());
}

TEST_F(OpticsTest, FocusingEndsAtALimit) {
    ASSERT_TRUE(applyLabFaults("limit z left at 300"));
    moveTo(stageZ, 1000);
    const uint64_t before = labCounters().frames;
    onCommand(idFocus);
    EXPECT_EQ(textIn(Field::Information), "Focusing incompleted!");
    EXPECT_LT(labCounters().frames - before, 300u);
}

TEST_F(OpticsTest, FocusingGoesOnThroughKeys) {
    moveTo(stageZ, 20);
    for (int ms = 1000; ms < 5000; ms += 500) in(ms, [] { post(messageKeyDown, keyPageUp); });
    onCommand(idFocus);
    const auto& texts = historyOf(Field::Information);
    EXPECT_TRUE(std::any_of(texts.begin(), texts.end(), [](const std::string& text) {
        return text.ends_with(" Focusing completed");
    }));
    EXPECT_NEAR(labStageUm(labZ), 0, 6) << "half a step of the sweep, and a key";
}

// It does not go on at a place that it does not know, however bright the spot is there.
TEST_F(OpticsTest, FocusingEndsAtAStepThatDoesNotArrive) {
    const struct {
        const char *fault, *why;
    } cases[] = {{"axis z lost", "Stage Z lost (-4)"},
                 {"axis z alarm current", "Stage Z alarm (over-current)"},
                 {"axis z stalled", "Stage Z stalled"},
                 {"axis z slips 10", "Stage Z steps lost"}};
    for (const auto& each : cases) {
        moveBy(stageZ, 20 - labStageUm(labZ));
        in(3000, [&] { applyLabFaults(std::string(exactStage) + each.fault); });
        const uint64_t before = labCounters().moves;
        onCommand(idFocus);
        EXPECT_EQ(textIn(Field::Information), std::string("Focusing incompleted! ") + each.why);
        EXPECT_LT(labCounters().moves - before, 60u);
        const uint64_t moves = labCounters().moves;
        onCommand(idFocus); // nothing has been mended
        EXPECT_LE(labCounters().moves - moves, 1u);
        EXPECT_EQ(textIn(Field::Information), std::string("Focusing incompleted! ") + each.why);
        ASSERT_TRUE(applyLabFaults(exactStage));
        if (!axisIsOut(stageZ)) continue;
        answer("Standa device found", BoxAnswer::Ok);
        onCommand(idReconnectStages);
    }
}

TEST_F(OpticsTest, FocusingConnectsAReleasedCamera) {
    moveTo(stageZ, 20);
    onCommand(idLiveOff); // lets go of the camera, as 50 s without input do
    ASSERT_EQ(cameraState.connected, 0);
    onCommand(idFocus);
    EXPECT_EQ(cameraState.connected, 1);
    EXPECT_NEAR(labStageUm(labZ), 0, labDepthOfFocusUm);
}

// --- Moves that something comes between ----------------------------------------------------------

TEST_F(OpticsTest, AKeyDoesNotBendAClicksMove) {
    in(120, [] { postKey(keyUp); });
    answer("If you want to move this position", BoxAnswer::Yes);
    postClick(1200, 314);
    pump();
    EXPECT_NEAR(labStageUm(labX), 584 * labUmPerPixel, 0.5);
    EXPECT_NEAR(labStageUm(labY), 200 * labUmPerPixel, 0.5);
    // What does: an axis that comes to its limit is not said to have arrived.
    ASSERT_TRUE(applyLabFaults(exactStage + std::string("limit y right at 60")));
    EXPECT_FALSE(moveXYBy(200, 100, motorSpeed));
    EXPECT_NEAR(stageY.positionUm, labStageUm(labY), 0.5);
}

TEST_F(OpticsTest, ClosingInAMoveStopsItAtOnce) {
    setLaserLevel(1);
    in(1000, [] { post(messageClose); });
    moveTo(stageX, 5000);
    EXPECT_EQ(windows.main, nullptr);
    EXPECT_LT(labStageUm(labX), 1000);
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_LT(testTimeMs(), 5000);
}

// --- The wide view ------------------------------------------------------------------------------

class WideViewTest : public OpticsTest {
protected:
    static bool isGold(double red, double green, double blue) {
        return red > 1.8 * blue && red > 1.05 * green;
    }

    // Of the pixels of one ninth that show gold, or should: how many do both, 0..1, when the
    // picture is shifted.
    double agreement(int column, int row, int dx, int dy) {
        const PictureArea& seen = cameraImage.seen;
        const int width = seen.width / 3, height = seen.height / 3;
        const int left = seen.left + column * width, top = topOfMosaic() + row * height;
        int both = 0, either = 0;
        for (int y = top + 5; y < top + height - 5; ++y)
            for (int x = left + 5; x < left + width - 5; ++x) {
                const uint32_t pixel = windows.main->client.at(x + dx, y + dy);
                const bool shown = isGold(pixel >> 16 & 255, pixel >> 8 & 255, pixel & 255);
                const LabPoint place = sampleAt(x + 0.5, 1028 - (y + 0.5), 3);
                const Rgb truth = textureAt(place.x, place.y);
                const bool there = isGold(truth.red, truth.green, truth.blue);
                both += shown && there;
                either += shown || there;
            }
        return double{1} * both / either;
    }

    static int topOfMosaic() {
        return imageHeight - cameraImage.seen.bottom - cameraImage.seen.height;
    }

    // Of those that it has made, without the scale bar's.
    int blackPixels() const {
        const PictureArea& seen = cameraImage.seen;
        int black = 0;
        for (int y = topOfMosaic(); y < std::min(topOfMosaic() + seen.height, 900); ++y)
            for (int x = seen.left; x < seen.left + seen.width; ++x)
                black += windows.main->client.at(x, y) == 0;
        return black;
    }
};

class SmallWideViewTest : public WideViewTest {
protected:
    SmallWideViewTest() { laboratory += "sensor 1920 1200 BayerBG8\n"; }
};

TEST_F(SmallWideViewTest, ItsFieldsMeetInTheMiddle) {
    ASSERT_EQ(cameraImage.seen, (PictureArea{136, 214, 960, 600}));
    onCommand(idWideView);
    for (const auto& [column, row] : {std::pair(1, 1), {0, 1}, {2, 1}, {1, 0}, {1, 2}}) {
        const double inPlace = agreement(column, row, 0, 0);
        EXPECT_GT(inPlace, 0.6) << column << " " << row;
        for (const int off : {-2, 2}) {
            EXPECT_GT(inPlace, agreement(column, row, off, 0)) << column << " " << row;
            EXPECT_GT(inPlace, agreement(column, row, 0, off)) << column << " " << row;
        }
    }
    EXPECT_EQ(blackPixels(), 0);
}

TEST_F(WideViewTest, ShowsNineFieldsInPlace) {
    onCommand(idWideView);
    EXPECT_NEAR(labStageUm(labX), 0, 0.5);
    EXPECT_NEAR(labStageUm(labY), 0, 0.5);
    EXPECT_EQ(display.wideFactor, 3);
    EXPECT_EQ(drawnTexts.back().text, "30 um");
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column) {
            const double inPlace = agreement(column, row, 0, 0);
            EXPECT_GT(inPlace, 0.6) << column << " " << row;
            for (const int off : {-2, 2}) {
                EXPECT_GT(inPlace, agreement(column, row, off, 0)) << column << " " << row;
                EXPECT_GT(inPlace, agreement(column, row, 0, off)) << column << " " << row;
            }
        }
    // Plain ground is equally bright in all of them, but for the sensor's noise.
    const auto green = [this](int x, int y) {
        return static_cast<int>(windows.main->client.at(x, y) >> 8 & 255);
    };
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            EXPECT_NEAR(green(column * 410 + 30, row * 342 + 20), green(30, 20), 3);
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Continuous));
    // And no gap between them.
    EXPECT_EQ(blackPixels(), 0);

    const NativeBitmap shown = windows.main->client;
    std::fill(windows.main->client.pixels.begin(), windows.main->client.pixels.end(), 0u);
    onPaint();
    EXPECT_TRUE(std::equal(shown.pixels.begin(), shown.pixels.begin() + 1232,
                           windows.main->client.pixels.begin()));
    onCommand(idLiveOn);
    EXPECT_EQ(display.wideView, 0);
}

TEST_F(WideViewTest, ClicksAndDragsAreThreeTimesAsLong) {
    onCommand(idWideView);
    // The cross at (100, -100) um, under the picture's centre after the click.
    const double toPixel = 1 / (3 * labUmPerPixel);
    answer("If you want to move this position", BoxAnswer::Yes);
    postClick(static_cast<int>(616 + 100 * toPixel), static_cast<int>(514 + 100 * toPixel));
    pump();
    EXPECT_NEAR(labStageUm(labX), 100, 3 * labUmPerPixel);
    EXPECT_NEAR(labStageUm(labY), -100, 3 * labUmPerPixel);
    EXPECT_EQ(display.wideView, 0) << "the nine fields are others now";

    onCommand(idWideView);
    answer("Do you want to set it for next scan area", BoxAnswer::Yes);
    postDrag(700, 100, 760, 160);
    pump();
    EXPECT_EQ(shownBoxes.back().caption, "Area: 26.3 um x 26.3 um");
    EXPECT_EQ(scanArea.cols, 27);
    EXPECT_EQ(windows.main->client.at(700, 130), 0x00FF00u);
    // The first point is the rectangle's lower left corner, but for the fixed correction.
    const LabPoint corner = sampleAt(700, 1028 - 160, 3);
    const LabPoint spot = labLaserSpotSample();
    EXPECT_NEAR(spot.x + scanArea.offsetXUm, corner.x + 3, 0.5);
    EXPECT_NEAR(spot.y + scanArea.offsetYUm, corner.y + 2, 0.5);
    onCommand(idLiveOn); // and stays so in another view
    EXPECT_EQ(scanArea.cols, 27);
    EXPECT_NEAR(spot.x + scanArea.offsetXUm, corner.x + 3, 0.5);
    onCommand(idWideView);
    onCommand(idDrawScanArea);
    EXPECT_EQ(windows.main->client.at(700, 130), 0x00FF00u);
    onCommand(idSaveCameraImage);
    EXPECT_TRUE(savedImages.back().path.ends_with(L"\\wide(1).jpg"));
}

// A rectangle drawn on it would lie where the stage was.
TEST_F(WideViewTest, IsLeftWhenTheStageMovesOn) {
    const std::function<void()> moves[] = {[] { onCommand(idMoveXPlus); },
                                           [] { onCommand(idMoveYMinus); },
                                           [] {
                                               whileDialogOpen = [] {
                                                   setDialogText(idHandStep, "3");
                                                   onConfigurationCommand(idHandYPlus);
                                                   EXPECT_EQ(display.wideView, 0);
                                               };
                                               onCommand(idConfiguration);
                                           },
                                           [] {
                                               whileDialogOpen = [] {
                                                   setDialogText(idDialogPositionX, "-2");
                                                   onConfigurationCommand(idGo);
                                               };
                                               onCommand(idConfiguration);
                                           }};
    for (const auto& move : moves) {
        onCommand(idWideView);
        onCommand(idFocusUp);
        ASSERT_EQ(display.wideView, 1) << "Z changes no place";
        const NativeBitmap mosaic = windows.main->client;
        move();
        EXPECT_EQ(display.wideView, 0);
        EXPECT_NE(windows.main->client.pixels, mosaic.pixels) << "the camera's picture";
    }
    when([] { return labStageUm(labX) < -150; }, [] { applyLabFaults("limit x right at -60"); });
    onCommand(idWideView);
    EXPECT_EQ(display.wideView, 0);
    EXPECT_EQ(textIn(Field::Information),
              "The stage did not come back to the wide view's centre, Stage X limit switch");
}

TEST_F(WideViewTest, StopsAndComesBack) {
    when([] { return labStageUm(labX) > 100; }, [] { postClick(20, 20); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    onCommand(idWideView);
    EXPECT_NEAR(labStageUm(labX), 0, 0.5);
    EXPECT_NEAR(labStageUm(labY), 0, 0.5);
    EXPECT_EQ(windows.main->client.at(600, 900), 0u); // never reached

    ASSERT_TRUE(applyLabFaults(
        exactStage + std::string("limit x right at 50"))); // the right fields are out of reach
    onCommand(idWideView);
    EXPECT_EQ(windows.main->client.at(1000, 500), 0u);
    EXPECT_NE(windows.main->client.at(600, 500), 0u);
}

// --- Clicks --------------------------------------------------------------------------------------

TEST_F(OpticsTest, AClickSetsTheSpotWhenThatIsChosen) {
    onCommand(idPickLaserSpot);
    answer("Do you want to set the laser beam spot here?", BoxAnswer::No);
    postClick(100, 200);
    pump();
    EXPECT_EQ(cameraState.laserOffset.x, labSpotPixel().column);
    const double before = scanArea.offsetXUm;
    answer("Do you want to set the laser beam spot here?", BoxAnswer::Yes);
    postClick(650, 1028 - 480);
    pump();
    EXPECT_EQ(cameraState.laserOffset.x, 650);
    EXPECT_EQ(cameraState.laserOffset.y, 480);
    EXPECT_NEAR(scanArea.offsetXUm, before - 10 * labUmPerPixel, 1e-3);
    EXPECT_NE(shownBoxes.back().caption.find("Position: (650,480), Blue intensity:"),
              std::string::npos);
    EXPECT_TRUE(timerRuns());
    onCommand(idPickLaserSpot);
    answer("If you want to move this position", BoxAnswer::No); // under the spot
    const LabPoint clicked = sampleAt(700, 400);
    postClick(700, 1028 - 400);
    pump();
    const LabPoint under = sampleAt(650, 480);
    EXPECT_NEAR(under.x, clicked.x, labUmPerPixel);
    EXPECT_NEAR(under.y, clicked.y, labUmPerPixel);
}

} // namespace
