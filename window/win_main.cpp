// Where the program begins.
#include "app/program.h"
#include "window/crash_guard.h"

#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showCommand) {
    guardAgainstCrashes();
    return runProgram(showCommand);
}
