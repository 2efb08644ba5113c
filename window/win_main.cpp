// Where the program begins, and what a crash does last.
#include "app/fatal.h"
#include "app/program.h"

#include <windows.h>

static LONG WINAPI makeSafeAtCrash(EXCEPTION_POINTERS*) {
    makeSafe();
    return EXCEPTION_CONTINUE_SEARCH;
}

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showCommand) {
    SetUnhandledExceptionFilter(makeSafeAtCrash);
    return runProgram(showCommand);
}
