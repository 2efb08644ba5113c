// Whole runs in the virtual laboratory, whose files are compared with the sample.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <gdiplus.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>

namespace fs = std::filesystem;

// A picture file as it was saved.
class Picture {
public:
    explicit Picture(const fs::path& file) {
        Gdiplus::GdiplusStartupInput input;
        Gdiplus::GdiplusStartup(&token, &input, nullptr);
        bitmap = std::make_unique<Gdiplus::Bitmap>(file.c_str());
    }
    ~Picture() {
        bitmap.reset();
        Gdiplus::GdiplusShutdown(token);
    }
    Picture(const Picture&) = delete;

    Gdiplus::Color at(int x, int y) const {
        Gdiplus::Color colour;
        bitmap->GetPixel(x, y, &colour);
        return colour;
    }

private:
    ULONG_PTR token = 0;
    std::unique_ptr<Gdiplus::Bitmap> bitmap;
};

static double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    double n = static_cast<double>(a.size()), sumA = 0, sumB = 0, aa = 0, bb = 0, ab = 0;
    for (size_t i = 0; i < a.size(); i++) {
        sumA += a[i], sumB += b[i];
        aa += a[i] * a[i], bb += b[i] * b[i], ab += a[i] * b[i];
    }
    return (ab - sumA * sumB / n) / std::sqrt((aa - sumA * sumA / n) * (bb - sumB * sumB / n));
}

struct Range {
    double least, most;
};

// An instrument: what it should read with the spot at a sample point, and how far it may be off.
struct Meter {
    double (*truth)(double x, double y, double z);
    double slack;
};

constexpr Meter board{
    [](double x, double y, double z) { return std::min(expectedVolts(x, y, 4.0, z), 5.0); },
    5 * labAdcNoiseVolts + labAdcStepVolts};
constexpr Meter multimeter{[](double x, double y, double z) { // in uA
                               return expectedCurrent(x, y, 4.0, z, 0.0) * 1e6;
                           },
                           6 * labRangeNoise * 20};
constexpr Meter oscilloscope{
    [](double x, double y, double z) { return expectedVolts(x, y, 4.0, z); },
    6 * labScopeNoiseVolts};

// What it may read there: the stage stops within a few microsteps, and the shake of the focus
// leaves a little of its backlash.
static Range readingsAround(const Meter& meter, double x, double y) {
    Range range{9, -9};
    for (double dx : {-0.1, 0.0, 0.1}) {
        for (double dy : {-0.1, 0.0, 0.1}) {
            for (double z : {0.0, 0.4, 0.8}) {
                double reading = meter.truth(x + dx, y + dy, z);
                range.least = std::min(range.least, reading);
                range.most = std::max(range.most, reading);
            }
        }
    }
    return {range.least - meter.slack, range.most + meter.slack};
}

// A rectangle on the picture, in pixels from the top left, and the grid that it makes.
struct Area {
    int left, top, right, bottom;
    double step; // um
    int columns, rows;

    // Sample point of a map cell; the fixed correction of the spot is 3 and 2 um.
    LabPoint cell(int column, int row) const {
        return {(left - labCentreColumn) * labUmPerPixel + 3 + column * step,
                (labCentreRow - bottom) * labUmPerPixel + 2 + (rows - 1 - row) * step};
    }

    std::string mapName(const char* prefix, double bias = 0.0) const {
        char name[100];
        std::snprintf(name, sizeof name, "%s(%dX%d)Step%.1fum LaserIntensity16.0 Bias%.1fV.txt",
                      prefix, columns, rows, step, bias);
        return name;
    }
    std::string documentName() const { // Gwyddion opens it when the test has ended
        std::string name = mapName("Lumascan");
        return name.replace(name.size() - 3, 3, "gwy");
    }
};

class Laboratory : public ProgramRun {
protected:
    void start(double step, int kind = 0, const char* faults = "", const char* release = "") {
        LabPixel spot = labSpotPixel();
        char line[200];
        std::snprintf(line, sizeof line, "step:%.1f, laser:4.00, laser correct:(%d,%d), Ammeter:%d",
                      step, spot.column, spot.row, kind);
        ASSERT_NO_FATAL_FAILURE(writeSettings(line));
        fs::path desk = layDesk(true, release);
        breakLaboratory(desk, faults);
        program = startProgram(desk);
        ASSERT_TRUE(await(
            [&] {
                program.window = topWindow(program, "LUMA");
                return program.window || openBox(program).window;
            },
            patiently));
        ASSERT_FALSE(openBox(program).window);
        ASSERT_TRUE(awaitPicture());
    }

    void select(const Area& area) { selectArea(area.left, area.top, area.right, area.bottom); }

    // The level that the board was last told for a pin by that command; -1 when it never was.
    int lastLevel(char commandLetter, int pin) const {
        int last = -1;
        std::istringstream commands(contentOf(program.folder / "board_commands.log"));
        for (std::string line; std::getline(commands, line);) {
            char letter = 0;
            int number = 0, level = 0;
            if (std::sscanf(line.c_str(), "%c %d %d", &letter, &number, &level) == 3 &&
                letter == commandLetter && number == pin)
                last = level;
        }
        return last;
    }
    int laserLevel() const { return lastLevel('G', 5); }
    int illumination() const { return lastLevel('D', 6); }

    void expectDark() const {
        EXPECT_EQ(laserLevel(), 0);
        EXPECT_EQ(illumination(), 0);
    }

    // Compares the rows that have been scanned, counted from the bottom.
    static void expectLandscape(const Area& area, int scannedRows, const Meter& meter = board) {
        auto map = readMap(session() / area.mapName("Kestrel"));
        ASSERT_EQ(map.size(), static_cast<size_t>(area.rows));
        for (int row = 0; row < area.rows; row++) {
            ASSERT_EQ(map[row].size(), static_cast<size_t>(area.columns));
            for (int column = 0; row >= area.rows - scannedRows && column < area.columns;
                 column++) {
                LabPoint point = area.cell(column, row);
                Range range = readingsAround(meter, point.x, point.y);
                EXPECT_GE(map[row][column], range.least) << column << ", " << row;
                EXPECT_LE(map[row][column], range.most) << column << ", " << row;
            }
        }
    }
};

TEST_F(Laboratory, MapsTheLandscape) {
    // The device from edge to edge, coarsely.
    const Area area{479, 411, 753, 617, 5.0, 9, 7};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    for (int id : {idPositionX, idPositionY, idPositionZ})
        EXPECT_EQ(textOf(controlById(program, id)), "0.0");
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();

    std::vector<std::string> files{"CONFOCAL(5).jpg",
                                   "CONF_B(4).jpg",
                                   "CONF_G(3).jpg",
                                   "CONF_R(2).jpg",
                                   area.mapName("ConfocalB"),
                                   area.mapName("ConfocalG"),
                                   area.mapName("ConfocalR"),
                                   "KST(1).jpg",
                                   area.mapName("Kestrel"),
                                   area.documentName(),
                                   "optics(0).jpg"};
    EXPECT_EQ(filesIn(session()), files);
    expectLandscape(area, area.rows);

    // The spot is as bright as what it falls on.
    auto green = readMap(session() / area.mapName("ConfocalG"));
    std::vector<double> seen, there;
    for (int row = 0; row < area.rows; row++) {
        for (int column = 0; column < area.columns; column++) {
            LabPoint point = area.cell(column, row);
            seen.push_back(green[row][column]);
            there.push_back(textureAt(point.x, point.y).green);
        }
    }
    EXPECT_GT(correlation(seen, there), 0.8);

    // The saved camera picture is the sample, the right way up, outside the marks on it.
    Picture optics(session() / "optics(0).jpg");
    seen.clear(), there.clear();
    for (int y = 20; y < 1000; y += 7) {
        for (int x = 20; x < 1200; x += 7) {
            seen.push_back(optics.at(x, y).GetGreen());
            there.push_back(
                textureAt((x - labCentreColumn) * labUmPerPixel, (labCentreRow - y) * labUmPerPixel)
                    .green);
        }
    }
    EXPECT_GT(correlation(seen, there), 0.95);

    // The saved map shows the values in the false colours.
    Picture drawn(session() / "KST(1).jpg");
    auto map = readMap(session() / area.mapName("Kestrel"));
    double least = 9, most = -9;
    for (const auto& row : map) {
        for (double value : row) least = std::min(least, value), most = std::max(most, value);
    }
    constexpr int cellPx = 390 / 9;
    for (int row = 0; row < area.rows; row++) {
        for (int column = 0; column < area.columns; column++) {
            double level = (map[row][column] - least) * 1023 / (most - least);
            int red = drawn.at(column * cellPx + cellPx / 2, row * cellPx + cellPx / 2).GetRed();
            EXPECT_NEAR(red, level / 4, 1.5) << column << ", " << row;
        }
    }
}

// Another laboratory, with what its operator knows from the papers in Setup.ini: after the four
// calibrations each cell shows what the picture shows at its point, within half a step.
TEST_F(Laboratory, MeasuresItselfInAnotherSetUp) {
    fs::create_directories(dataRoot());
    std::ofstream(dataRoot() / "Setup.ini")
        << "X um per turn = 500\nX full steps per turn = 400\nX counts the other way = yes\n"
           "Y um per turn = 500\nobjective 1 spot correction X (um) = 0\n"
           "objective 1 spot correction Y (um) = 0\nboard amplifier (V/A) = 5000000\n";
    constexpr double step = 2.0;
    ASSERT_NO_FATAL_FAILURE(start(step, 0, "second set-up\n"));
    for (const int calibration :
         {idCalibrateCamera, idCalibratePlay, idCalibrateSpot, idCalibrateDark}) {
        command(program, calibration);
        HWND window = nullptr;
        ASSERT_TRUE(await(
            [&] {
                window = topWindow(program, "#32770");
                return window && IsWindowEnabled(GetDlgItem(window, IDOK));
            },
            3 * patiently))
            << calibration;
        const std::string said = textOf(GetDlgItem(window, idCalibrationText));
        ASSERT_TRUE(answerBox({window, "", "", ""}, IDOK)) << said;
    }
    EXPECT_NE(contentOf(dataRoot() / "Setup.ini").find("board amplifier offset (V) = 0.0"),
              std::string::npos);

    ASSERT_TRUE(applyLabFaults("second set-up"));
    const int left = 560, top = 470, right = 680, bottom = 570;
    ASSERT_NO_FATAL_FAILURE(selectArea(left, top, right, bottom));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();

    double fromX = 1e9, fromY = 1e9;
    for (const int x : {left, right})
        for (const int y : {top, bottom}) {
            const LabPoint corner = labSampleAt(x, 1028 - y);
            fromX = std::min(fromX, corner.x);
            fromY = std::min(fromY, corner.y);
        }
    const Meter amplified{[](double x, double y, double z) {
                              return 0.06 + 5e6 * expectedCurrent(x, y, 4.0, z, 0.0);
                          },
                          5 * labAdcNoiseVolts + labAdcStepVolts};
    std::vector<std::vector<double>> map;
    for (const std::string& name : filesIn(session()))
        if (name.starts_with("Kestrel(")) map = readMap(session() / name);
    ASSERT_GE(map.size(), 11u);
    int wrong = 0;
    for (size_t row = 0; row < map.size(); ++row)
        for (size_t column = 0; column < map[row].size(); ++column) {
            const double x = fromX + step * static_cast<double>(column);
            const double y = fromY + step * static_cast<double>(map.size() - 1 - row);
            Range range{9, -9};
            for (double dx = -step / 2; dx <= step / 2; dx += step / 8)
                for (double dy = -step / 2; dy <= step / 2; dy += step / 8) {
                    const Range around = readingsAround(amplified, x + dx, y + dy);
                    range = {std::min(range.least, around.least),
                             std::max(range.most, around.most)};
                }
            wrong += map[row][column] < range.least || map[row][column] > range.most;
        }
    EXPECT_EQ(wrong, 0);
}

// The board is its own program in the simulator of its chip, which opening the port has reset; what
// lies at its pins is the laboratory, whose log holds what they show.
TEST_F(Laboratory, MapsThroughTheBoardsOwnFirmware) {
    const Area area{510, 450, 720, 590, 5.0, 7, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step, 0, "board quiet\n"));
    EXPECT_EQ(laserLevel(), -1) << "a flash";
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    EXPECT_TRUE(await([&] { return laserLevel() == 204; }, patiently));
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();
    expectLandscape(area, area.rows, {board.truth, labAdcStepVolts});
}

TEST_F(Laboratory, MapsWithTheGpibMultimeter) {
    const Area area{510, 450, 720, 590, 5.0, 7, 5};
    // With a stage library that has other functions at the ordinals of the move and the stop.
    ASSERT_NO_FATAL_FAILURE(start(area.step, 2, "", "other_ordinals"));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectLandscape(area, area.rows, multimeter);
}

TEST_F(Laboratory, MapsWithTheOscilloscope) {
    const Area area{510, 450, 720, 590, 5.0, 7, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step, 5, "k2450 absent\n"));
    EXPECT_EQ(textOf(controlAt(program, "STATIC", 1342, 560)), "V_ph (V)");
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectLandscape(area, area.rows, oscilloscope);
}

TEST_F(Laboratory, StopsOnRequestAndSavesThePart) {
    const Area area{550, 480, 660, 540, 2.0, 9, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());

    const char* question = "Do you want to stop process, now ?";
    ASSERT_TRUE(await([&] { return percentDone() >= 22; }, patiently));
    click(startButton());
    ASSERT_NO_FATAL_FAILURE(answer("Warning", question, "Yes No", IDNO));
    ASSERT_TRUE(await([&] { return percentDone() >= 50; }, patiently));
    click(startButton());
    ASSERT_NO_FATAL_FAILURE(answer("Warning", question, "Yes No", IDYES));
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());

    EXPECT_TRUE(isChecked(program, idLaserOff));
    EXPECT_EQ(laserLevel(), 0);
    EXPECT_EQ(textOf(controlById(program, idPositionX)), "0.0");
    expectLandscape(area, 2);
    auto map = readMap(session() / area.mapName("Kestrel"));
    EXPECT_EQ(map[0], std::vector<double>(map[0].size())) << "a row that was never reached";
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();
}

TEST_F(Laboratory, SavesAndGoesDarkWhenClosedInAScan) {
    const Area area{550, 480, 660, 540, 2.0, 9, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_TRUE(await([&] { return percentDone() >= 40; }, patiently));
    EXPECT_EQ(laserLevel(), 204);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();
    expectLandscape(area, 1);
    EXPECT_TRUE(fs::exists(session() / area.mapName("ConfocalB")));
    EXPECT_TRUE(contentOf(dataRoot() / "Config.txt").starts_with("step:2.0, laser:4.00"));
}

// As a power cut ends it: no window, no signal, nothing saved but the journal.
TEST_F(Laboratory, RecoversTheScanThatAKillCutOff) {
    const Area area{550, 480, 660, 540, 2.0, 9, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_TRUE(await([&] { return percentDone() >= 50; }, patiently));
    endProgram(program);
    EXPECT_FALSE(fs::exists(session() / area.mapName("Kestrel")));

    ASSERT_NO_FATAL_FAILURE(start(area.step));
    EXPECT_TRUE(await([&] { return textOf(information()).starts_with("A scan of "); }, patiently));
    command(program, idRecoverScan);
    ASSERT_TRUE(await([&] { return textOf(information()).starts_with("Recovered: "); }, patiently))
        << textOf(information());
    expectLandscape(area, 2);
    EXPECT_TRUE(fs::is_empty(dataRoot() / "Journal"));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}

// The same in the middle of a row: the stage is found where the scan was cut off, the operator
// brings it back to where the scan started, and the scan goes on.
TEST_F(Laboratory, ContinuesTheScanThatAKillCutOff) {
    const Area area{550, 480, 660, 540, 2.0, 9, 5};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_TRUE(await([&] { return percentDone() >= 50; }, patiently)); // the third row of five
    endProgram(program);
    const auto folders = sessionFolders();

    // Its laboratory begins anew, at the start of the scan: it is moved away before the program
    // calls its place 0, and the operator moves it back.
    ASSERT_NO_FATAL_FAILURE(start(5.0));
    command(program, idContinueScan);
    HWND window = nullptr;
    ASSERT_TRUE(await([&] { return (window = topWindow(program, "IV")) != nullptr; }, patiently));
    // A click within a move would only stop it: the live view goes on behind it, idle from 0.
    const auto press = [&](int id, const char* x, const char* idle) {
        click(GetDlgItem(window, id));
        EXPECT_TRUE(await(
            [&] {
                return textOf(controlById(program, idPositionX)) == x &&
                       textOf(controlById(program, idTime)) == idle;
            },
            patiently));
    };
    press(idContinueMove, "-10.0", "idle:5");
    press(idContinueMove + 3, "0.0", "idle:3");
    click(GetDlgItem(window, idContinueConfirm));
    ASSERT_NO_FATAL_FAILURE(
        answer("Scan area checking", "Hysteresis compensated. Is it okay?", "Yes No", IDYES));
    ASSERT_TRUE(await([&] { return percentDone() > 50; }, patiently));
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    EXPECT_EQ(sessionFolders(), folders) << "the folder of its own date";
    expectLandscape(area, area.rows);
    EXPECT_NE(contentOf(session() / area.documentName()).find(" after row 2"), std::string::npos);
    EXPECT_TRUE(fs::is_empty(dataRoot() / "Journal"));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();
}

// In the middle of a move, with laser and bias on. What is seen of the set-up afterwards is what it
// was last told.
class Crash : public Laboratory {
protected:
    // Of the sourcemeter on USB.
    void applyBias() {
        HWND dialog = nullptr;
        command(program, idConfiguration);
        ASSERT_TRUE(
            await([&] { return (dialog = topWindow(program, "#32770")) != nullptr; }, quickly));
        SendMessageA(GetDlgItem(dialog, idBias), WM_SETTEXT, 0, reinterpret_cast<LPARAM>("0.5"));
        click(GetDlgItem(dialog, idSet));
        ASSERT_TRUE(await([&] { return lastBias() == 0.5; }, quickly));
        SendMessageA(dialog, WM_CLOSE, 0, 0);
        ASSERT_TRUE(await([&] { return !IsWindow(dialog); }, quickly));
    }

    std::string lastLine(const std::string& beginning) const {
        const std::string log = "\n" + contentOf(program.folder / "instrument_commands.log");
        const size_t start = log.rfind("\n" + beginning);
        return start == std::string::npos
                   ? ""
                   : log.substr(start + 1, log.find('\n', start + 1) - start);
    }
    double lastBias() const {
        double volts = -1;
        std::sscanf(lastLine("k2450 :SOUR:VOLT ").c_str(), "%*s %*s %lf", &volts);
        return volts;
    }

    static fs::path onlyLog(const char* extension) {
        std::vector<fs::path> found;
        for (const auto& file : fs::directory_iterator(dataRoot() / "Log"))
            if (file.path().extension() == extension) found.push_back(file.path());
        EXPECT_EQ(found.size(), 1U) << extension;
        return found.empty() ? fs::path() : found[0];
    }

    void crashInAScan(const std::string& way) {
        SCOPED_TRACE(way);
        std::error_code failure; // the system may still close the files of the crashed program
        ASSERT_TRUE(await(
            [&] {
                fs::remove_all(dataRoot(), failure);
                return !failure;
            },
            quickly));
        const Area area{550, 480, 660, 540, 2.0, 9, 5};
        ASSERT_NO_FATAL_FAILURE(start(area.step, 4));
        ASSERT_NO_FATAL_FAILURE(applyBias());
        ASSERT_NO_FATAL_FAILURE(select(area));
        ASSERT_NO_FATAL_FAILURE(startScan());
        ASSERT_TRUE(await([&] { return percentDone() >= 10; }, patiently)); // of 45 points
        ASSERT_EQ(laserLevel(), 204);
        ASSERT_EQ(lastBias(), 0.5);
        breakLaboratory(program.folder, "axis x slow 1\ncrash " + way + "\n");
        EXPECT_GT(awaitExit(program, patiently), 0);

        expectDark();
        EXPECT_EQ(lastBias(), 0.0);
        EXPECT_TRUE(lastLine("stage x").starts_with("stage x stopped on its way\n"))
            << lastLine("stage x");
        const auto map = readMap(session() / area.mapName("Kestrel", 0.5));
        ASSERT_EQ(map.size(), static_cast<size_t>(area.rows));
        EXPECT_TRUE(std::all_of(map.back().begin(), map.back().begin() + 4,
                                [](double value) { return value > 0.0; }));
        const fs::path dump = onlyLog(".dmp");
        EXPECT_TRUE(contentOf(dump).starts_with("MDMP"));
        const std::string log = contentOf(onlyLog(".txt"));
        EXPECT_NE(log.find("Crash dump written: " + dump.filename().string()), std::string::npos)
            << log;
        endProgram(program);
    }
};

// It then holds its windows. "again": the thread that stops the stage crashes as well.
TEST_F(Crash, OnTheWindowsThreadLeavesTheSetUpSafe) {
    for (const char* way : {"exception again", "abort again", "overflow again"})
        ASSERT_NO_FATAL_FAILURE(crashInAScan(way));
}

TEST_F(Crash, OnALibrarysThreadLeavesTheSetUpSafe) {
    for (const char* way : {"exception aside", "abort aside", "overflow aside"})
        ASSERT_NO_FATAL_FAILURE(crashInAScan(way));
}

// The two columns of a curve's file, which must be written byte for byte as its format says.
static std::vector<std::pair<double, double>> readCurve(const fs::path& file,
                                                        const std::string& heading) {
    const std::string content = contentOf(file);
    std::istringstream lines(content);
    std::string line, again = heading + "\r\n";
    std::getline(lines, line);
    std::vector<std::pair<double, double>> points;
    for (double x = 0, y = 0; std::getline(lines, line); points.emplace_back(x, y)) {
        EXPECT_EQ(std::sscanf(line.c_str(), "%lf,%lf", &x, &y), 2) << line;
        char text[80];
        std::snprintf(text, sizeof text, "%f,%f\r\n", x, y);
        again += text;
    }
    EXPECT_EQ(content, again);
    return points;
}

TEST_F(Laboratory, SweepsAndRecordsAtAPoint) {
    ASSERT_NO_FATAL_FAILURE(start(1.0, 4));
    const auto type = [](HWND edit, const char* text) {
        SendMessageA(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    };
    const auto openTool = [&](int id) {
        command(program, id);
        await([&] { return topWindow(program, "IV") != nullptr; }, quickly);
        return topWindow(program, "IV");
    };
    click(controlById(program, idLaserOn));
    HWND tool = openTool(idIvMeasurement);
    ASSERT_TRUE(tool);
    type(GetDlgItem(tool, 2103), "0.3");
    click(GetDlgItem(tool, idSweepStart));
    const auto saved = [](const char* name) {
        return await([=] { return !session().empty() && fs::exists(session() / name); }, patiently);
    };
    ASSERT_TRUE(saved("I-V(0).txt"));
    EXPECT_EQ(textOf(GetDlgItem(tool, 2103)), "0.30");
    EXPECT_EQ(textOf(information()).substr(0, 12), "V=-0.006000,");
    EXPECT_TRUE(await([&] { return isChecked(program, idLiveOn); }, quickly));
    SendMessageA(tool, WM_CLOSE, 0, 0);

    tool = openTool(idTimeEvolution);
    ASSERT_TRUE(tool);
    HWND edit = nullptr;
    for (const char* text : {"1", "1", "2"}) {
        edit = FindWindowExA(tool, edit, "EDIT", nullptr);
        type(edit, text);
    }
    click(GetDlgItem(tool, idSeriesStart));
    ASSERT_TRUE(saved("TimeEvo(0).txt"));
    EXPECT_TRUE(await([&] { return isChecked(program, idLaserOff); }, quickly));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();

    const auto sweep = readCurve(session() / "I-V(0).txt", "V(V), I(uA)");
    ASSERT_EQ(sweep.size(), 200U);
    const LabPixel spot = labSpotPixel();
    const LabPoint place{(spot.column - labCentreColumn) * labUmPerPixel,
                         (spot.row - labCentreRow) * labUmPerPixel};
    for (size_t i = 80; i < sweep.size(); ++i) { // the light has been on for long by then
        const auto [volts, microamperes] = sweep[i];
        EXPECT_NEAR(microamperes, expectedCurrent(place.x, place.y, 4.0, 0.0, volts) * 1e6,
                    6 * labRangeNoise + 1e-6);
    }
    EXPECT_NEAR(sweep[50].first, 0.3, 1e-6);
    EXPECT_NEAR(sweep[150].first, -0.3, 1e-6);

    const auto series = readCurve(session() / "TimeEvo(0).txt", "Time(sec), I(uA)");
    ASSERT_GE(series.size(), 20U);
    const double full = expectedCurrent(place.x, place.y, 4.0, 0.0, 0.0) * 1e6;
    for (auto [seconds, microamperes] : series) {
        // The later parts of the first two light phases, and of the dark one between them.
        const double inCycle = std::fmod(seconds, 2.1);
        const bool risen = inCycle > 0.6 && inCycle < 0.95;
        const bool decayed = inCycle > 1.75 && inCycle < 1.95;
        EXPECT_GT(microamperes, risen ? full * 0.95 : -1e-3) << seconds;
        EXPECT_LT(microamperes, decayed ? full * 0.1 : full * 1.001) << seconds;
    }
}

TEST_F(Laboratory, FocusesLooksAroundAndGoesWhereClicked) {
    ASSERT_NO_FATAL_FAILURE(start(1.0, 0, "backlash x 0\nbacklash y 0\n"));
    typeAndEnter(controlById(program, idLaserIntensity), "20");
    typeAndEnter(controlById(program, idPositionZ), "20");
    ASSERT_TRUE(awaitText(controlById(program, idPositionZ), "20.0", patiently));
    ASSERT_TRUE(await([&] { return isChecked(program, idLiveOn); }, quickly));
    click(controlById(program, idFocus));
    ASSERT_TRUE(awaitText(information(), "ompleted!", 2 * patiently)); // or "incompleted!"
    EXPECT_TRUE(isChecked(program, idLaserView));
    const double z = std::atof(textOf(controlById(program, idPositionZ)).c_str());
    EXPECT_NEAR(z, 0.0, labDepthOfFocusUm);
    EXPECT_EQ(laserLevel(), 255);

    click(controlById(program, idSampleView));
    click(controlById(program, idWideView));
    ASSERT_TRUE(awaitText(information(), "Wide view imaging", patiently));
    const auto positions = [&] {
        return textOf(controlById(program, idPositionX)) + " " +
               textOf(controlById(program, idPositionY));
    };
    ASSERT_TRUE(await([&] { return positions() == "180.0 -150.0"; }, patiently));
    ASSERT_TRUE(await([&] { return positions() == "0.0 0.0"; }, patiently));
    // The cross at (100, 100) um, by its place on the wide view.
    const double pixels = 100 / (3 * labUmPerPixel);
    const int x = static_cast<int>(616 + pixels), y = static_cast<int>(514 - pixels);
    Box box;
    for (;;) { // the last wait of the wide view may still take a click for a stop
        drag(program, x, y, x, y);
        box = awaitBox(program, patiently);
        if (!box.text.starts_with("Do you want to stop")) break;
        ASSERT_TRUE(answerBox(box, IDNO));
    }
    EXPECT_TRUE(box.text.starts_with("If you want to move this position"));
    ASSERT_TRUE(answerBox(box, IDYES));
    ASSERT_TRUE(await([&] { return positions().starts_with("99.9 100.4"); }, patiently));
    SendMessageA(controlById(program, idTime), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(""));
    ASSERT_TRUE(awaitPicture());
    command(program, idSaveCameraImage);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectDark();

    // The cross is at the picture's centre within a pixel of the wide view.
    Picture picture(session() / "camera(0).jpg");
    const auto gold = [&](int x, int y) {
        const Gdiplus::Color colour = picture.at(x, y);
        return colour.GetRed() > 1.5 * colour.GetBlue();
    };
    int count = 0, sumX = 0, sumY = 0;
    for (int y = 514 - 50; y < 514 + 50; y++)
        for (int x = 616 - 50; x < 616 + 50; x++)
            if (gold(x, y)) count++, sumX += x, sumY += y;
    ASSERT_GT(count, 500);
    EXPECT_NEAR(1.0 * sumX / count, 616, 4);
    EXPECT_NEAR(1.0 * sumY / count, 514, 4);
}

TEST_F(Laboratory, EndsAScanWhoseBoardIsUnplugged) {
    const Area area{600, 490, 672, 520, 2.0, 6, 3};
    ASSERT_NO_FATAL_FAILURE(start(area.step));
    ASSERT_NO_FATAL_FAILURE(select(area));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_TRUE(await([&] { return percentDone() >= 33; }, patiently));
    breakLaboratory(program.folder, "board unplugged\n");
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd(". No laser board: "));
    breakLaboratory(program.folder, "");
    // From its third point on the last row was not measured at all.
    auto map = readMap(session() / area.mapName("Kestrel"));
    ASSERT_EQ(map.size(), 3U);
    EXPECT_EQ(std::count(map[0].begin() + 2, map[0].end(), 0.0), area.columns - 2);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
