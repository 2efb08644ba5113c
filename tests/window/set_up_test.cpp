// The sheet "Set-up" of the real program, by its keys.
#include "tests/window/program_run.h"

#include <prsht.h>

class SetUpSheet : public ProgramRun {
protected:
    HWND sheet = nullptr;

    void open() {
        command(program, idSetUp);
        ASSERT_TRUE(await(
            [&] {
                sheet = topWindow(program, "#32770");
                return sheet && textOf(sheet) == "Set-up" && page() &&
                       ofLabel("Speed (full steps/s)");
            },
            quickly));
        ASSERT_TRUE(await([&] { return !textOf(ofLabel("um per turn")).empty(); }, quickly));
    }
    HWND page() const {
        return reinterpret_cast<HWND>(SendMessageA(sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
    }
    void turnTo(WPARAM index) const { SendMessageA(sheet, PSM_SETCURSEL, index, 0); }

    // The first field behind the label, on whatever page.
    HWND ofLabel(const std::string& label) const {
        struct Search {
            std::string label;
            HWND found;
        } search{label, nullptr};
        EnumChildWindows(
            sheet,
            [](HWND child, LPARAM of) -> BOOL {
                auto& wanted = *reinterpret_cast<Search*>(of);
                if (textOf(child) == wanted.label) wanted.found = GetWindow(child, GW_HWNDNEXT);
                return wanted.found == nullptr;
            },
            reinterpret_cast<LPARAM>(&search));
        return search.found;
    }
    HWND focus() const {
        GUITHREADINFO info{};
        info.cbSize = sizeof info;
        GetGUIThreadInfo(GetWindowThreadProcessId(sheet, nullptr), &info);
        return info.hwndFocus;
    }
    static void type(HWND edit, const char* text) {
        SendMessageA(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    }
    void press(WPARAM key) const { PostMessageA(focus(), WM_KEYDOWN, key, 0); }

    // The sheet's notice has its class and its caption.
    HWND notice() const {
        HWND box = nullptr;
        while ((box = FindWindowExA(nullptr, box, "#32770", "Set-up")))
            if (box != sheet && IsWindowVisible(box)) return box;
        return nullptr;
    }
    bool awaitClosed() const {
        return await([&] { return !IsWindow(sheet); }, quickly) &&
               await([&] { return IsWindowEnabled(program.window) != FALSE; }, quickly);
    }
};

TEST_F(SetUpSheet, RefusesAtTheFieldAndTakesWithEnter) {
    const auto file = dataRoot() / "Setup.ini";
    program = startProgram(layDesk(true));
    ASSERT_TRUE(awaitMainWindow(program, patiently));
    ASSERT_TRUE(awaitPicture());
    ASSERT_NO_FATAL_FAILURE(open());
    EXPECT_FALSE(IsWindowEnabled(program.window));
    const HWND field = ofLabel("um per turn"), lowest = ofLabel("Lowest (um)");
    EXPECT_EQ(textOf(field), "250");
    turnTo(1);
    click(field);
    ASSERT_TRUE(await([&] { return focus() == field; }, quickly));
    type(field, "0");
    type(lowest, "-300");
    press(VK_TAB);
    EXPECT_TRUE(await([&] { return focus() == GetWindow(field, GW_HWNDNEXT); }, quickly));
    turnTo(3);
    const HWND serial = ofLabel("Camera serial number");
    click(serial);
    ASSERT_TRUE(await([&] { return focus() == serial && !IsWindowVisible(field); }, quickly));
    press(VK_RETURN);
    HWND box = nullptr;
    ASSERT_TRUE(await([&] { return (box = notice()) && GetDlgItem(box, IDOK); }, quickly));
    EXPECT_TRUE(IsWindowVisible(field)) << "its page is not turned to";
    std::string said;
    for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT))
        said += textOf(child);
    EXPECT_NE(said.find("X um per turn: 0.1 to 100000"), std::string::npos) << said;
    ASSERT_TRUE(answerBox({box, "", "", ""}, IDOK));
    ASSERT_TRUE(await([&] { return focus() == field; }, quickly));
    EXPECT_EQ(SendMessageA(field, EM_GETSEL, 0, 0), MAKELONG(0, 1));
    EXPECT_FALSE(IsWindowEnabled(program.window));
    EXPECT_EQ(contentOf(file), "");

    type(field, "500");
    press(VK_RETURN);
    ASSERT_TRUE(awaitClosed());
    EXPECT_EQ(contentOf(file), "X um per turn = 500\r\nlowest X (um) = -300\r\n");
    EXPECT_TRUE(awaitText(information(), "Set-up taken: the scan area is taken away", quickly));

    ASSERT_NO_FATAL_FAILURE(open());
    EXPECT_EQ(textOf(ofLabel("um per turn")), "500");
    type(ofLabel("um per turn"), "750");
    press(VK_ESCAPE);
    ASSERT_TRUE(awaitClosed());
    EXPECT_EQ(contentOf(file), "X um per turn = 500\r\nlowest X (um) = -300\r\n");
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
