// Lets threads that wait for nothing else make the set-up safe when another one has crashed.
//
// The crashed thread may have no stack left, and the window's thread may not touch its windows any
// more; a step may crash itself, or wait for a lock that the crashed thread holds. So each guard
// goes through the steps until all have been tried, and where one does not come to an end, the next
// guard goes on with the next step.
#include "window/crash_guard.h"

#include "app/fatal.h"
#include "session/forced_end.h"
#include "window/crash_dump.h"

#include <windows.h>

#include <atomic>

namespace {

struct Guard {
    void (*work)();
    HANDLE called = nullptr;
    HANDLE ended = nullptr; // also when it has crashed itself
    DWORD thread = 0;
};

Crash crash;

void tryAllSteps() {
    while (tryNextSafetyStep()) {
    }
}

// The last is called when the others are done: a dump halts all threads.
Guard guards[] = {{tryAllSteps}, {tryAllSteps}, {tryAllSteps}, {[] { writeCrashDump(crash); }}};
constexpr DWORD guardCount = sizeof guards / sizeof guards[0];

constexpr DWORD patienceMs = 5000;      // then the next guard goes on beside this one
constexpr DWORD lastPatienceMs = 60000; // an instrument that is stuck takes its time-outs

DWORD WINAPI keepGuard(void* of) {
    auto* guard = static_cast<Guard*>(of);
    WaitForSingleObject(guard->called, INFINITE);
    guard->work();
    SetEvent(guard->ended);
    return 0;
}

void callGuards() {
    HANDLE ended[guardCount];
    for (DWORD i = 0; i < guardCount; ++i) {
        ended[i] = guards[i].ended;
        const bool isLast = i + 1 == guardCount;
        if (isLast) {
            tryAllSteps(); // what no guard has come to
            WaitForMultipleObjects(i, ended, TRUE, lastPatienceMs);
        }
        SetEvent(guards[i].called);
        WaitForSingleObject(guards[i].ended, isLast ? lastPatienceMs : patienceMs);
    }
}

// Once, for the thread that crashed first. One that crashes meanwhile stays here: the first ends
// the process.
void makeSafeAndLeaveEvidence(EXCEPTION_POINTERS* exception) {
    static std::atomic<DWORD> first = 0;
    const DWORD self = GetCurrentThreadId();
    DWORD none = 0;
    if (first.compare_exchange_strong(none, self)) {
        crash = {exception, self};
        return callGuards();
    }
    if (first == self) return; // its own end has failed
    for (const Guard& guard : guards)
        if (guard.thread == self) SetEvent(guard.ended);
    Sleep(INFINITE);
}

LONG WINAPI atException(EXCEPTION_POINTERS* exception) {
    makeSafeAndLeaveEvidence(exception);
    return EXCEPTION_CONTINUE_SEARCH;
}

// The dump then shows where the program was ended.
void atForcedEnd() {
    constexpr DWORD fatalAppExit = 0x40000015; // STATUS_FATAL_APP_EXIT
    EXCEPTION_RECORD record{};
    record.ExceptionCode = fatalAppExit;
    record.ExceptionAddress = __builtin_return_address(0);
    CONTEXT context;
    RtlCaptureContext(&context);
    EXCEPTION_POINTERS here{&record, &context};
    makeSafeAndLeaveEvidence(&here);
}

// Called for every thread of the process as it begins, whoever makes it: a stack that overflows
// leaves so much for calling the guards. The system's own reserve of two pages is too little.
void NTAPI reserveStack(void*, DWORD reason, void*) {
    ULONG bytes = 32 * 1024;
    if (reason == DLL_PROCESS_ATTACH || reason == DLL_THREAD_ATTACH)
        SetThreadStackGuarantee(&bytes); // a stack that is smaller stays as it is
}

} // namespace

// The linker collects these sections into the program's list of thread callbacks.
extern "C" {
extern const PIMAGE_TLS_CALLBACK stackReserver;
__attribute__((section(".CRT$XLF"), used)) const PIMAGE_TLS_CALLBACK stackReserver = reserveStack;
}

void guardAgainstCrashes() {
    for (Guard& guard : guards) {
        guard.called = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        guard.ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        HANDLE thread = CreateThread(nullptr, 0, keepGuard, &guard, 0, &guard.thread);
        if (thread) CloseHandle(thread);
    }
    forcedEnd.makeSafe = atForcedEnd;
    SetUnhandledExceptionFilter(atException);
}
