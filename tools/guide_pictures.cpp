// Plays an operator before whom the pictures of the operator guide can be taken: places, a focus
// plane, a list of scans, a map that is read, the scans of earlier days.
//
//   guide_pictures.exe DESK_FOLDER SCREENSHOT_FOLDER
//
// As in the demonstration a picture is asked for by a file NAME.request, which here holds the part
// of the screen that is wanted, "800x600+10+20".
#include "screen/control_ids.h"
#include "tools/operator.h"
#include "virtual_lab/lab.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

fs::path screenshots;
Program program;

void require(bool condition, const std::string& what) {
    if (!condition) throw std::runtime_error(what);
}

void awaitOr(const std::string& what, const std::function<bool()>& condition) {
    require(await(condition, 4 * patiently), what);
}

int idleTicks() {
    int ticks = 0;
    std::sscanf(textOf(controlById(program, idTime)).c_str(), "idle:%d", &ticks);
    return ticks;
}

// What lies around all of them.
void takePicture(const std::string& name, const std::vector<RECT>& parts) {
    RECT whole = parts.front();
    for (const RECT& part : parts) UnionRect(&whole, &whole, &part);
    std::puts(name.c_str());
    std::fflush(stdout);
    Sleep(500);
    const bool isLive = textOf(controlById(program, idStart)) == "Start";
    await([] { return idleTicks() >= 5; }, isLive ? quickly : 0); // frames with all drawn on them
    const fs::path request = screenshots / (name + ".request");
    std::ofstream(request) << whole.right - whole.left << 'x' << whole.bottom - whole.top << '+'
                           << whole.left << '+' << whole.top << '\n';
    awaitOr("nobody took " + name, [&] { return !fs::exists(request); });
}

RECT placeOf(HWND window) {
    RECT place{};
    GetWindowRect(window, &place);
    return place;
}

// Of the sample's picture.
RECT partOfPicture(int left, int top, int right, int bottom) {
    RECT part{left, top, right, bottom};
    MapWindowPoints(program.window, nullptr, reinterpret_cast<POINT*>(&part), 2);
    return part;
}

struct TitledWindow {
    const char* title;
    HWND found;
};

HWND toolCalled(const char* title) {
    TitledWindow search{title, nullptr};
    awaitOr(std::string("no window ") + title, [&] {
        EnumWindows(
            [](HWND window, LPARAM parameter) -> BOOL {
                auto& wanted = *reinterpret_cast<TitledWindow*>(parameter);
                if (IsWindowVisible(window) && textOf(window) == wanted.title)
                    wanted.found = window;
                return wanted.found == nullptr;
            },
            reinterpret_cast<LPARAM>(&search));
        return search.found != nullptr;
    });
    return search.found;
}

void moveTo(HWND window, int x, int y) {
    SetWindowPos(window, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
}

void press(HWND window, int id) {
    SendMessageW(window, WM_COMMAND, static_cast<WPARAM>(id), 0);
}

void type(HWND window, int id, const char* text) {
    SendMessageA(GetDlgItem(window, id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
}

int rowsOf(HWND window, int table) {
    constexpr UINT getItemCount = 0x1004; // LVM_GETITEMCOUNT
    return static_cast<int>(SendMessageW(GetDlgItem(window, table), getItemCount, 0, 0));
}

HWND information() {
    return controlAt(program, "EDIT", 1262, 360);
}

void answerYes(const std::string& text) {
    const Box box = awaitBox(program, patiently);
    require(box.text == text, "expected \"" + text + "\" and not \"" + box.text + "\"");
    require(answerBox(box, IDYES), "the box does not close");
}

// The stage rests when its place reads the same for a second.
void goTo(int x, int y, int z) {
    for (const auto& [id, um] :
         {std::pair(int(idPositionX), x), {int(idPositionY), y}, {int(idPositionZ), z}}) {
        typeAndEnter(controlById(program, id), std::to_string(um));
        std::string before;
        awaitOr("the stage does not rest", [&] {
            const std::string now = textOf(controlById(program, id));
            const bool rests = now == before && std::abs(std::atoi(now.c_str()) - um) <= 1;
            before = now;
            Sleep(500);
            return rests;
        });
    }
}

void selectArea(int left, int top, int right, int bottom) {
    drag(program, left, top, right, bottom);
    answerYes("Do you want to set it for next scan area");
}

void awaitEnd() {
    awaitOr("the process does not end",
            [] { return textOf(controlById(program, idStart)) == "Start"; });
}

void showPlaces() {
    // On a sample that rises by a degree along X: so high is the focus there.
    for (const auto& [x, y] : {std::pair(-60, -40), {60, -40}, {-10, 50}, {50, 45}}) {
        goTo(x, y, static_cast<int>(std::lround(x * 0.0175)));
        command(program, idRememberPlace);
        Sleep(500);
    }
    const HWND places = toolCalled("Places");
    for (int row = 0; row < 4; ++row) {
        const WPARAM way = row == 0 ? VK_HOME : VK_DOWN;
        PostMessageW(GetDlgItem(places, idPlacesTable), WM_KEYDOWN, way, 0);
        Sleep(200);
        const char* const names[] = {"contact left", "contact right", "flake", "edge"};
        type(places, idPlacesName, names[row]);
        press(places, idPlacesRename);
        press(places, idPlacesFocus);
    }
    press(places, idPlacesMakePlane);
    goTo(0, 0, 0);
    moveTo(places, 1480, 20);
    takePicture("places", {placeOf(places)});
    takePicture("marks", {partOfPicture(150, 100, 1150, 930)});
    PostMessageW(places, WM_CLOSE, 0, 0);
}

void showList() {
    command(program, idScanList);
    const HWND list = toolCalled("Scan list");
    moveTo(list, 1480, 420);
    type(list, idListName, "night");
    type(list, idListSample, "MoS2 no. 7");
    type(list, idListNote, "before annealing");
    const RECT areas[] = {{520, 430, 720, 580}, {760, 560, 920, 660}, {400, 640, 560, 740}};
    for (const RECT& area : areas) {
        selectArea(area.left, area.top, area.right, area.bottom);
        press(list, idListAddArea);
    }
    press(list, idListAddSweep);
    require(rowsOf(list, idListTable) == 4, "the list has not its rows");
    takePicture("rows", {partOfPicture(300, 330, 1020, 840)});
    PostMessageW(list, WM_COMMAND, idListStart, 0);
    answerYes("Hysteresis compensated. Is it okay?");
    awaitOr("the second row does not begin",
            [] { return textOf(program.window).find("row 3 of 4") != std::string::npos; });
    Sleep(8000);
    takePicture("list", {placeOf(list)});
    awaitEnd();
    awaitOr("the list does not end",
            [] { return textOf(information()).find("Scan list finished") != std::string::npos; });
    PostMessageW(list, WM_CLOSE, 0, 0);
}

void readTheMap() {
    selectArea(430, 340, 810, 680);
    click(controlById(program, idStart));
    answerYes("Hysteresis compensated. Is it okay?");
    Sleep(3000);
    awaitEnd();
    const HWND map = topWindow(program, "Kestrel");
    require(map, "no map");
    moveTo(map, 1480, 20);
    POINT at{260, 150};
    ClientToScreen(map, &at);
    SetCursorPos(at.x, at.y);
    awaitOr("the title says no value",
            [&] { return textOf(map).find("column") != std::string::npos; });
    takePicture("map", {placeOf(map)});
    takePicture("cross", {partOfPicture(330, 240, 910, 780)});
    dragOn(map, 40, 60, 350, 330, MouseButton::Right);
    takePicture("profile", {placeOf(toolCalled("Profile"))});
    PostMessageW(toolCalled("Profile"), WM_CLOSE, 0, 0);
    command(program, idColours);
    takePicture("colours", {placeOf(awaitBox(program, patiently).window)});
    answerBox(openBox(program), IDCANCEL);
}

void showScans() {
    command(program, idScans);
    const HWND scans = toolCalled("Scans");
    moveTo(scans, 100, 100);
    awaitOr("the scans are not listed", [&] { return rowsOf(scans, idScansTable) >= 4; });
    for (const auto& [way, mark, word] : {std::tuple(VK_HOME, idScansGood, "the whole device"),
                                          {VK_DOWN, idScansBad, "bubble below the contact"}}) {
        PostMessageW(GetDlgItem(scans, idScansTable), WM_KEYDOWN, static_cast<WPARAM>(way), 0);
        Sleep(300);
        type(scans, idScansWord, word);
        press(scans, mark);
    }
    takePicture("scans", {placeOf(scans)});
}

void play(const fs::path& desk) {
    breakLaboratory(desk, "sample tilted 1 0\nboard quiet");
    const LabPixel spot = labSpotPixel();
    char line[200];
    std::snprintf(line, sizeof line,
                  "step:2.0, laser:4.00, laser correct:(%d,%d), Ammeter:4, GPIB:18, "
                  "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\r\n",
                  spot.column, spot.row);
    fs::remove_all(dataRoot());
    fs::create_directories(dataRoot());
    std::ofstream(dataRoot() / "Config.txt", std::ios::binary) << line;
    program = startProgram(desk);
    require(awaitMainWindow(program, patiently), "no window came");
    awaitOr("the live view does not run", [] { return idleTicks() >= 15; });
    moveTo(program.window, 0, 0);
    showPlaces();
    showList();
    readTheMap();
    showScans();
    closeMainWindow(program);
    require(awaitExit(program, patiently) == 0, "the program does not end well");
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("guide_pictures.exe DESK_FOLDER SCREENSHOT_FOLDER\n", stderr);
        return 2;
    }
    int result = 0;
    try {
        screenshots = arguments[2];
        play(arguments[1]);
    } catch (const std::exception& error) {
        std::printf("Failed: %s; information: %s\n", error.what(), textOf(information()).c_str());
        result = 1;
    }
    endProgram(program);
    return result;
}
