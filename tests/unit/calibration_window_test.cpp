// The window of a calibration's result: what it shows, what "Keep" does.
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/picture.h"
#include "instruments/laser_link.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/calibration_window.h"
#include "ui/commands.h"
#include "ui/configuration.h"

#include <algorithm>

namespace {

class CalibrationWindowTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
    }
    static bool holds(int x, int y, int radius, uint32_t pixel) {
        for (int dx = -radius; dx <= radius; ++dx)
            for (int dy = -radius; dy <= radius; ++dy)
                if (native()->client.at(x + dx, y + dy) == pixel) return true;
        return false;
    }
    static NativeWindow* native() { return reinterpret_cast<NativeWindow*>(windows.main); }
};

TEST_F(CalibrationWindowTest, ArrowsShowWhereTheStageCountsOnThePicture) {
    // A camera that is turned by a quarter: X of the stage lies along its rows.
    PictureScale turned;
    turned.xPerColumn = turned.yPerRow = 0.0;
    turned.xPerRow = 0.2;
    turned.yPerColumn = -0.2;
    const auto arrow = arrowAlong(turned, {1.0, 0.0}, {616.0, 514.0}, 300.0, "X");
    ASSERT_EQ(arrow.size(), 3u);
    EXPECT_NEAR(arrow[0].to.columns, 616.0, 1e-9);
    EXPECT_NEAR(arrow[0].to.rows, 814.0, 1e-9);
    whileDialogOpen = [] {
        paintDialog();
        EXPECT_EQ(dialogTextIn(idCalibrationText), "one\r\ntwo");
        EXPECT_FALSE(isEnabledInDialog(idSet)) << "nothing to keep";
        const Extent room = clientExtent(windows.main);
        const double factor = std::min(room.width / 1232.0, room.height / 1028.0);
        const int left = (room.width - static_cast<int>(1232 * factor)) / 2;
        const auto y = static_cast<int>((1027 - 700) * factor);
        EXPECT_TRUE(holds(left + static_cast<int>(616 * factor), y, 3, 0x00FF00));
        EXPECT_FALSE(holds(left + static_cast<int>(700 * factor), y, 3, 0x00FF00));
    };
    std::vector<uint32_t> picture(size_t{smallPictureWidth} * smallPictureHeight, 0x808080);
    showCalibration({"Test", {"one", "two"}, std::move(picture), arrow, {}});
}

TEST_F(CalibrationWindowTest, KeepIsForTheOperatorToPress) {
    int kept = 0;
    const CalibrationView view{"Test", {}, {}, {}, [&] { ++kept; }};
    whileDialogOpen = [] { pressInDialog(idCloseDialog); };
    showCalibration(view);
    EXPECT_EQ(kept, 0);
    whileDialogOpen = [] {
        const RunningProcess scan;
        pressInDialog(idSet);
    };
    showCalibration(view);
    EXPECT_EQ(kept, 0) << "in the middle of a scan";
    whileDialogOpen = [] { pressInDialog(idSet); };
    showCalibration(view);
    EXPECT_EQ(kept, 1);
}

TEST_F(CalibrationWindowTest, TheLaserSpotIsShownAndKept) {
    ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
    connectMissingCamera();
    cameraState.laserOffset = {1, 1};
    whileDialogOpen = [] { // "Cancel"
        EXPECT_EQ(dialogTitle, "Laser spot");
        EXPECT_EQ(dialogTextIn(idCalibrationText).substr(0, 35),
                  "Laser spot at column 640.0, row 500");
    };
    onCommand(idCalibrateSpot);
    EXPECT_EQ(cameraState.laserOffset.x, 1);
    whileDialogOpen = [] { pressInDialog(idSet); };
    onCommand(idCalibrateSpot);
    EXPECT_EQ(cameraState.laserOffset.x, 640);
    EXPECT_EQ(cameraState.laserOffset.y, 500);
    EXPECT_EQ(textIn(Field::Information).substr(0, 32), "Laser spot: column 640, row 500,");
}

// What was stopped shows no window.
TEST_F(CalibrationWindowTest, AStoppedOneShowsNothing) {
    ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
    whileDialogOpen = [] { ADD_FAILURE() << dialogTitle; };
    in(500, [] { postCommand(idStart); });
    answer("stop", BoxAnswer::Yes);
    onCommand(idCalibrateDark);
    EXPECT_NE(textIn(Field::Information).find("stopped"), std::string::npos)
        << textIn(Field::Information);
}

} // namespace
