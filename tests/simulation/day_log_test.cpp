// The log of the day and the page of the devices: what an operator finds there an hour later.
#include "tests/simulation/whole_run.h"

#include "camera/camera.h"
#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "instruments/usb_sourcemeter.h"
#include "motion/stage.h"
#include "platform/clock.h"
#include "platform/messages.h"
#include "screen/control_ids.h"
#include "session/forced_end.h"
#include "session/process.h"
#include "session/refusals.h"
#include "ui/commands.h"
#include "ui/devices_page.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <thread>

namespace {

using DayLogTest = WholeRunTest;

constexpr const char* logFile = "KST_Data/Log/2026-03-07.txt";

void connectStages() {
    openStages(2, motorSpeed);
}

void connectFirstCamera() {
    initCamera(cameraState);
    controlCamera(cameraState, cameraAutomatic);
}

void connectBoard() {
    connectLaserBoard(nullptr);
}

void connectMultimeter() {
    gpibMultimeterOpen(18);
}

void connectSourcemeter() {
    usbSourcemeterOpen(0.0);
}

void connectAnalyzer() {
    paOpen(analyzerNetwork, 18, 192, 168, 0, 10, 1225);
}

void holdCamera() {
    replaceFunction(
        "PylonDeviceOpen", +[](void*, int) { return 0xC3000001u; });
    replaceFunction(
        "GenApiGetLastErrorMessage", +[](char* text, size_t*) {
            std::strcpy(text, "The device is controlled by another application.");
            return 0u;
        });
}

void spoilStageLibrary() {
    libraries.absent = {"libximc.dll"};
    libraries.trouble = "C:\\Lumascan\\libximc.dll is there and does not load: (193)";
}

TEST_F(DayLogTest, DevicesPageTellsTheFaultsApart) {
    const struct {
        const char* fault;
        void (*spoil)();
        void (*connect)();
        const char* line; // of the page, from its label on and without the time
        const char* box = nullptr;
    } cases[] = {
        {"", nullptr, connectStages, "Library      C:\\Lumascan\\libximc.dll, version 1.2.3.4"},
        {"", nullptr, connectStages, "Answered     3 controllers (libximc "},
        {"", [] { libraries.allAbsent = true; }, connectStages,
         "Library      libximc.dll not found, neither beside the program nor by the system"},
        {"", spoilStageLibrary, connectStages, "does not load: (193)"},
        {"stage absent", nullptr, connectStages, "Failed last  no controller found"},
        {"stage count 2", nullptr, connectStages, "Failed last  no controller  [Stage Z]"},
        {"", nullptr, connectFirstCamera, "Answered     opened"},
        {"camera absent", nullptr, connectFirstCamera, "Failed last  No camera found"},
        {"", [] { libraries.absent = {"PylonC_v9.dll"}; }, connectFirstCamera,
         "Library      not found, neither beside the program nor by the system: PylonC_v11.dll"},
        {"", holdCamera, connectFirstCamera,
         "Failed last  PylonDeviceOpen: The device is controlled by another application. "
         "(0xC3000001)"},
        {"", nullptr, connectBoard, "Answered     answers 3 of 3 questions on COM10"},
        {"", [] { laserLink.comPort = 11; }, connectBoard,
         "Looked for   COM11, 9600 baud; this computer has COM3, COM10", "serial port"},
        {"", [] { laserLink.comPort = 11; }, connectBoard,
         "Failed last  COM11 does not open: The system cannot find the file specified (2)",
         "serial port"},
        {"", [] { serial.refuseOpen = true; }, connectBoard,
         "Failed last  COM10 does not open: Access is denied (5)", "serial port"},
        {"", [] { serial.scripted = true; }, connectBoard,
         "Failed last  COM10 opens, but no board answers there"},
        {"gpib error ibdev", nullptr, connectMultimeter, "Failed last  ibdev Error: status ERR"},
        {"multimeter absent", nullptr, connectMultimeter, "ENOL <No Listener>"},
        {"k2450 absent", nullptr, connectSourcemeter, "Failed last  viOpen: "},
        {"", nullptr, connectSourcemeter, "Answered     KEITHLEY INSTRUMENTS,MODEL 2450,"},
        {"analyzer absent", nullptr, connectAnalyzer,
         "Failed last  no connection to 192.168.0.10 port 1225"},
    };
    for (const auto& each : cases) {
        removeTempDesktop();
        prepareWorld();
        ASSERT_TRUE(applyLabFaults(each.fault));
        libraries.version = "1.2.3.4";
        if (each.spoil) each.spoil();
        if (each.box) answer(each.box, BoxAnswer::Ok);
        each.connect();
        std::string page = devicesPage();
        for (size_t at = 0; (at = page.find("14:05:00  ", at)) != std::string::npos;)
            page.erase(at, 10);
        EXPECT_NE(page.find(each.line), std::string::npos) << each.fault << "\n" << page;
        EXPECT_NE(contentOf(logFile), "") << each.fault;
    }
}

std::vector<std::string> logLines() {
    std::vector<std::string> lines;
    std::istringstream text(contentOf(logFile));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

TEST_F(DayLogTest, TellsAScanInOrderAndCountsItsPoints) {
    size_t linesOfScan[2] = {};
    for (const double width : {12.0, 30.0}) { // micrometres: 35 and 160 points
        removeTempDesktop();
        prepareWorld();
        libraries.version = "1.2.3.4";
        writeSettings(2.0, false);
        afterReadings(20, [] {
            postKey(keyPageUp);
            postCommand(idIlluminationOff);
        });
        runProgramOver(width, width);
        // The step that saves fails in the same way: the others are tried nevertheless.
        const auto end = [] {
            runProcess(
                "Test", []() -> Outcome { endProgram("a reason"); }, [] { endProgram("a step"); });
        };
        EXPECT_DEATH(std::thread(end).join(), "a step");
        const std::vector<std::string> lines = logLines();
        size_t at = 0;
        for (const char* wanted :
             {"Lumascan 1.0.0 starts",
              "Stage library: C:\\Lumascan\\libximc.dll, version 1.2.3.4",
              "Stage: 3 controllers",
              "Laser board: looking for COM10",
              "Laser board: answers 3 of 3",
              "Instrument at start: Arduino",
              "Camera: found",
              "Illumination on",
              "Box \"Area: ",
              ", answered: Yes",
              "Scan area: ",
              "Mapping: begins",
              "Mapping: ",
              "Box \"Scan area checking\": Hysteresis compensated. Is it okay?",
              "Box \"Scan area checking\", answered: Yes",
              "Illumination off",
              "Laser on, 16.0 uA",
              "Key: Z +1 um",
              "Command: illuminate Off",
              "0 in doubt",
              "Illumination on",
              "Laser off",
              "Written: 260307_14-05\\Kestrel(",
              "Mapping: ended after ",
              "The main window is closed",
              "Lumascan ends",
              "Ended by force: lights told to be off",
              "Ended by force: a step"}) {
            while (at < lines.size() && lines[at].find(wanted) == std::string::npos) ++at;
            ASSERT_LT(at, lines.size()) << wanted << "\n" << contentOf(logFile);
            EXPECT_TRUE(lines[at].starts_with("14:05:00 ") && lines[at].ends_with("\r"));
        }
        linesOfScan[width > 20.0] = lines.size();
    }
    EXPECT_EQ(linesOfScan[0], linesOfScan[1]);
}

TEST_F(DayLogTest, ADeviceThatComesAndGoesDoesNotFillIt) {
    constexpr size_t largestHour = 1'000'000 / 24;
    const size_t before = contentOf(logFile).size();
    for (int i = 0; i < 36'000; ++i) { // an hour of live view
        printRefusal("Camera", "PylonDeviceOpen: The device is controlled by another application.");
        printNews("Camera", "frames arrive");
        sleepMs(100);
    }
    EXPECT_LT(contentOf(logFile).size() - before, largestHour / 4); // and there are others
    EXPECT_NE(contentOf(logFile).find(" lines left out) Camera: "), std::string::npos);
}

// Another thread than the windows' ends the program by force, perhaps in the middle of their words.
TEST_F(DayLogTest, TheWordsOfOtherThreadsAreTheirOwn) {
    const auto refuse = [] { printRefusal("Stage X", "no answer"); };
    for (int i = 0; i < 2; ++i) std::thread(refuse).join();
    refuse();
    std::thread([] { forgetRefusal("Stage X"); }).join();
    refuse();
    std::vector<std::string> lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "14:05:00 Stage X: no answer\r"), 3);
}

TEST_F(DayLogTest, ALogThatCannotBeWrittenStopsNothing) {
    refusedFile = "/Log/";
    writeSettings(4.0, false);
    testing::internal::CaptureStdout();
    runProgramOver(12, 8);
    const std::string said = testing::internal::GetCapturedStdout();
    const size_t first = said.find("The log of the day could not be written");
    EXPECT_NE(first, std::string::npos);
    EXPECT_EQ(said.find("The log of the day", first + 1), std::string::npos);
    EXPECT_NE(sessionFile("Kestrel"), "");
    openBareWindow();
    onCommand(idShowLog);
    EXPECT_EQ(contentOf(logFile), "");
    EXPECT_TRUE(textIn(Field::Information).ends_with("Log\\2026-03-07.txt")) << "where it lies";
}

} // namespace
