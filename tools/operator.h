// Plays the operator of the real program from outside: starts it, reads its windows, and acts by
// the messages that mouse and keyboard give.
#pragma once

#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

struct Program {
    HANDLE process = nullptr;
    DWORD processId = 0;
    HWND window = nullptr;        // of class "LUMA"; null until awaitMainWindow
    std::filesystem::path folder; // of the executable
};

struct Box {
    HWND window = nullptr; // null: no box
    std::string caption;
    std::string text;
    std::string buttons; // captions without '&', joined by blanks
};

constexpr int quickly = 10'000;   // ms; what the program does at once, on a slow machine
constexpr int patiently = 60'000; // ms; what waits for devices

// --- Life ---------------------------------------------------------------------------------------

// Lays a fresh folder with the executable and, with `laboratory`, the vendors' DLLs, over them
// those of another release ("other_ordinals"); all are taken from the folder of this very program.
// Throws std::filesystem::filesystem_error.
std::filesystem::path layDesk(bool laboratory, const char* release = "");

// Writes the laboratory's list of faults beside the executable; "" mends everything.
void breakLaboratory(const std::filesystem::path& folder, const std::string& faults);

// Starts it in `currentFolder`, in its own when that is empty; what it prints goes into the file
// `output` of its own. Throws std::runtime_error when Windows cannot start it.
Program startProgram(const std::filesystem::path& folder, const char* output = "output.txt",
                     const std::filesystem::path& currentFolder = {});

bool awaitMainWindow(Program& program, int timeoutMs);

// Asks the program to close, as the frame's button does.
void closeMainWindow(const Program& program);

// -1 when it still runs after the time.
long long awaitExit(const Program& program, int timeoutMs);

// Ends a program that still runs; releases the handle.
void endProgram(Program& program);

// --- Looking -------------------------------------------------------------------------------------

// Polls every 10 ms until the condition holds; false after the time.
bool await(const std::function<bool()>& condition, int timeoutMs);

HWND controlById(const Program& program, int id);

// The child of that class whose top left corner lies at (x, y) of the client area: several
// controls share an id.
HWND controlAt(const Program& program, const char* windowClass, int x, int y);

// "" when the window does not answer within two seconds.
std::string textOf(HWND window);

bool awaitText(HWND window, const std::string& part, int timeoutMs);
bool isChecked(const Program& program, int id);

// The visible top-level window of that class; null when there is none.
HWND topWindow(const Program& program, const char* windowClass);

// The box that stands on top now; its window is null when there is none.
Box openBox(const Program& program);
Box awaitBox(const Program& program, int timeoutMs);

// --- Acting --------------------------------------------------------------------------------------

// Presses a button of the box (IDOK, IDYES, IDNO) and waits until the box is gone.
bool answerBox(const Box& box, int button);

// A click with the mouse into the middle of the control.
void click(HWND control);

// A menu command or accelerator.
void command(const Program& program, int id);

void typeAndEnter(HWND edit, const std::string& text);
void pressKey(const Program& program, WPARAM virtualKey);

// With the left button on the picture, in its pixels from the top left corner.
void drag(const Program& program, int x1, int y1, int x2, int y2);

// The same on any window, or with the right button.
enum class MouseButton { Left, Right };
void dragOn(HWND window, int x1, int y1, int x2, int y2, MouseButton button = MouseButton::Left);

// --- Files ---------------------------------------------------------------------------------------

std::filesystem::path dataRoot(); // "KST_Data" on the desktop

// Folders below the data root but the log's, sorted by name.
std::vector<std::filesystem::path> sessionFolders();

// Names, sorted.
std::vector<std::string> filesIn(const std::filesystem::path& folder);

// "" when it cannot be read.
std::string contentOf(const std::filesystem::path& file);

// The numbers of a map file, [row][column].
std::vector<std::vector<double>> readMap(const std::filesystem::path& file);
