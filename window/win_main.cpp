// Where the program begins.
#include "app/program.h"
#include "window/crash_guard.h"
#include "window/only_program.h"
#include "window/process_settings.h"

#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showCommand) {
    if (!isOnlyProgram()) return 0;
    settleProcess();
    guardAgainstCrashes();
    return runProgram(showCommand);
}
