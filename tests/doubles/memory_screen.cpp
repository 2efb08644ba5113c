// The screen of the native tests.
#include "tests/doubles/memory_screen.h"

#include "platform/files.h"
#include "platform/start_program.h"
#include "platform/viewer.h"
#include "screen/control_ids.h"
#include "tests/doubles/memory_dialog.h"
#include "tests/doubles/script.h"
#include "ui/commands.h"
#include "ui/tool_windows.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <memory>
#include <set>

constexpr uint32_t desktopGrey = 0xFFFFFF;
constexpr Extent mainClient{1446, 1069};
constexpr Extent windowFrame{16, 39}; // outer size less client size
constexpr Extent toolFrame{6, 29};

Windows windows;
bool mainWindowRefused = false;
bool fittedToScreen = false;
bool textIsSharp = true;
int focusCount = 0;
int taskbarProgress = -1;
std::string shownPage;
std::vector<std::string> startupTexts;
std::vector<WindowHandle> toolWindows;
std::vector<std::wstring> startedPrograms;

static std::vector<std::unique_ptr<NativeWindow>> allWindows;
static std::map<Field, std::vector<std::string>> fields;
static std::map<int, int> radioGroups;
static std::set<int> checkMarks;

void resetScreen() {
    windows.main = windows.map = windows.confocal = nullptr;
    mainWindowRefused = false;
    fittedToScreen = false;
    textIsSharp = true;
    focusCount = 0;
    taskbarProgress = -1;
    shownPage.clear();
    startupTexts.clear();
    startedPrograms.clear();
    while (!toolWindows.empty()) destroyToolWindow(toolWindows.back());
    allWindows.clear();
    fields.clear();
    radioGroups.clear();
    checkMarks.clear();
}

static WindowHandle addWindow(Extent client) {
    allWindows.push_back(std::make_unique<NativeWindow>());
    allWindows.back()->client = blankBitmap(client.width, client.height, desktopGrey);
    return allWindows.back().get();
}

void openBareWindow() {
    windows.main = addWindow(mainClient);
}

void setField(Field field, const char* text) {
    if (!windows.main) return;
    fields[field].push_back(text);
    if (onlooker.shows) onlooker.shows(field);
}

std::string fieldText(Field field, int capacity) {
    return textIn(field).substr(0, static_cast<size_t>(capacity) - 1);
}

std::vector<std::string>& historyOf(Field field) {
    return fields[field];
}

std::string textIn(Field field) {
    return fields[field].empty() ? "" : fields[field].back();
}

void typeInto(Field field, const std::string& text) {
    fields[field].push_back(text);
}

void checkRadio(int first, int, int checked) {
    if (windows.main) radioGroups[first] = checked;
}

int checkedRadio(int first) {
    return radioGroups[first];
}

void showMainControl(int id, bool shown) {
    if (windows.main) windows.main->hidden[id] = !shown;
}

bool isMainControl(WindowHandle, int) {
    return false; // no message goes to a control of its own
}

bool toggleCheckMark(int id) {
    if (checkMarks.erase(id) != 0) return false;
    checkMarks.insert(id);
    return true;
}

void focusMainWindow() {
    focusCount++;
}

bool fitToScreen(bool fitted) {
    fittedToScreen = fitted;
    return textIsSharp;
}

void setMainTitle(const char* text) {
    if (windows.main) windows.main->text = text;
}

bool mainWindowIsHeld() {
    return !windows.main || boxIsOpen() || dialogIsOpen();
}

void showTaskbarProgress(int percent) {
    taskbarProgress = percent;
}

void startTimer(Timer timer, unsigned periodMs) {
    if (windows.main) setTimer(timer, periodMs);
}

void stopTimer(Timer timer) {
    setTimer(timer, 0);
}

int registerWindowClasses() {
    return 1;
}

int createMainWindow(int) {
    if (mainWindowRefused) return 0;
    openBareWindow();
    checkRadio(idLaserView, idSampleView, idSampleView);
    fillControlColumn();
    return 1;
}

void destroyMainWindow() {
    if (!windows.main) return;
    while (!toolWindows.empty()) destroyToolWindow(toolWindows.back()); // it owns them
    windows.main = nullptr;
    quitMessageLoop();
}

void showStartupNotice() {}
void closeStartupNotice() {}
void showAtStartup(const char* text) {
    startupTexts.emplace_back(text);
}
void showAbout() {}

void showDevices(const char* text) {
    shownPage = text;
}

std::string startProgram(const std::wstring& path, const std::wstring& argument) {
    if (!fileExists(path)) return "The system cannot find the file specified (2)";
    startedPrograms.push_back(path + L" " + argument);
    return {};
}

bool openInViewer(const std::wstring& path) {
    return fileExists(path);
}

bool showInFolder(const std::wstring& path) {
    return fileExists(path);
}

static void placeWindow(WindowHandle& window, int width, int height) {
    const Extent client{width - windowFrame.width, height - windowFrame.height};
    if (!window) window = addWindow(client);
    if (client.width != window->client.width || client.height != window->client.height)
        window->client = blankBitmap(client.width, client.height, desktopGrey);
}

void placeMapWindow(int, int, int width, int height) {
    placeWindow(windows.map, width, height);
}

void placeConfocalWindow(int, int, int width, int height) {
    placeWindow(windows.confocal, width, height);
}

WindowHandle createToolWindow(const wchar_t* title, int, const ToolControl* controls, int count,
                              WindowHandle* edits, int width, int height) {
    const Extent toolClient{width - toolFrame.width, height - toolFrame.height};
    const WindowHandle window = addWindow(toolClient);
    window->text.assign(title, title + std::wcslen(title));
    for (int i = 0; i < count; i++) {
        const bool fits = controls[i].x + controls[i].width <= toolClient.width &&
                          controls[i].y + controls[i].height <= toolClient.height;
        EXPECT_TRUE(fits) << controls[i].text;
        if (controls[i].id != 0) window->texts[controls[i].id] = controls[i].text;
        if (controls[i].kind != ToolControl::Kind::Edit) continue;
        *edits = addWindow({1, 1});
        window->edits.push_back(*edits++);
    }
    toolWindows.push_back(window);
    return window;
}

void setToolText(WindowHandle window, int id, const char* text) {
    if (window) window->texts[id] = text;
}

void showToolControl(WindowHandle window, int id, bool shown) {
    if (window) window->hidden[id] = !shown;
}

void checkInTool(WindowHandle window, int id, bool checked) {
    if (window) window->checked[id] = checked;
}

bool isCheckedInTool(WindowHandle window, int id) {
    return window && window->checked[id];
}

void fillToolTable(WindowHandle window, int, int rows, int selected) {
    if (!window) return;
    window->tableRows = rows;
    window->selectedRow = selected;
    onToolSelection(window);
}

int selectedInToolTable(WindowHandle window, int) {
    return window ? window->selectedRow : -1;
}

void raiseToolWindow(WindowHandle) {}

void destroyToolWindow(WindowHandle window) {
    forgetTool(window);
    std::erase(toolWindows, window);
}

std::string windowText(WindowHandle window, int capacity) {
    return window ? window->text.substr(0, static_cast<size_t>(capacity) - 1) : "";
}

void setWindowText(WindowHandle window, const char* text) {
    if (window) window->text = text;
}

void paintPending(WindowHandle window) {
    if (window) window->timesPainted++;
}
