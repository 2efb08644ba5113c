// An operator reads a map of the real program, zooms into it and goes to a point of it.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <algorithm>
#include <cmath>

namespace fs = std::filesystem;

class MapWindow : public ProgramRun {
protected:
    void start() {
        ASSERT_NO_FATAL_FAILURE(writeLabSettings(5.0));
        program = startProgram(layDesk(true));
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(awaitPicture());
    }

    // The map of that many cells, in uA.
    static std::vector<std::vector<double>> mapOf(const char* size) {
        for (const std::string& name : filesIn(session()))
            if (name.starts_with(std::string("Kestrel(") + size)) return readMap(session() / name);
        return {};
    }

    static void move(HWND window, POINT at) {
        ClientToScreen(window, &at);
        SetCursorPos(at.x, at.y);
    }
};

TEST_F(MapWindow, ZoomsAndGoesWhereTheMapShowsIt) {
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(selectArea(446, 344, 788, 686)); // 50 um
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    const auto overview = mapOf("10X10");
    ASSERT_EQ(overview.size(), 10u);
    const HWND map = topWindow(program, "Kestrel");
    ASSERT_TRUE(map);
    constexpr int cell = 39, column = 6, row = 3; // of 390 pixels
    move(map, {column * cell + cell / 2, row * cell + cell / 2});
    EXPECT_TRUE(awaitText(map, "column 7, row 7", quickly)) << textOf(map);
    double value = 0.0;
    char unit[8] = "";
    std::sscanf(textOf(map).c_str(), "%lf %7[a-zA-Z]", &value, unit);
    const double uA = std::string(unit) == "uA" ? value : value * 1e-3;
    EXPECT_NEAR(uA, overview[row][column], 1e-3 * std::fabs(overview[row][column]) + 1e-6) << unit;
    move(program.window, {1400, 1000});
    EXPECT_TRUE(awaitText(map, "Photocurrent map", quickly)) << textOf(map);

    // A smaller step, and the square of 15 um around that cell.
    typeAndEnter(scanStep(), "1.5");
    const int x = column * cell + cell / 2, y = row * cell + cell / 2, half = 59;
    dragOn(map, x - half, y - half, x + half, y + half);
    Box box = awaitBox(program, quickly);
    ASSERT_EQ(box.text, "Do you want to set it for next scan area");
    EXPECT_EQ(box.caption.substr(0, 8), "Area: 15") << box.caption;
    ASSERT_TRUE(answerBox(box, IDYES));
    ASSERT_TRUE(awaitText(progress(), "New scan area was selected.", patiently));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    const auto zoomed = mapOf("11X11");
    ASSERT_EQ(zoomed.size(), 11u);
    // Where the first map had its cell the second one has the same current, within a step.
    double least = 9e9, most = -9e9;
    for (int r = 4; r <= 6; ++r)
        for (int c = 4; c <= 6; ++c) {
            const double current = zoomed[static_cast<size_t>(r)][static_cast<size_t>(c)];
            least = std::min(least, current);
            most = std::max(most, current);
        }
    EXPECT_GE(overview[row][column], least - 0.02);
    EXPECT_LE(overview[row][column], most + 0.02);
    // And each cell what the sample has there.
    const double left = (446 - labCentreColumn) * labUmPerPixel + 3;
    const double bottom = (labCentreRow - 686) * labUmPerPixel + 2;
    for (size_t r = 0; r < zoomed.size(); ++r)
        for (size_t c = 0; c < zoomed.size(); ++c) {
            const double sampleX = left + 5.0 * column - 7.5 + 1.5 * static_cast<double>(c);
            const double sampleY =
                bottom + 5.0 * (9 - row) - 7.5 + 1.5 * static_cast<double>(10 - r);
            double lowest = 9e9, highest = -9e9;
            // Within a step, as a drag by whole pixels and the stage's arrival allow.
            for (double dx : {-1.0, -0.5, 0.0, 0.5, 1.0})
                for (double dy : {-1.0, -0.5, 0.0, 0.5, 1.0})
                    for (double z : {0.0, 0.4, 0.8}) {
                        const double current =
                            1e6 * expectedCurrent(sampleX + dx, sampleY + dy, 4.0, z, 0.0);
                        lowest = std::min(lowest, current);
                        highest = std::max(highest, current);
                    }
            EXPECT_GE(zoomed[r][c], lowest - 0.01) << r << " " << c;
            EXPECT_LE(zoomed[r][c], highest + 0.01) << r << " " << c;
        }

    // A profile, and the way to a point.
    dragOn(map, 20, 100, 300, 100, MouseButton::Right);
    HWND profile = nullptr;
    ASSERT_TRUE(await([&] { return (profile = topWindow(program, "IV")) != nullptr; }, quickly));
    PostMessageW(profile, WM_COMMAND, idProfileSave, 0);
    EXPECT_TRUE(await([&] { return fs::exists(session() / "profile(0).txt"); }, quickly));
    PostMessageW(profile, WM_CLOSE, 0, 0);
    const HWND xEdit = controlById(program, idPositionX);
    const std::string before = textOf(xEdit);
    PostMessageW(map, WM_LBUTTONDBLCLK, MK_LBUTTON, MAKELPARAM(30, 30));
    box = awaitBox(program, quickly);
    ASSERT_EQ(box.text, "Do you want to move this point under the laser spot?");
    double wantedX = 0.0;
    std::sscanf(box.caption.c_str(), "Position: X %lf", &wantedX);
    ASSERT_TRUE(answerBox(box, IDYES));
    EXPECT_TRUE(await([&] { return std::fabs(std::atof(textOf(xEdit).c_str()) - wantedX) < 0.11; },
                      patiently))
        << before << ", " << wantedX << ", " << textOf(xEdit);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
