// Tells Windows how this process is to be treated.
#include "window/process_settings.h"

#include <windows.h>

#include <initializer_list>
#include <locale.h>

namespace {

// Since Windows 8, and later for the single rules: where one is not known nothing breaks it.
void refuseThrottling() {
    using Setter = BOOL WINAPI(HANDLE, PROCESS_INFORMATION_CLASS, void*, DWORD);
    const auto set = reinterpret_cast<Setter*>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetProcessInformation")));
    if (!set) return;
    for (const ULONG rule : {PROCESS_POWER_THROTTLING_EXECUTION_SPEED,
                             PROCESS_POWER_THROTTLING_IGNORE_TIMER_RESOLUTION}) {
        PROCESS_POWER_THROTTLING_STATE never{PROCESS_POWER_THROTTLING_CURRENT_VERSION, rule, 0};
        set(GetCurrentProcess(), ProcessPowerThrottling, &never, sizeof never);
    }
}

// The system's own folder, which is searched anyway, takes the place of the current one. An empty
// name says the same; Wine 8 takes that for the current folder.
void leaveCurrentFolderOut() {
    wchar_t systemFolder[MAX_PATH] = L"";
    GetSystemDirectoryW(systemFolder, MAX_PATH);
    SetDllDirectoryW(systemFolder);
}

} // namespace

void settleProcess() {
    DisableProcessWindowsGhosting();
    leaveCurrentFolderOut();
    refuseThrottling();
    _configthreadlocale(_ENABLE_PER_THREAD_LOCALE);
}
