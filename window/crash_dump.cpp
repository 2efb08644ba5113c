// Writes a minidump with the system's own library, which is looked for only when it is needed.
#include "window/crash_dump.h"

#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/document.h"

#include <windows.h>

#include <dbghelp.h>

namespace {

template <class Function> Function* function(HMODULE library, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// As "Lumascan.exe+0x1234": where the system has put the file is another place at each start.
std::string placeOf(const void* address) {
    HMODULE module = nullptr;
    wchar_t path[MAX_PATH] = L"";
    constexpr DWORD how =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExW(how, static_cast<const wchar_t*>(address), &module) ||
        GetModuleFileNameW(module, path, MAX_PATH) == 0)
        return formatted("0x%llX", reinterpret_cast<unsigned long long>(address));
    const ptrdiff_t offset =
        static_cast<const char*>(address) - reinterpret_cast<const char*>(module);
    return fileNameOf(path) + formatted("+0x%llX", static_cast<unsigned long long>(offset));
}

// Empty, or what failed.
std::string write(const std::wstring& path, const Crash& crash) {
    const auto failed = [](const char* call) {
        return formatted("%s failed, error 0x%lX", call, GetLastError());
    };
    HMODULE library = LoadLibraryW(L"dbghelp.dll");
    if (!library) return failed("loading dbghelp.dll");
    const auto writeDump = function<decltype(MiniDumpWriteDump)>(library, "MiniDumpWriteDump");
    if (!writeDump) return failed("finding MiniDumpWriteDump");
    // A dump holds no symbols, yet Wine reads those of all modules first where it may: for 10 s.
    const auto setOptions = function<decltype(SymSetOptions)>(library, "SymSetOptions");
    if (setOptions) setOptions(SYMOPT_DEFERRED_LOADS);
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return failed("making the file");
    MINIDUMP_EXCEPTION_INFORMATION information{crash.thread, crash.exception, FALSE};
    const std::string trouble = writeDump(GetCurrentProcess(), GetCurrentProcessId(), file,
                                          MiniDumpNormal, &information, nullptr, nullptr)
                                    ? ""
                                    : failed("MiniDumpWriteDump");
    CloseHandle(file);
    return trouble;
}

} // namespace

void writeCrashDump(const Crash& crash) {
    if (dataFolders.dataRoot.empty()) return; // the folders are not known yet
    const std::wstring folder = logFolder();
    makeFolder(folder); // one that is there already is simply used
    SYSTEMTIME now;
    GetLocalTime(&now);
    const std::string name = formatted("crash-%04d%02d%02d-%02d%02d%02d.dmp", now.wYear, now.wMonth,
                                       now.wDay, now.wHour, now.wMinute, now.wSecond);
    const EXCEPTION_RECORD& record = *crash.exception->ExceptionRecord;
    logEvent(formatted("Crashed: 0x%08lX at ", record.ExceptionCode) +
             placeOf(record.ExceptionAddress));
    const std::string trouble = write(folder + L"\\" + widened(name), crash);
    logEvent(trouble.empty() ? "Crash dump written: " + name
                             : "No crash dump " + name + ": " + trouble);
}
