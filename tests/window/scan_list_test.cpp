// A night of scans of the real program: put together in its window, cut off by a kill, gone on
// with.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <cmath>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

class ScanListWindow : public ProgramRun {
protected:
    void start() {
        ASSERT_NO_FATAL_FAILURE(writeLabSettings(4.0));
        const fs::path desk = layDesk(true);
        program = startProgram(desk);
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(awaitPicture());
    }

    void openList() {
        command(program, idScanList);
        ASSERT_TRUE(await([&] { return (list = topWindow(program, "IV")) != nullptr; }, quickly));
        ASSERT_TRUE(await([&] { return GetDlgItem(list, idListStart) != nullptr; }, quickly));
    }
    HWND item(int id) const { return GetDlgItem(list, id); }
    void press(int id) const { PostMessageW(list, WM_COMMAND, static_cast<WPARAM>(id), 0); }

    int rows() const { return static_cast<int>(SendMessageW(item(idListTable), 0x1004, 0, 0)); }

    // The selected row is copied, and the copy gets that bias.
    void copyWithBias(const char* volts) {
        const int before = rows();
        press(idListCopy);
        ASSERT_TRUE(await([&] { return rows() == before + 1; }, quickly));
        constexpr int bias = idListEdit + 6;
        ASSERT_EQ(textOf(item(idListLabel + 6)), "Bias (V)");
        SendMessageA(item(bias), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(volts));
        press(idListTake);
    }
    void addArea(int left, int top, int right, int bottom) {
        ASSERT_NO_FATAL_FAILURE(selectArea(left, top, right, bottom));
        const int before = rows();
        press(idListAddArea);
        ASSERT_TRUE(await([&] { return rows() == before + 1; }, quickly));
    }

    static std::string record() {
        for (const std::string& name : filesIn(dataRoot() / "Scan lists"))
            if (name.starts_with("night-")) return contentOf(dataRoot() / "Scan lists" / name);
        return {};
    }
    // The folder of a row, as its last line in the record has it.
    static fs::path folderOf(int row) {
        std::istringstream lines(record());
        fs::path folder;
        for (std::string line; std::getline(lines, line);) {
            if (!line.starts_with(std::to_string(row) + "\t1\t")) continue;
            if (line.find("\tfinished") == std::string::npos) continue;
            std::string name = line.substr(line.rfind('\t') + 1);
            if (name.ends_with('\r')) name.pop_back();
            folder = dataRoot() / name;
        }
        return folder;
    }

    // Each cell against the sample; the area by its corners on the picture, in pixels.
    static void expectMap(int row, int left, int bottom, double biasVolts) {
        ASSERT_NE(folderOf(row), fs::path()) << row << "\n" << record();
        std::vector<std::vector<double>> map;
        for (const std::string& name : filesIn(folderOf(row)))
            if (name.starts_with("Kestrel(")) map = readMap(folderOf(row) / name);
        ASSERT_GE(map.size(), 3u) << folderOf(row);
        for (size_t r = 0; r < map.size(); ++r)
            for (size_t column = 0; column < map[r].size(); ++column) {
                const double x = (left - labCentreColumn) * labUmPerPixel + 3 +
                                 4.0 * static_cast<double>(column);
                const double y = (labCentreRow - bottom) * labUmPerPixel + 2 +
                                 4.0 * static_cast<double>(map.size() - 1 - r);
                double least = 9e9, most = -9e9;
                for (double dx : {-0.1, 0.0, 0.1})
                    for (double dy : {-0.1, 0.0, 0.1})
                        for (double z : {0.0, 0.4, 0.8}) {
                            const double uA =
                                1e6 * expectedCurrent(x + dx, y + dy, 4.0, z, biasVolts);
                            least = std::min(least, uA);
                            most = std::max(most, uA);
                        }
                EXPECT_GE(map[r][column], least - 0.01) << row << ": " << column << ", " << r;
                EXPECT_LE(map[r][column], most + 0.01) << row << ": " << column << ", " << r;
            }
    }

    static void click(HWND button) {
        PostMessageW(button, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(5, 5));
        PostMessageW(button, WM_LBUTTONUP, 0, MAKELPARAM(5, 5));
    }

    HWND list = nullptr;
};

TEST_F(ScanListWindow, GoesOnWithTheNightThatAKillCutOff) {
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(openList());
    SendMessageA(item(idListName), WM_SETTEXT, 0, reinterpret_cast<LPARAM>("night"));
    ASSERT_NO_FATAL_FAILURE(addArea(550, 480, 660, 570));
    ASSERT_NO_FATAL_FAILURE(copyWithBias("0.4"));
    ASSERT_NO_FATAL_FAILURE(addArea(630, 420, 740, 510));
    ASSERT_NO_FATAL_FAILURE(copyWithBias("0.4"));
    press(idListAddSweep);
    ASSERT_TRUE(await([&] { return rows() == 5; }, quickly));
    press(idListStart);
    ASSERT_NO_FATAL_FAILURE(
        answer("Scan area checking", "Hysteresis compensated. Is it okay?", "Yes No", IDYES));
    ASSERT_TRUE(
        await([&] { return textOf(program.window).find("row 2 of 5") != std::string::npos; },
              2 * patiently));
    ASSERT_TRUE(await([&] { return percentDone() >= 40; }, patiently));
    endProgram(program);

    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_TRUE(awaitText(information(), "A list was cut off: 1 of 5 rows", quickly));
    command(program, idContinueList);
    const Box box = awaitBox(program, quickly);
    EXPECT_NE(box.text.find("1 of 5 rows are measured. Go on?"), std::string::npos) << box.text;
    ASSERT_TRUE(answerBox(box, IDYES));
    // A click on "Pause" is no wish to stop.
    ASSERT_TRUE(
        await([&] { return textOf(program.window).find("row 3 of 5") != std::string::npos; },
              2 * patiently));
    ASSERT_TRUE(await([&] { return percentDone() >= 40; }, patiently));
    HWND pause = GetDlgItem(program.window, 32857);
    EXPECT_EQ(textOf(pause), "Pause");
    EXPECT_TRUE(IsWindowVisible(pause));
    click(pause);
    ASSERT_TRUE(await([&] { return textOf(program.window).find("paused") != std::string::npos; },
                      patiently));
    EXPECT_EQ(textOf(pause), "Resume");
    click(pause);
    ASSERT_TRUE(
        await([&] { return record().find("Scan list finished: 5 of 5") != std::string::npos; },
              5 * patiently))
        << record();
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    for (const int row : {1, 2}) expectMap(row, 550, 570, row == 1 ? 0.0 : 0.4);
    for (const int row : {3, 4}) expectMap(row, 630, 510, row == 3 ? 0.0 : 0.4);
    EXPECT_FALSE(fs::exists(dataRoot() / "Scan lists" / "Unfinished.txt"));
    for (const std::string& name : filesIn(folderOf(3)))
        if (name.ends_with(".gwy")) {
            EXPECT_NE(contentOf(folderOf(3) / name).find("Paused"), std::string::npos);
        }
    EXPECT_NE(record().find("continued after it was cut off"), std::string::npos) << record();
}

TEST_F(ScanListWindow, AThousandRowsAreOpenedScrolledAndSavedInASecond) {
    ASSERT_NO_FATAL_FAILURE(start());
    fs::create_directories(dataRoot() / "Scan lists");
    std::ofstream file(dataRoot() / "Scan lists" / "long.ini");
    for (int i = 0; i < 1000; ++i)
        file << "row = map, x " << i << ", y 0, columns 20, rows 10, step 1\n";
    file.close();
    ASSERT_NO_FATAL_FAILURE(openList());
    SendMessageA(item(idListName), WM_SETTEXT, 0, reinterpret_cast<LPARAM>("long"));
    const auto msOf = [](auto work) {
        const ULONGLONG start = GetTickCount64();
        work();
        return static_cast<unsigned>(GetTickCount64() - start);
    };
    const auto send = [&](int id) { SendMessageW(list, WM_COMMAND, static_cast<WPARAM>(id), 0); };
    const unsigned openedMs = msOf([&] { send(idListOpen); });
    EXPECT_EQ(rows(), 1000);
    const unsigned scrolledMs = msOf([&] {
        for (int row = 0; row < 1000; row += 20) {
            SendMessageW(item(idListTable), 0x1013, static_cast<WPARAM>(row), 0); // into view
            UpdateWindow(item(idListTable));
        }
    });
    fs::remove(dataRoot() / "Scan lists" / "long.ini");
    const unsigned savedMs = msOf([&] { send(idListSave); });
    EXPECT_TRUE(fs::exists(dataRoot() / "Scan lists" / "long.ini"));
    std::printf("1000 rows: opened in %u ms, scrolled through in %u ms, saved in %u ms\n", openedMs,
                scrolledMs, savedMs);
    EXPECT_LT(openedMs, 3000u) << "1000 on an idle machine";
    EXPECT_LT(scrolledMs, 3000u);
    EXPECT_LT(savedMs, 3000u);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
