// The program on a machine with no device at all.
#include "platform/text_format.h"
#include "tests/window/program_run.h"

#include <regex>

namespace fs = std::filesystem;

class EmptyTable : public ProgramRun {
protected:
    void start() {
        program = startProgram(layDesk(false));
        answer("Scanner Error", "No devices found", "OK", IDOK);
        answer("Warning", "Error in  opening serial port", "OK", IDOK);
        answer("Laser Error", "No Arduino devices found", "OK", IDOK);
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(await([&] { return isChecked(program, idLiveOn); }, patiently));
        ASSERT_FALSE(openBox(program).window);
    }

    static std::string mapName(const char* prefix) {
        return std::string(prefix) + "(3X2)Step1.0um LaserIntensity16.0 Bias0.0V.txt";
    }
};

TEST_F(EmptyTable, MovesOnPaperAndSavesMapsOfZeros) {
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_FALSE(fs::exists(dataRoot() / "Config.txt"));
    EXPECT_TRUE(isChecked(program, idIlluminationOn));
    EXPECT_TRUE(isChecked(program, idLaserOff));
    EXPECT_TRUE(isChecked(program, idSampleView));

    // Nobody has chosen a viewer for texts.
    RegDeleteTreeW(HKEY_CLASSES_ROOT, L".txt");
    command(program, idShowLog);
    HWND editor = nullptr;
    EXPECT_TRUE(await([&] { return (editor = FindWindowW(L"Notepad", nullptr)); }, quickly));
    EXPECT_NE(textOf(editor).find(".txt"), std::string::npos) << textOf(editor);
    PostMessageW(editor, WM_CLOSE, 0, 0);
    command(program, idDevices);
    Box page = awaitBox(program, patiently);
    ASSERT_EQ(page.caption, "Devices");
    const std::string devices = textOf(GetDlgItem(page.window, idDevicesText));
    for (const char* line : {"Library      libximc.dll not found",
                             "Library      not found, neither", "COM10 does not open"})
        EXPECT_NE(devices.find(line), std::string::npos) << devices;
    ASSERT_TRUE(answerBox(page, IDCANCEL));

    HWND x = controlById(program, idPositionX);
    EXPECT_EQ(textOf(x), "0.0");
    typeAndEnter(x, "25");
    EXPECT_TRUE(awaitText(x, "25.0", quickly));
    // Tab goes from edit to button, never to a radio button, which it would press, and does not
    // take the arrows away.
    const auto focused = [&] {
        GUITHREADINFO info{};
        info.cbSize = sizeof info;
        GetGUIThreadInfo(GetWindowThreadProcessId(program.window, nullptr), &info);
        return info.hwndFocus;
    };
    SetForegroundWindow(program.window);
    HWND at = focused();
    std::string stops;
    for (int i = 0; i < 12; ++i) {
        PostMessageW(at, WM_KEYDOWN, VK_TAB, 0);
        HWND before = at;
        ASSERT_TRUE(await([&] { return (at = focused()) && at != before; }, quickly)) << stops;
        stops += formatted("%d ", GetDlgCtrlID(at));
    }
    for (const int id : {idStart, idWideView, idLaserIntensity, idFocus, idPositionZ, idPositionX})
        EXPECT_NE((" " + stops).find(formatted(" %d ", id)), std::string::npos) << stops;
    for (const int id : {idLaserOn, idIlluminationOff, idLaserView, idLiveOff})
        EXPECT_EQ((" " + stops).find(formatted(" %d ", id)), std::string::npos) << stops;
    EXPECT_TRUE(isChecked(program, idLaserOff));
    pressKey(program, VK_LEFT);
    EXPECT_TRUE(awaitText(x, "-75.0", quickly));

    // Three columns and two rows with the default step of 1 um (6.84 pixels).
    ASSERT_NO_FATAL_FAILURE(selectArea(600, 500, 615, 507));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd(". Not reached: 6 from row 1, column 1"));
    EXPECT_EQ(textOf(x), "-75.0");
    ASSERT_NO_FATAL_FAILURE(closeProgram());

    ASSERT_EQ(filesIn(dataRoot() / "Log").size(), 1u);
    const std::string log = contentOf(dataRoot() / "Log" / filesIn(dataRoot() / "Log")[0]);
    EXPECT_TRUE(std::regex_search(log, std::regex(R"(^\d\d:\d\d:\d\d Lumascan \S+ starts\r\n)")))
        << log;
    EXPECT_TRUE(log.ends_with(" Lumascan ends\r\n")) << log;
    ASSERT_TRUE(std::regex_match(session().filename().string(), std::regex(R"(\d{6}_\d\d-\d\d)")));
    std::vector<std::string> files{
        "CONFOCAL(5).jpg",    "CONF_B(4).jpg",
        "CONF_G(3).jpg",      "CONF_R(2).jpg",
        mapName("ConfocalB"), mapName("ConfocalG"),
        mapName("ConfocalR"), "KST(1).jpg",
        mapName("Kestrel"),   "Lumascan(3X2)Step1.0um LaserIntensity16.0 Bias0.0V.gwy",
        "optics(0).jpg"};
    EXPECT_EQ(filesIn(session()), files);
    EXPECT_EQ(contentOf(session() / mapName("Kestrel")),
              "0.000000,0.000000,0.000000,\r\n0.000000,0.000000,0.000000,\r\n");
    for (const std::string& name : files) {
        if (name.ends_with(".jpg")) {
            EXPECT_TRUE(contentOf(session() / name).starts_with("\x89PNG\r\n\x1a\n")) << name;
        }
    }
    EXPECT_TRUE(std::regex_match(
        contentOf(dataRoot() / "Config.txt"),
        std::regex("step:1\\.0, laser:4\\.00, laser correct:\\(0,0\\), Ammeter:0, GPIB:18, "
                   "IP:\\d+,\\d+,\\d+,\\d+,1225, Standa:2, arduino_LD:10, 1\r\n")));
}

TEST_F(EmptyTable, TakesWhatItCanReadOfTheSettings) {
    const std::string enormous =
        "step:3.0, laser:2.00, laser correct:(" + std::string(5'000'000, '9');
    for (const std::string& line : {std::string(1'000'000, '\0'), enormous}) {
        ASSERT_NO_FATAL_FAILURE(writeSettings(line));
        ASSERT_NO_FATAL_FAILURE(start());
        const std::string step = line == enormous ? "3.0" : "1.0";
        EXPECT_EQ(textOf(scanStep()), step);
        ASSERT_NO_FATAL_FAILURE(closeProgram());
        EXPECT_TRUE(contentOf(dataRoot() / "Config.txt").starts_with("step:" + step));
    }
    fs::remove(dataRoot() / "Config.txt");
    fs::create_directory(dataRoot() / "Config.txt"); // no file can be read or written there
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(textOf(scanStep()), "1.0");
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
