// The laboratory as a DLL: real time, the fault file beside it, and the laser board as a thread at
// the far end of a null-modem cable.
#include "virtual_lab/lab_state.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

// The program's end of the cable is COM10.
constexpr wchar_t boardPort[] = L"\\\\.\\COM11";
constexpr DWORD openRetryMs = 500;
constexpr DWORD faultCheckMs = 100;

static std::wstring laboratoryFolder; // with a backslash at the end
static HANDLE port = INVALID_HANDLE_VALUE;
static HANDLE commandLog = INVALID_HANDLE_VALUE;
static HANDLE instrumentLog = INVALID_HANDLE_VALUE;

static double performanceMs() {
    static const double ticksPerMs = [] {
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        return static_cast<double>(frequency.QuadPart) / 1000;
    }();
    LARGE_INTEGER ticks;
    QueryPerformanceCounter(&ticks);
    return static_cast<double>(ticks.QuadPart) / ticksPerMs;
}

// --- Crashes -------------------------------------------------------------------------------------

static std::atomic<LPTHREAD_START_ROUTINE> crash = nullptr; // that the fault file asks for
static std::atomic<bool> crashAside, crashAgain;

static DWORD WINAPI crashByException(void*) {
    static volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
    return 0;
}

static DWORD WINAPI crashByAbort(void*) {
    std::abort();
}

[[gnu::noinline]] static DWORD recurse(DWORD depth) {
    volatile DWORD frame[100];
    frame[0] = depth;
    return depth + 1 == 0 ? 0 : recurse(depth + 1) + frame[0];
}

// Windows keeps a guard page so far above the end of the stack as the thread has asked for. Wine 8
// has the whole stack committed and the guard page at its end, whatever was asked for, so that it
// has no place for the exception and ends the thread: here the page is put where it belongs.
static DWORD WINAPI crashByOverflow(void*) {
    ULONG guaranteed = 0; // asks
    SetThreadStackGuarantee(&guaranteed);
    MEMORY_BASIC_INFORMATION stack;
    VirtualQuery(&stack, &stack, sizeof stack);
    DWORD before;
    VirtualProtect(static_cast<char*>(stack.AllocationBase) + guaranteed, 1,
                   PAGE_READWRITE | PAGE_GUARD, &before);
    return recurse(0);
}

// The laboratory's lock is not held: what makes the set-up safe needs it.
static void crashIfWanted() {
    const auto wanted = crashAgain ? crash.load() : crash.exchange(nullptr);
    if (!wanted) return;
    if (!crashAside) wanted(nullptr);
    CreateThread(nullptr, 0, wanted, nullptr, 0, nullptr);
}

static void planCrash(const LabFaults& faults) {
    crashAside = faults.crashAside;
    crashAgain = faults.crashAgain;
    if (faults.crash == "exception") crash = crashByException;
    if (faults.crash == "abort") crash = crashByAbort;
    if (faults.crash == "overflow") crash = crashByOverflow;
}

static void sleepRoundedUp(double ms) {
    if (ms > 0) Sleep(static_cast<DWORD>(ms) + 1);
}

static std::string readWholeFile(const std::wstring& path) {
    std::string text;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return text;
    char part[4096];
    for (DWORD count; ReadFile(file, part, sizeof part, &count, nullptr) && count > 0;)
        text.append(part, count);
    CloseHandle(file);
    return text;
}

// A file that cannot be understood leaves the faults as they are.
static void followFaultFile() {
    static ULONGLONG lastCheck = 0;
    static WIN32_FILE_ATTRIBUTE_DATA seen = {};
    ULONGLONG now = GetTickCount64();
    if (now - lastCheck < faultCheckMs) return;
    lastCheck = now;

    std::wstring path = laboratoryFolder + L"virtual_lab.txt";
    WIN32_FILE_ATTRIBUTE_DATA found = {};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &found);
    if (CompareFileTime(&found.ftLastWriteTime, &seen.ftLastWriteTime) == 0 &&
        found.nFileSizeLow == seen.nFileSizeLow)
        return;
    seen = found;
    applyLabFaults(readWholeFile(path));
    planCrash(lab.faults);
}

static HANDLE createLog(const wchar_t* name) {
    return CreateFileW((laboratoryFolder + name).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                       CREATE_ALWAYS, 0, nullptr);
}

// One message on each line behind the instrument's name; control characters as \x and two digits.
static void writeInstrumentLog(const std::string& text) {
    const std::string line = text + '\n';
    DWORD written;
    WriteFile(instrumentLog, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

static void logInstrumentCommand(LabInstrument who, const std::string& message) {
    std::string line = labInstrumentKinds[who].name;
    line += ' ';
    for (char byte : message) {
        auto code = static_cast<unsigned char>(byte);
        line += code < 0x20 || code > 0x7E ? printed("\\x%02x", code) : std::string(1, byte);
    }
    writeInstrumentLog(line);
}

static void logStage(int axis, const char* what) {
    writeInstrumentLog(printed("stage %c %s", "xyz"[axis], what));
}

// --- The board's end of the cable
// -----------------------------------------------------------------

static bool openBoardPort() {
    port =
        CreateFileW(boardPort, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (port == INVALID_HANDLE_VALUE) return false;
    DCB line = {};
    line.DCBlength = sizeof line;
    GetCommState(port, &line);
    line.BaudRate = 9600;
    line.ByteSize = 8;
    line.Parity = NOPARITY;
    line.StopBits = ONESTOPBIT;
    SetCommState(port, &line);
    COMMTIMEOUTS timeouts = {};
    timeouts.ReadTotalTimeoutConstant = 50;
    timeouts.WriteTotalTimeoutConstant = 500;
    SetCommTimeouts(port, &timeouts);
    return true;
}

static void closeBoardPort() {
    if (port == INVALID_HANDLE_VALUE) return;
    CloseHandle(port);
    port = INVALID_HANDLE_VALUE;
}

// False when the line is broken; empty when nothing comes. Byte by byte: a longer read would not
// return before its time is over.
static bool readCommand(std::string& bytes) {
    bytes.clear();
    do {
        char byte;
        DWORD count = 0;
        if (!ReadFile(port, &byte, 1, &count, nullptr)) return false;
        if (count == 0) break;
        bytes += byte;
    } while (bytes.back() != '\0');
    return true;
}

// One command on each line.
static void logCommand(std::string bytes) {
    for (char& byte : bytes)
        if (byte == '\0') byte = '\n';
    DWORD written;
    WriteFile(commandLog, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

static bool serveBoard() {
    std::string bytes;
    if (!readCommand(bytes)) return false;
    logCommand(bytes);
    boardReceive(bytes.data(), bytes.size());
    std::string reply = takeBoardReply();
    DWORD written;
    return reply.empty() ||
           WriteFile(port, reply.data(), static_cast<DWORD>(reply.size()), &written, nullptr);
}

static DWORD WINAPI runBoard(void*) {
    for (;;) {
        if (!labBoardPresent()) {
            closeBoardPort();
            Sleep(faultCheckMs);
        } else if (port == INVALID_HANDLE_VALUE) {
            if (!openBoardPort()) Sleep(openRetryMs);
        } else if (!serveBoard()) {
            closeBoardPort();
            Sleep(openRetryMs);
        }
    }
}

// --- Life
// -----------------------------------------------------------------------------------------

static void startLaboratory() {
    setLabClock(performanceMs, sleepRoundedUp);
    resetLab(1);
    commandLog = createLog(L"board_commands.log");
    instrumentLog = createLog(L"instrument_commands.log");
    labOnCommand = logInstrumentCommand;
    labOnStage = logStage;
    labWhileMoving = crashIfWanted;
    // The board outlives the program's use of any one library, so this DLL stays to the end.
    HMODULE pinned;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&startLaboratory), &pinned);
    HANDLE thread = CreateThread(nullptr, 0, runBoard, nullptr, 0, nullptr);
    if (thread) CloseHandle(thread);
}

static void beforeCall() {
    static bool started = false, inside = false; // the laboratory's lock is held
    if (inside) return;
    inside = true;
    if (!started) startLaboratory();
    started = true;
    followFaultFile();
    inside = false;
}

// At the end of the process the board's thread has gone already, but what the program sent last
// (the laser off) may still be on the line. The lock is left alone: its owner may be dead.
static void logLastCommands() {
    std::string bytes;
    while (port != INVALID_HANDLE_VALUE && readCommand(bytes) && !bytes.empty()) logCommand(bytes);
    closeBoardPort();
    labOnCommand = nullptr;
    labOnStage = nullptr;
    for (HANDLE log : {commandLog, instrumentLog})
        if (log != INVALID_HANDLE_VALUE) CloseHandle(log);
}

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(module, path, MAX_PATH);
        laboratoryFolder = path;
        laboratoryFolder.resize(laboratoryFolder.find_last_of(L'\\') + 1);
        labBeforeCall = beforeCall;
    } else if (reason == DLL_PROCESS_DETACH) {
        labBeforeCall = nullptr;
        logLastCommands();
    }
    return TRUE;
}
