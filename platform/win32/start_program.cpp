// Starts a program without a shell.
#include "platform/start_program.h"

#include "platform/win32/system_words.h"

#include <windows.h>

std::string startProgram(const std::wstring& path, const std::wstring& argument) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    // A path has no quotes, nor does it end in a backslash.
    std::wstring line = L"\"" + path + L"\" \"" + argument + L"\"";
    if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                        nullptr, nullptr, &startup, &process))
        return systemWords(GetLastError());
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return {};
}
