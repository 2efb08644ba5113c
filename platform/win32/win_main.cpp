// The entry point.
#include "app/program.h"

#include <windows.h>

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int showCommand) {
    return runProgram(showCommand);
}
