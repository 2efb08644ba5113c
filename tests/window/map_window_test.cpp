// An operator reads a map of the real program, zooms into it and goes to a point of it.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <algorithm>
#include <cmath>

namespace fs = std::filesystem;

class MapWindow : public ProgramRun {
protected:
    void start() {
        ASSERT_NO_FATAL_FAILURE(writeLabSettings(10.0));
        program = startProgram(layDesk(true));
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(awaitPicture());
    }

    // The newest map, in uA.
    static std::vector<std::vector<double>> newestMap() {
        fs::path newest;
        for (const std::string& name : filesIn(session())) {
            const fs::path file = session() / name;
            if (name.starts_with("Kestrel(") && name.ends_with(".txt") &&
                (newest.empty() || fs::last_write_time(file) > fs::last_write_time(newest)))
                newest = file;
        }
        return readMap(newest);
    }

    // Where the first point of a map lies on the sample, um, and how far apart they are.
    struct Overview {
        double left, bottom, step;
        // Of the square of 3 cells and a little around one of them.
        Overview around(int column, int row, double nextStep) const {
            return {left + step * (column - 1.5), bottom + step * (row - 1.5), nextStep};
        }
    };

    // Each cell is what the sample has there: within a micrometre, as drags by whole pixels and the
    // stage's arrival allow.
    static void expectMap(const std::vector<std::vector<double>>& map, const Overview& of) {
        for (size_t r = 0; r < map.size(); ++r)
            for (size_t c = 0; c < map[r].size(); ++c) {
                const double x = of.left + of.step * static_cast<double>(c);
                const double y = of.bottom + of.step * static_cast<double>(map.size() - 1 - r);
                double lowest = 9e9, highest = -9e9;
                for (double dx : {-1.0, -0.5, 0.0, 0.5, 1.0})
                    for (double dy : {-1.0, -0.5, 0.0, 0.5, 1.0})
                        for (double z : {0.0, 0.4, 0.8}) {
                            const double current =
                                1e6 * expectedCurrent(x + dx, y + dy, 4.0, z, 0.0);
                            lowest = std::min(lowest, current);
                            highest = std::max(highest, current);
                        }
                EXPECT_GE(map[r][c], lowest - 0.01) << of.step << " um: " << r << " " << c;
                EXPECT_LE(map[r][c], highest + 0.01) << of.step << " um: " << r << " " << c;
            }
    }

    // A smaller step, the square of 118 pixels around the point, and its scan.
    void zoom(HWND map, const char* step, const std::string& area, POINT at) {
        typeAndEnter(scanStep(), step);
        constexpr int half = 59;
        dragOn(map, at.x - half, at.y - half, at.x + half, at.y + half);
        const Box box = awaitBox(program, quickly);
        ASSERT_EQ(box.text, "Do you want to set it for next scan area");
        EXPECT_EQ(box.caption.substr(0, 8), area) << box.caption;
        ASSERT_TRUE(answerBox(box, IDYES));
        ASSERT_TRUE(awaitText(progress(), "New scan area was selected.", patiently));
        ASSERT_NO_FATAL_FAILURE(startScan());
        ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    }

    static void move(HWND window, POINT at) {
        ClientToScreen(window, &at);
        SetCursorPos(at.x, at.y);
    }
};

TEST_F(MapWindow, ZoomsAndGoesWhereTheMapShowsIt) {
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(selectArea(274, 172, 958, 856)); // 100 um
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    const Overview whole{(274 - labCentreColumn) * labUmPerPixel + 3,
                         (labCentreRow - 856) * labUmPerPixel + 2, 10.0};
    const auto overview = newestMap();
    ASSERT_EQ(overview.size(), 10u);
    expectMap(overview, whole);
    const HWND map = topWindow(program, "Kestrel");
    ASSERT_TRUE(map);
    constexpr int cell = 39, column = 5, row = 4; // of 390 pixels
    move(map, {column * cell + cell / 2, row * cell + cell / 2});
    EXPECT_TRUE(awaitText(map, "column 6, row 6", quickly)) << textOf(map);
    double value = 0.0;
    char unit[8] = "";
    std::sscanf(textOf(map).c_str(), "%lf %7[a-zA-Z]", &value, unit);
    const double uA = std::string(unit) == "uA" ? value : value * 1e-3;
    EXPECT_NEAR(uA, overview[row][column], 1e-3 * std::fabs(overview[row][column]) + 1e-6) << unit;
    move(program.window, {1400, 1000});
    EXPECT_TRUE(awaitText(map, "Photocurrent map", quickly)) << textOf(map);

    // 30 um around that cell, and of those the 10 um in the middle.
    Overview zoomed = whole.around(column, 9 - row, 3.0);
    ASSERT_NO_FATAL_FAILURE(
        zoom(map, "3", "Area: 30", {column * cell + cell / 2, row * cell + cell / 2}));
    ASSERT_EQ(newestMap().size(), 11u);
    expectMap(newestMap(), zoomed);
    zoomed = zoomed.around(5, 5, 1.0);
    ASSERT_NO_FATAL_FAILURE(zoom(map, "1", "Area: 10", {5 * 35 + 17, 5 * 35 + 17}));
    expectMap(newestMap(), zoomed);

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
    const Box box = awaitBox(program, quickly);
    ASSERT_EQ(box.text, "Do you want to move this point under the laser spot?");
    double wantedX = 0.0;
    std::sscanf(box.caption.c_str(), "Position: X %lf", &wantedX);
    ASSERT_TRUE(answerBox(box, IDYES));
    EXPECT_TRUE(await([&] { return std::fabs(std::atof(textOf(xEdit).c_str()) - wantedX) < 0.11; },
                      patiently))
        << before << ", " << wantedX << ", " << textOf(xEdit);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
