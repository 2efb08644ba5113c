// Writes a minidump with the system's own library, which is looked for only when it is needed.
#include "window/crash_dump.h"

#include "platform/files.h"
#include "session/day_log.h"

#include <windows.h>

#include <cstdio>
#include <dbghelp.h>

void writeCrashDump(EXCEPTION_POINTERS* exception) {
    const std::wstring folder = logFolder();
    makeFolder(folder); // one that is there already is simply used
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t name[64];
    std::swprintf(name, 64, L"\\crash-%04d%02d%02d-%02d%02d%02d.dmp", now.wYear, now.wMonth,
                  now.wDay, now.wHour, now.wMinute, now.wSecond);
    const std::wstring path = folder + name;

    using Write = decltype(&MiniDumpWriteDump);
    HMODULE library = LoadLibraryW(L"dbghelp.dll");
    const auto write = library ? reinterpret_cast<Write>(reinterpret_cast<void*>(
                                     GetProcAddress(library, "MiniDumpWriteDump")))
                               : nullptr;
    HANDLE file = write ? CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr)
                        : INVALID_HANDLE_VALUE;
    bool written = false;
    if (file != INVALID_HANDLE_VALUE) {
        MINIDUMP_EXCEPTION_INFORMATION information{GetCurrentThreadId(), exception, FALSE};
        written = write(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal,
                        exception ? &information : nullptr, nullptr, nullptr) != FALSE;
        CloseHandle(file);
    }
    std::fprintf(stderr, "crash dump %s: %ls\n", written ? "written" : "not written", path.c_str());
}
