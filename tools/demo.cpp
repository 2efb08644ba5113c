// Starts the program in the virtual laboratory and maps the sample as an operator would.
//
//   operator.exe DESK_FOLDER SCREENSHOT_FOLDER   plays the operator
//   operator.exe DESK_FOLDER                     leaves that to a person
//
// The desk holds the executable and the laboratory's DLLs. For a picture the player writes
// NAME.request into the screenshot folder and goes on when the file is gone: whoever watches the
// folder has taken the picture then.
#include "screen/control_ids.h"
#include "tools/operator.h"
#include "virtual_lab/lab.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

static fs::path screenshots;

// Gives up: the demonstration has no way on.
static void require(bool condition, const std::string& what) {
    if (!condition) throw std::runtime_error(what);
}

static void say(const std::string& text) {
    std::puts(text.c_str());
    std::fflush(stdout);
}

static void takePicture(const std::string& name) {
    fs::path request = screenshots / (name + ".request");
    std::ofstream(request) << name;
    require(await([&] { return !fs::exists(request); }, patiently), "nobody took " + name);
}

// The settings file of a set-up whose laser spot has been found: the rest is the default.
static void writeSettings() {
    LabPixel spot = labSpotPixel();
    char line[200];
    std::snprintf(line, sizeof line,
                  "step:2.0, laser:4.00, laser correct:(%d,%d), Ammeter:0, GPIB:18, "
                  "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\r\n",
                  spot.column, spot.row);
    fs::create_directories(dataRoot());
    std::ofstream(dataRoot() / "Config.txt", std::ios::binary) << line;
}

static void answer(const Program& program, const std::string& text, int button) {
    Box box = awaitBox(program, patiently);
    say("  [" + box.caption + "] " + box.text + " (" + box.buttons + ")");
    require(box.text == text, "expected the question \"" + text + "\"");
    require(answerBox(box, button), "the box does not close");
}

static void mapTheDevice(Program& program) {
    require(awaitMainWindow(program, patiently) || openBox(program).window, "no window came");
    require(!openBox(program).window, "start-up shows: " + openBox(program).text);
    HWND information = controlAt(program, "EDIT", 1262, 360);
    HWND progress = controlById(program, idProgress);

    // The camera's automatic settings need some frames.
    auto idleTicks = [&] {
        int ticks = 0;
        std::sscanf(textOf(controlById(program, idTime)).c_str(), "idle:%d", &ticks);
        return ticks;
    };
    require(await([&] { return idleTicks() >= 15; }, patiently), "the live view does not run");
    takePicture("1_start");

    say("Drag over the device.");
    constexpr double pixelsPerUm = 1 / labUmPerPixel;
    constexpr int halfWidth = static_cast<int>(20 * pixelsPerUm) + 1;
    constexpr int halfHeight = static_cast<int>(15 * pixelsPerUm) + 1;
    drag(program, labCentreColumn - halfWidth, labCentreRow - halfHeight,
         labCentreColumn + halfWidth, labCentreRow + halfHeight);
    answer(program, "Do you want to set it for next scan area", IDYES);
    require(awaitText(progress, "New scan area was selected.", patiently), "no area was selected");
    say("  " + textOf(information));
    takePicture("2_rectangle");

    say("Start.");
    click(controlById(program, idStart));
    Box box = awaitBox(program, patiently);
    require(box.window, "no question about the hysteresis");
    takePicture("3_hysteresis_question");
    answer(program, "Hysteresis compensated. Is it okay?", IDYES);

    auto percentDone = [&] {
        int percent = 0;
        std::sscanf(textOf(progress).c_str(), "Mapping: %d%%", &percent);
        return percent;
    };
    require(await([&] { return percentDone() >= 50; }, 10 * patiently), "the scan does not go on");
    say("  " + textOf(progress));
    takePicture("4_half_way");
    require(awaitText(information, "Mapping finished", 10 * patiently), "the scan does not end");
    require(awaitText(controlById(program, idStart), "Start", patiently), "the scan does not end");
    say("  Mapping finished");
    takePicture("5_finished");

    say("Close the window.");
    closeMainWindow(program);
    require(awaitExit(program, patiently) == 0, "the program does not end well");
}

int main(int count, char** arguments) {
    if (count != 2 && count != 3) {
        std::fputs("operator.exe DESK_FOLDER [SCREENSHOT_FOLDER]\n", stderr);
        return 2;
    }
    Program program;
    int result = 0;
    try {
        if (count == 3 || !fs::exists(dataRoot() / "Config.txt")) writeSettings();
        say("Start Lumascan.exe.");
        program = startProgram(arguments[1]);
        if (count == 3) {
            screenshots = arguments[2];
            mapTheDevice(program);
        } else {
            WaitForSingleObject(program.process, INFINITE);
        }
    } catch (const std::exception& error) {
        std::printf("Failed: %s\n", error.what());
        result = 1;
    }
    endProgram(program);
    return result;
}
