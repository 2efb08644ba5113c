// Loading of the vendors' libraries.
#include "platform/library.h"

#include "platform/win32/handles.h"
#include "platform/win32/system_words.h"

#include <string>
#include <vector>

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

static std::string pathBesideProgram(const char* fileName) {
    return executableFolder() + "\\" + fileName;
}

// `error` is the system's when the result is null.
static HMODULE load(const std::string& name, DWORD flags, DWORD& error) {
    // Without this the system itself asks for a library's missing companion or an empty drive.
    DWORD previousMode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previousMode);
    // What makes the set-up safe at a crash. A library's own runtime may take its place.
    const auto atCrash = SetUnhandledExceptionFilter(nullptr);
    SetUnhandledExceptionFilter(atCrash);
    HMODULE library = LoadLibraryExA(name.c_str(), nullptr, flags);
    error = GetLastError();
    SetUnhandledExceptionFilter(atCrash);
    SetThreadErrorMode(previousMode, nullptr);
    return library;
}

LibraryHandle loadLibrary(const char* fileName, LibraryPlace place) {
    DWORD error = 0;
    if (place == LibraryPlace::SystemOrder) return opaque(load(fileName, 0, error));
    return opaque(load(pathBesideProgram(fileName), LOAD_WITH_ALTERED_SEARCH_PATH, error));
}

std::string libraryTrouble(const char* fileName) {
    const std::string path = pathBesideProgram(fileName);
    if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES) return {};
    DWORD error = 0;
    HMODULE library = load(path, LOAD_WITH_ALTERED_SEARCH_PATH, error);
    if (library) FreeLibrary(library);
    return path + (library ? " loads now" : " is there and does not load: " + systemWords(error));
}

std::string libraryVersion(LibraryHandle library) {
    const std::string path = libraryPath(library);
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), nullptr);
    std::vector<char> block(size);
    void* found = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoA(path.c_str(), 0, size, block.data()) ||
        !VerQueryValueA(block.data(), "\\", &found, &length))
        return {};
    const auto& version = *static_cast<VS_FIXEDFILEINFO*>(found);
    std::string text;
    for (const DWORD part : {version.dwFileVersionMS, version.dwFileVersionLS})
        text += (text.empty() ? "" : ".") + std::to_string(HIWORD(part)) + "." +
                std::to_string(LOWORD(part));
    return text;
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
