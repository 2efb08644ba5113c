// Where the program begins, and what a crash does last.
#include "app/fatal.h"
#include "app/program.h"
#include "window/crash_dump.h"

#include <windows.h>

static LONG WINAPI makeSafeAtCrash(EXCEPTION_POINTERS* exception) {
    makeSafe();
    writeCrashDump(exception);
    return EXCEPTION_CONTINUE_SEARCH;
}

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showCommand) {
    // A stack that has overflown leaves so much for what makes the set-up safe.
    ULONG reserveBytes = 128 * 1024;
    SetThreadStackGuarantee(&reserveBytes);
    SetUnhandledExceptionFilter(makeSafeAtCrash);
    leaveEvidence = [] { writeCrashDump(nullptr); };
    return runProgram(showCommand);
}
