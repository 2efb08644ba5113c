// The main window scaled to its screen: everything is there, and the mouse means the same.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <utility>

class Fit : public ProgramRun {
protected:
    // A pixel of the window and the picture's under it.
    struct Spot {
        int x, y, column, row;
    };

    void start(const char* options) {
        if (*options) {
            std::filesystem::create_directories(dataRoot());
            std::ofstream(dataRoot() / "Options.ini") << options;
        }
        ASSERT_NO_FATAL_FAILURE(writeSettings("step:2.0, laser:4.00, laser correct:(600,500)"));
        program = startProgram(layDesk(true));
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(awaitPicture());
    }

    RECT place(HWND window) const {
        RECT at{};
        GetWindowRect(window, &at);
        POINT client{0, 0};
        ClientToScreen(program.window, &client);
        OffsetRect(&at, -client.x, -client.y);
        return at;
    }
    bool awaitStartWidth(int least, int most) const {
        return await(
            [&] {
                const RECT at = place(startButton());
                return at.right - at.left >= least && at.right - at.left <= most;
            },
            quickly);
    }

    // "Start" stands 30 pixels beside the picture, as it is scaled itself.
    int shownWidth() const {
        const RECT at = place(startButton());
        return static_cast<int>(at.left - std::lround(30.0 * (at.right - at.left) / 70.0));
    }
    Spot spotAt(int x, int y) const {
        const double scale = shownWidth() / 1232.0;
        const double rows = std::lround(1028 * scale) / 1028.0;
        return {x, y, static_cast<int>((x + 0.5) / scale), static_cast<int>((y + 0.5) / rows)};
    }

    bool showsWhole(HWND window) const {
        RECT at{}, client{};
        GetWindowRect(window, &at);
        MapWindowPoints(nullptr, program.window, reinterpret_cast<POINT*>(&at), 2);
        GetClientRect(program.window, &client);
        constexpr LONG hair = 2; // one of them is a pixel wider than the window as ever
        return at.left >= 0 && at.top >= 0 && at.right <= client.right + hair &&
               at.bottom <= client.bottom + hair;
    }

    // The area that a drag selects, as the question and the log have it.
    std::string areaOf(int x1, int y1, int x2, int y2) {
        drag(program, x1, y1, x2, y2);
        const Box box = awaitBox(program, patiently);
        EXPECT_TRUE(answerBox(box, IDYES));
        EXPECT_TRUE(awaitText(progress(), "New scan area was selected.", patiently));
        EXPECT_TRUE(await([&] { return IsWindowEnabled(program.window) != FALSE; }, quickly));
        return box.caption;
    }

    // Where a click sends the stage.
    std::string placeOf(int x, int y) {
        drag(program, x, y, x, y);
        const Box box = awaitBox(program, patiently);
        std::string said = box.caption.substr(0, box.caption.find(','));
        EXPECT_TRUE(answerBox(box, IDYES));
        const HWND edits[] = {controlById(program, idPositionX), controlById(program, idPositionY)};
        for (HWND edit : edits)
            EXPECT_TRUE(await([&] { return textOf(edit) != "0.0"; }, patiently));
        std::string last; // the stage rests when two looks find the same
        EXPECT_TRUE(await(
            [&] {
                Sleep(700);
                const std::string now = textOf(edits[0]) + " " + textOf(edits[1]);
                return now == std::exchange(last, now);
            },
            patiently));
        for (HWND edit : edits) said += " " + textOf(edit);
        return said;
    }
};

TEST_F(Fit, ASmallScreenHoldsEverythingAndTheMouseMeansTheSame) {
    ASSERT_NO_FATAL_FAILURE(start(""));
    RECT at{};
    GetWindowRect(program.window, &at);
    const RECT unscaled{0, 0, 1462, 1108};
    EXPECT_TRUE(EqualRect(&at, &unscaled));

    click(controlById(program, idLiveOff)); // no frame comes and paints over what is missing
    command(program, idFitToScreen);
    ASSERT_TRUE(awaitStartWidth(50, 69));
    HDC view = GetDC(program.window);
    EXPECT_TRUE(await([&] { return GetPixel(view, 300, 300) != RGB(255, 255, 255); }, quickly));
    ReleaseDC(program.window, view);
    GetWindowRect(program.window, &at);
    EXPECT_GE(at.left, 0);
    EXPECT_GE(at.top, 0);
    EXPECT_LE(at.right, 1366);
    EXPECT_LE(at.bottom, 768);
    EXPECT_TRUE(await(
        [&] {
            for (HWND child = GetWindow(program.window, GW_CHILD); child;
                 child = GetWindow(child, GW_HWNDNEXT))
                if (!showsWhole(child)) return false;
            return true;
        },
        quickly));
    EXPECT_LT(shownWidth(), 900);
    EXPECT_GT(shownWidth(), 700);

    const Spot from = spotAt(300, 250), to = spotAt(420, 371), clicked = spotAt(500, 200);
    double width = 0.0, height = 0.0;
    const std::string area = areaOf(from.x, from.y, to.x, to.y);
    std::sscanf(area.c_str(), "Area: %lf um x %lf", &width, &height);
    EXPECT_NEAR(width, (to.column - from.column) * labUmPerPixel, 0.4);
    EXPECT_NEAR(height, (to.row - from.row) * labUmPerPixel, 0.4);
    int column = 0;
    double x = 0.0, y = 0.0;
    const std::string stage = placeOf(clicked.x, clicked.y);
    std::sscanf(stage.c_str(), "Position: (%d %lf %lf", &column, &x, &y);
    EXPECT_NEAR(column, clicked.column, 1);
    EXPECT_NEAR(x, (clicked.column - labCentreColumn) * labUmPerPixel, 3.5);
    EXPECT_NEAR(y, (labCentreRow - clicked.row) * labUmPerPixel, 3.5);
    command(program, idFitToScreen);
    ASSERT_TRUE(await([&] { return place(startButton()).left == 1262; }, quickly));
    GetWindowRect(program.window, &at);
    EXPECT_EQ(at.right - at.left, 1462);
    EXPECT_EQ(at.bottom - at.top, 1108);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}

class FitSharp : public Fit {};

TEST_F(FitSharp, HasItsFullSizeInTheScreensOwnPixels) {
    ASSERT_NO_FATAL_FAILURE(start("fit to screen = yes\n"));
    SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
    RECT at{};
    GetWindowRect(program.window, &at);
    EXPECT_EQ(at.right - at.left, 2193);
    EXPECT_EQ(at.bottom - at.top, 1662);
    ASSERT_TRUE(awaitStartWidth(105, 105));
    EXPECT_EQ(shownWidth(), 1848);
    const Spot clicked = spotAt(1000, 600);
    const std::string stage = placeOf(clicked.x, clicked.y);
    EXPECT_NE(stage.find("(" + std::to_string(clicked.column) + " "), std::string::npos) << stage;
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
