// Plays the operator of the real program from outside.
#include "tools/operator.h"

#include <shlobj.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

static std::string className(HWND window) {
    char name[64] = "";
    GetClassNameA(window, name, sizeof name);
    return name;
}

// --- Life ---------------------------------------------------------------------------------------

fs::path layDesk(bool laboratory, const char* release) {
    wchar_t own[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    fs::path buildFolder = fs::path(own).parent_path();
    fs::path folder = fs::temp_directory_path() / "desk";
    // What a program that was just ended had open may be let go of a little later.
    await(
        [&] {
            std::error_code error;
            fs::remove_all(folder, error);
            return !error;
        },
        quickly);
    fs::create_directories(folder);
    fs::copy_file(buildFolder / "Lumascan.exe", folder / "Lumascan.exe");
    if (laboratory) {
        for (const fs::path& source :
             {buildFolder / "laboratory", buildFolder / "laboratory" / release})
            for (const auto& entry : fs::directory_iterator(source))
                if (entry.path().extension() == ".dll")
                    fs::copy_file(entry.path(), folder / entry.path().filename(),
                                  fs::copy_options::overwrite_existing);
    }
    return folder;
}

void breakLaboratory(const fs::path& folder, const std::string& faults) {
    std::ofstream(folder / "virtual_lab.txt", std::ios::binary) << faults;
}

Program startProgram(const fs::path& folder, const char* outputName,
                     const fs::path& currentFolder) {
    Program program;
    program.folder = folder;
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    HANDLE output = CreateFileW((folder / outputName).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    PROCESS_INFORMATION started{};
    std::wstring executable = (folder / "Lumascan.exe").wstring();
    BOOL ok = CreateProcessW(executable.c_str(), nullptr, nullptr, nullptr, TRUE, 0, nullptr,
                             (currentFolder.empty() ? folder : currentFolder).c_str(), &startup,
                             &started);
    CloseHandle(output);
    if (!ok) throw std::runtime_error("Lumascan.exe cannot be started");
    CloseHandle(started.hThread);
    program.process = started.hProcess;
    program.processId = started.dwProcessId;
    return program;
}

bool awaitMainWindow(Program& program, int timeoutMs) {
    return await(
        [&] {
            program.window = topWindow(program, "LUMA");
            return program.window != nullptr;
        },
        timeoutMs);
}

void closeMainWindow(const Program& program) {
    PostMessageW(program.window, WM_CLOSE, 0, 0);
}

long long awaitExit(const Program& program, int timeoutMs) {
    DWORD code = 0;
    if (WaitForSingleObject(program.process, static_cast<DWORD>(timeoutMs)) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(program.process, &code))
        return -1;
    return code;
}

void endProgram(Program& program) {
    if (!program.process) return;
    TerminateProcess(program.process, 99);
    WaitForSingleObject(program.process, quickly);
    CloseHandle(program.process);
    program = Program{};
}

// --- Looking -------------------------------------------------------------------------------------

bool await(const std::function<bool()>& condition, int timeoutMs) {
    ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(timeoutMs);
    while (!condition()) {
        if (GetTickCount64() >= end) return false;
        Sleep(10);
    }
    return true;
}

HWND controlById(const Program& program, int id) {
    return GetDlgItem(program.window, id);
}

HWND controlAt(const Program& program, const char* windowClass, int x, int y) {
    for (HWND child = GetWindow(program.window, GW_CHILD); child;
         child = GetWindow(child, GW_HWNDNEXT)) {
        RECT place{};
        GetWindowRect(child, &place);
        POINT corner{place.left, place.top};
        ScreenToClient(program.window, &corner);
        if (corner.x == x && corner.y == y && lstrcmpiA(className(child).c_str(), windowClass) == 0)
            return child;
    }
    return nullptr;
}

std::string textOf(HWND window) {
    char text[1000] = "";
    DWORD_PTR length = 0;
    // GetWindowText does not ask a control of another process.
    if (!SendMessageTimeoutA(window, WM_GETTEXT, sizeof text, reinterpret_cast<LPARAM>(text),
                             SMTO_NORMAL, 2000, &length))
        return "";
    return text;
}

bool awaitText(HWND window, const std::string& part, int timeoutMs) {
    return await([&] { return textOf(window).find(part) != std::string::npos; }, timeoutMs);
}

bool isChecked(const Program& program, int id) {
    DWORD_PTR state = 0;
    SendMessageTimeoutA(controlById(program, id), BM_GETCHECK, 0, 0, SMTO_NORMAL, 2000, &state);
    return state == BST_CHECKED;
}

struct WindowSearch {
    DWORD processId;
    const char* windowClass;
    HWND found;
};

static BOOL CALLBACK isSearched(HWND window, LPARAM parameter) {
    auto& search = *reinterpret_cast<WindowSearch*>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner != search.processId || !IsWindowVisible(window) ||
        className(window) != search.windowClass)
        return TRUE;
    search.found = window;
    return FALSE;
}

HWND topWindow(const Program& program, const char* windowClass) {
    WindowSearch search{program.processId, windowClass, nullptr};
    EnumWindows(isSearched, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

Box openBox(const Program& program) {
    Box box;
    box.window = topWindow(program, "#32770");
    if (!box.window) return box;
    box.caption = textOf(box.window);
    for (HWND child = GetWindow(box.window, GW_CHILD); child;
         child = GetWindow(child, GW_HWNDNEXT)) {
        if (!IsWindowVisible(child)) continue;
        std::string text = textOf(child);
        if (className(child) == "Static" && !text.empty()) box.text = text;
        if (className(child) == "Button") {
            std::erase(text, '&');
            if (!box.buttons.empty()) box.buttons += ' ';
            box.buttons += text;
        }
    }
    return box;
}

Box awaitBox(const Program& program, int timeoutMs) {
    Box box;
    // A box that is still being filled has no button yet.
    await(
        [&] {
            box = openBox(program);
            return box.window && !box.buttons.empty();
        },
        timeoutMs);
    return box;
}

// --- Acting --------------------------------------------------------------------------------------

bool answerBox(const Box& box, int button) {
    HWND pressed = GetDlgItem(box.window, button);
    if (!pressed) return false;
    PostMessageW(box.window, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(pressed));
    return await([&] { return !IsWindow(box.window); }, quickly);
}

void click(HWND control) {
    RECT area{};
    GetClientRect(control, &area);
    LPARAM middle = MAKELPARAM(area.right / 2, area.bottom / 2);
    PostMessageW(control, WM_LBUTTONDOWN, MK_LBUTTON, middle);
    PostMessageW(control, WM_LBUTTONUP, 0, middle);
}

void command(const Program& program, int id) {
    PostMessageW(program.window, WM_COMMAND, MAKEWPARAM(id, 1), 0);
}

void typeAndEnter(HWND edit, const std::string& text) {
    DWORD_PTR ignored = 0;
    SendMessageTimeoutA(edit, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()), SMTO_NORMAL,
                        2000, &ignored);
    PostMessageW(edit, WM_KEYDOWN, VK_RETURN, 0x001C0001);
    PostMessageW(edit, WM_KEYUP, VK_RETURN, static_cast<LPARAM>(0xC01C0001));
}

void pressKey(const Program& program, WPARAM virtualKey) {
    PostMessageW(program.window, WM_KEYDOWN, virtualKey, 1);
    PostMessageW(program.window, WM_KEYUP, virtualKey, static_cast<LPARAM>(0xC0000001));
}

void drag(const Program& program, int x1, int y1, int x2, int y2) {
    dragOn(program.window, x1, y1, x2, y2);
}

void dragOn(HWND window, int x1, int y1, int x2, int y2, MouseButton button) {
    constexpr int steps = 8;
    const bool left = button == MouseButton::Left;
    const WPARAM held = left ? MK_LBUTTON : MK_RBUTTON;
    PostMessageW(window, left ? WM_LBUTTONDOWN : WM_RBUTTONDOWN, held, MAKELPARAM(x1, y1));
    for (int i = 1; i <= steps; i++) {
        PostMessageW(window, WM_MOUSEMOVE, held,
                     MAKELPARAM(x1 + (x2 - x1) * i / steps, y1 + (y2 - y1) * i / steps));
    }
    PostMessageW(window, left ? WM_LBUTTONUP : WM_RBUTTONUP, 0, MAKELPARAM(x2, y2));
}

// --- Files ---------------------------------------------------------------------------------------

fs::path dataRoot() {
    wchar_t desktop[MAX_PATH] = L"";
    SHGetSpecialFolderPathW(nullptr, desktop, CSIDL_DESKTOP, FALSE);
    return fs::path(desktop) / "KST_Data";
}

std::vector<fs::path> sessionFolders() {
    std::vector<fs::path> folders;
    if (!fs::is_directory(dataRoot())) return folders;
    for (const auto& entry : fs::directory_iterator(dataRoot())) {
        const std::string name = entry.path().filename().string(); // YYMMDD_hh-mm
        if (entry.is_directory() && std::isdigit(static_cast<unsigned char>(name[0])))
            folders.push_back(entry.path());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

std::vector<std::string> filesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string contentOf(const fs::path& file) {
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

std::vector<std::vector<double>> readMap(const fs::path& file) {
    std::vector<std::vector<double>> map;
    std::istringstream lines(contentOf(file));
    for (std::string line; std::getline(lines, line);) {
        std::vector<double> row;
        std::istringstream values(line);
        double value = 0;
        char comma = 0;
        while (values >> value) {
            row.push_back(value);
            values >> comma; // none behind the last one of a script's file
        }
        map.push_back(row);
    }
    return map;
}
