// What every test of the real program needs: an empty desktop, a desk, and the program's end.
#pragma once

#include "screen/control_ids.h"
#include "tools/operator.h"
#include "virtual_lab/lab.h"

#include <gtest/gtest.h>

class ProgramRun : public testing::Test {
protected:
    Program program;

    void SetUp() override { std::filesystem::remove_all(dataRoot()); }

    void TearDown() override {
        if (HasFailure() && program.process) {
            Box box = openBox(program);
            std::printf("open box: [%s] %s\ninformation: %s\nprogress: %s\noutput:\n%s\n",
                        box.caption.c_str(), box.text.c_str(), textOf(information()).c_str(),
                        textOf(progress()).c_str(),
                        contentOf(program.folder / "output.txt").c_str());
        }
        endProgram(program);
    }

    HWND information() const { return controlAt(program, "EDIT", 1262, 360); }
    HWND progress() const { return controlById(program, idProgress); }
    HWND scanStep() const { return controlAt(program, "EDIT", 1352, 315); }
    HWND startButton() const { return controlById(program, idStart); }

    static void writeSettings(const std::string& line) {
        std::filesystem::create_directories(dataRoot());
        std::FILE* file = _wfopen((dataRoot() / "Config.txt").c_str(), L"wb");
        ASSERT_TRUE(file);
        std::fwrite(line.data(), 1, line.size(), file);
        std::fclose(file);
    }

    // The laboratory's devices with the 2450, the laser spot where it is, no confocal imaging.
    static void writeLabSettings(double stepUm) {
        const LabPixel spot = labSpotPixel();
        char line[200];
        std::snprintf(line, sizeof line,
                      "step:%.1f, laser:4.00, laser correct:(%d,%d), Ammeter:4, GPIB:18, "
                      "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0",
                      stepUm, spot.column, spot.row);
        ASSERT_NO_FATAL_FAILURE(writeSettings(line));
    }

    void answer(const std::string& caption, const std::string& text, const std::string& buttons,
                int button) {
        Box box = awaitBox(program, patiently);
        ASSERT_EQ(box.caption, caption);
        ASSERT_EQ(box.text, text);
        ASSERT_EQ(box.buttons, buttons);
        ASSERT_TRUE(answerBox(box, button));
    }

    // The live view has shown some frames, which the camera's automatic settings need.
    bool awaitPicture() const {
        return await(
            [&] {
                int ticks = 0;
                std::sscanf(textOf(controlById(program, idTime)).c_str(), "idle:%d", &ticks);
                return ticks >= 15;
            },
            patiently);
    }

    // Draws the rectangle on the picture (pixels from the top left) and takes it as scan area.
    void selectArea(int x1, int y1, int x2, int y2) {
        drag(program, x1, y1, x2, y2);
        Box box = awaitBox(program, patiently);
        ASSERT_EQ(box.text, "Do you want to set it for next scan area");
        ASSERT_TRUE(answerBox(box, IDYES));
        ASSERT_TRUE(awaitText(progress(), "New scan area was selected.", patiently));
    }

    void startScan() {
        click(startButton());
        answer("Scan area checking", "Hysteresis compensated. Is it okay?", "Yes No", IDYES);
        ASSERT_EQ(textOf(startButton()), "Stop");
    }

    int percentDone() const {
        int percent = 0;
        std::sscanf(textOf(progress()).c_str(), "Mapping: %d%%", &percent);
        return percent;
    }

    // `trouble`: what the program then says beside it begins so; nothing, when it is empty.
    void awaitScanEnd(const std::string& trouble = "") {
        ASSERT_TRUE(awaitText(startButton(), "Start", 4 * patiently));
        const std::string said = textOf(information()), wanted = "Mapping finished" + trouble;
        ASSERT_EQ(trouble.empty() ? said : said.substr(0, wanted.size()), wanted);
    }

    void closeProgram() {
        closeMainWindow(program);
        ASSERT_EQ(awaitExit(program, patiently), 0);
    }

    // The one folder of this run.
    static std::filesystem::path session() {
        auto folders = sessionFolders();
        return folders.size() == 1 ? folders[0] : std::filesystem::path();
    }
};
