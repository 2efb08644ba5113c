// Another laboratory: what its maps show before and after the set-up has measured itself.
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "calibration/calibrations.h"
#include "camera/camera.h"
#include "instruments/laser_link.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>

namespace {

class SecondSetUpTest : public WholeRunTest {
protected:
    // What its operator knows of it, from the motors' and the amplifier's papers.
    void typePapers() {
        writeDesktopFile("KST_Data/Config.txt",
                         "step:2.0, laser:4.00, laser correct:(616,514), Ammeter:0, GPIB:18, "
                         "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n");
        writeDesktopFile("KST_Data/Setup.ini", "X um per turn = 500\nX full steps per turn = 400\n"
                                               "X counts the other way = yes\nY um per turn = 500\n"
                                               "objective 1 spot correction X (um) = 0\n"
                                               "objective 1 spot correction Y (um) = 0\n"
                                               "board amplifier (V/A) = 5e6\n");
        ASSERT_TRUE(applyLabFaults("second set-up"));
    }

    // Runs the program, `prepare` before an area of so many pixels is drawn and scanned.
    void scanAfter(const std::function<void()>& prepare, int pixels) {
        when([] { return timerRuns(); },
             [=] {
                 postCall([=] {
                     prepare();
                     postDrag(616 - pixels, 514 - pixels, 616 + pixels, 514 + pixels);
                 });
             });
        answer("Do you want to set it for next scan area", BoxAnswer::Yes);
        when([] { return textIn(Field::Progress) == "New scan area was selected."; },
             [] { postCommand(idStart); });
        answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes, [this] {
            for (int column = 0; column < scanArea.cols; ++column)
                for (int row = 0; row < scanArea.rows; ++row) {
                    const PixelPoint at = pointOnPresentView(scanArea, column, row);
                    seenAt.push_back(labSampleAt(at.x, 1028 - at.y));
                }
        });
        when([] { return scanMap.outcome.end == ProcessEnd::Finished && !processUnderWay(); },
             [] { post(messageClose); });
        EXPECT_EQ(runProgram(1), 0);
    }

    // Cells that show another place than the one where the picture shows their point, by more than
    // half a step.
    int wrongCells() const {
        constexpr double noise = 0.01e-6; // A: two steps of the converter and the offset
        int wrong = 0;
        for (int column = 0; column < scanArea.cols; ++column)
            for (int row = 0; row < scanArea.rows; ++row) {
                double lowest = 1, highest = -1;
                const double half = scanArea.scanStep / 2;
                for (double dx = -half; dx <= half; dx += half / 4)
                    for (double dy = -half; dy <= half; dy += half / 4) {
                        const double truth = truthAt(column, row, dx, dy);
                        lowest = std::min(lowest, truth);
                        highest = std::max(highest, truth);
                    }
                const double value = cell(column, row);
                wrong += value < lowest - noise || value > highest + noise;
            }
        return wrong;
    }

    // rms of what the map says against the sample, A, were it shifted against the picture by so
    // much.
    double differenceAt(double dx, double dy) const {
        double sum = 0;
        for (int column = 0; column < scanArea.cols; ++column)
            for (int row = 0; row < scanArea.rows; ++row)
                sum += std::pow(cell(column, row) - truthAt(column, row, dx, dy), 2);
        return std::sqrt(sum / scanArea.totalPoints);
    }

    // True amperes; rows from below.
    static double cell(int column, int row) {
        const auto c = static_cast<size_t>(column),
                   m = static_cast<size_t>(scanArea.rows - 1 - row);
        return setUp.boardAmplifier.amperesOf(
            static_cast<double>(scanMap.maps[planePhotocurrent][c][m]));
    }

    double truthAt(int column, int row, double dx, double dy) const {
        const LabPoint& seen = seenAt[static_cast<size_t>(column * scanArea.rows + row)];
        return expectedCurrent(seen.x + dx, seen.y + dy, laserLink.laserLevel, labStageUm(labZ), 0);
    }

    std::vector<LabPoint> seenAt; // by the picture, before the scan; column by column from below
};

TEST_F(SecondSetUpTest, ItsMapIsWrongBeforeItHasMeasuredItself) {
    typePapers();
    scanAfter([] {}, 60);
    EXPECT_GT(wrongCells(), scanArea.totalPoints / 3);
}

TEST_F(SecondSetUpTest, ItsMapIsTrueAfterFourCalibrations) {
    typePapers();
    scanAfter(
        [] {
            const ScaleCalibration scale = calibrateScale();
            ASSERT_EQ(keep(scale), "") << scale.words();
            EXPECT_NEAR(scale.fit.umPerPixel / labSetUp().umPerPixel, 1, 0.003);
            EXPECT_NEAR(std::fabs(scale.fit.rotationDegrees), 1.3, 0.05);
            EXPECT_NE(scale.fit.mirroring, Mirroring::None);
            const PlayCalibration play = calibratePlay();
            ASSERT_TRUE(play.canKeep()) << play.words();
            EXPECT_NEAR(play.x.um, 3, 0.3);
            EXPECT_NEAR(play.y.um, 3, 0.3);
            scanSettings.options.runInUm = play.proposedRunInUm;
            const SpotCalibration spot = calibrateSpot();
            ASSERT_EQ(keep(spot), "") << spot.words();
            EXPECT_NEAR(cameraState.laserOffset.x, labSpotPixel().column, 1);
            EXPECT_NEAR(cameraState.laserOffset.y, labSpotPixel().row, 1);
            const DarkCalibration dark = calibrateDark();
            ASSERT_EQ(keep(dark), "") << dark.words();
            EXPECT_NEAR(setUp.boardAmplifier.offsetVolts, labSetUp().boardOffsetVolts, 0.005);
        },
        60);
    EXPECT_EQ(wrongCells(), 0);
    // Where it would fit best is where it is.
    double bestX = 9, bestY = 9, least = 1;
    for (double dx = -2; dx <= 2; dx += 0.1)
        for (double dy = -2; dy <= 2; dy += 0.1)
            if (const double difference = differenceAt(dx, dy); difference < least) {
                least = difference;
                bestX = dx;
                bestY = dy;
            }
    EXPECT_LT(std::hypot(bestX, bestY), 0.4) << bestX << " " << bestY;
    EXPECT_GT(differenceAt(1, 0), 1.5 * least);
    EXPECT_GT(differenceAt(0, 1), 1.5 * least);
}

} // namespace
