// The main window scaled to its screen: everything is there, and the mouse means the same.
#include "tests/window/program_run.h"

#include <cmath>
#include <cstdlib>
#include <fstream>

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
        return at.left >= 0 && at.top >= 0 && at.right <= client.right &&
               at.bottom <= client.bottom;
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

    // Where a click sends the stage from 0; it is back there afterwards.
    std::string placeOf(int x, int y) {
        drag(program, x, y, x, y);
        const Box box = awaitBox(program, patiently);
        std::string said = box.caption.substr(0, box.caption.find(','));
        EXPECT_TRUE(answerBox(box, IDYES));
        const HWND edits[] = {controlById(program, idPositionX), controlById(program, idPositionY)};
        for (HWND edit : edits)
            EXPECT_TRUE(await([&] { return textOf(edit) != "0.0"; }, patiently));
        Sleep(500); // the last read-out
        for (HWND edit : edits) said += " " + textOf(edit);
        for (HWND edit : edits) {
            typeAndEnter(edit, "0");
            EXPECT_TRUE(
                await([&] { return std::fabs(std::atof(textOf(edit).c_str())) < 1.0; }, patiently))
                << textOf(edit);
        }
        return said;
    }
};

TEST_F(Fit, ASmallScreenHoldsEverythingAndTheMouseMeansTheSame) {
    ASSERT_NO_FATAL_FAILURE(start(""));
    RECT at{};
    GetWindowRect(program.window, &at);
    const RECT unscaled{0, 0, 1462, 1108};
    EXPECT_TRUE(EqualRect(&at, &unscaled));

    command(program, idFitToScreen);
    ASSERT_TRUE(awaitStartWidth(50, 69));
    GetWindowRect(program.window, &at);
    EXPECT_GE(at.left, 0);
    EXPECT_GE(at.top, 0);
    EXPECT_LE(at.right, 1366);
    EXPECT_LE(at.bottom, 768);
    for (HWND child = GetWindow(program.window, GW_CHILD); child;
         child = GetWindow(child, GW_HWNDNEXT))
        EXPECT_TRUE(showsWhole(child)) << textOf(child);
    EXPECT_LT(shownWidth(), 900);
    EXPECT_GT(shownWidth(), 700);

    const Spot from = spotAt(300, 250), to = spotAt(420, 371), clicked = spotAt(500, 200);
    const std::string area = areaOf(from.x, from.y, to.x, to.y);
    const std::string stage = placeOf(clicked.x, clicked.y);
    command(program, idFitToScreen);
    ASSERT_TRUE(await([&] { return place(startButton()).left == 1262; }, quickly));
    GetWindowRect(program.window, &at);
    EXPECT_EQ(at.right - at.left, 1462);
    EXPECT_EQ(at.bottom - at.top, 1108);
    EXPECT_EQ(areaOf(from.column, from.row, to.column, to.row), area);
    EXPECT_EQ(placeOf(clicked.column, clicked.row), stage);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    // What was saved is the picture itself: it does not show how it was looked at.
    const auto folder = session();
    EXPECT_EQ(contentOf(folder / "optics(0).jpg").substr(0, 24),
              contentOf(folder / "optics(1).jpg").substr(0, 24));
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
