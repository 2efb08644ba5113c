// Loading of the vendors' libraries.
#include "platform/library.h"

#include "platform/win32/handles.h"

#include <string>

static std::string modulePath(HMODULE module) {
    std::string path(MAX_PATH, '\0');
    for (;;) {
        DWORD length = GetModuleFileNameA(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

static std::string executableFolder() {
    const std::string path = modulePath(nullptr);
    return path.substr(0, path.find_last_of('\\'));
}

LibraryHandle loadLibrary(const char* fileName, LibraryPlace place) {
    // Without this the system itself asks for a library's missing companion or an empty drive.
    DWORD previousMode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previousMode);
    HMODULE library = nullptr;
    if (place == LibraryPlace::BesideProgram) {
        const std::string path = executableFolder() + "\\" + fileName;
        library = LoadLibraryExA(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    } else {
        library = LoadLibraryExA(fileName, nullptr, 0);
    }
    SetThreadErrorMode(previousMode, nullptr);
    return opaque(library);
}

std::string libraryPath(LibraryHandle library) {
    return modulePath(native(library));
}

void* findFunction(LibraryHandle library, const char* name, unsigned ordinal) {
    if (!library) return nullptr;
    FARPROC function = GetProcAddress(native(library), name);
    if (!function && ordinal) {
        function = GetProcAddress(native(library), MAKEINTRESOURCEA(ordinal));
    }
    return reinterpret_cast<void*>(function);
}
