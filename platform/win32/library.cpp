// Loading of the vendors' libraries.
#include "platform/library.h"

#include "platform/win32/handles.h"

#include <string>

static std::string executableFolder() {
    std::string path(MAX_PATH, '\0');
    for (;;) {
        DWORD length = GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);
    }
    return path.substr(0, path.find_last_of('\\'));
}

LibraryHandle loadLibrary(const char* fileName) {
    // Without this the system itself asks for a library's missing companion or an empty drive.
    DWORD previousMode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previousMode);
    std::string besideExecutable = executableFolder() + "\\" + fileName;
    HMODULE library =
        LoadLibraryExA(besideExecutable.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!library) library = LoadLibraryExA(fileName, nullptr, 0);
    SetThreadErrorMode(previousMode, nullptr);
    return opaque(library);
}

void* findFunction(LibraryHandle library, const char* name, unsigned ordinal) {
    if (!library) return nullptr;
    FARPROC function = GetProcAddress(native(library), name);
    if (!function && ordinal) {
        function = GetProcAddress(native(library), MAKEINTRESOURCEA(ordinal));
    }
    return reinterpret_cast<void*>(function);
}
