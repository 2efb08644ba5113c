// Folders and files by wide path.
#include "platform/files.h"

#include <windows.h>

#include <io.h>
#include <shlobj.h>

std::wstring desktopFolder() {
    wchar_t path[MAX_PATH] = L"";
    if (!SHGetSpecialFolderPathW(nullptr, path, CSIDL_DESKTOP, FALSE)) return L"";
    return path;
}

bool makeFolder(const std::wstring& path) {
    return CreateDirectoryW(path.c_str(), nullptr) != 0;
}

bool fileExists(const std::wstring& path) {
    // Unlike a search this takes no pattern.
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// A colon anywhere but behind the drive's letter: the name of a hidden stream of another file,
// where no operator would find what was saved.
static bool namesStream(const std::wstring& path) {
    return path.find(L':', 2) != std::wstring::npos;
}

// A virus scanner, or what keeps a copy of the folder elsewhere, reads a file right behind its
// close and holds it for that long.
template <class Call> static bool succeedsSoon(Call call) {
    constexpr DWORD longestMs = 500, betweenMs = 20;
    for (DWORD waitedMs = 0;; waitedMs += betweenMs) {
        if (call()) return true;
        const DWORD error = GetLastError();
        const bool held = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
        if (!held || waitedMs >= longestMs) return false;
        Sleep(betweenMs);
    }
}

File openFile(const std::wstring& path, const wchar_t* mode) {
    if (namesStream(path)) return nullptr;
    FILE* file = nullptr;
    const auto open = [&] { return (file = _wfopen(path.c_str(), mode)) != nullptr; };
    if (mode[0] == L'r') // what is only held must not count as absent
        succeedsSoon(open);
    else
        open();
    return File(file);
}

bool replaceFile(const std::wstring& from, const std::wstring& to) {
    return succeedsSoon([&] {
        return MoveFileExW(from.c_str(), to.c_str(),
                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    });
}

bool flushToDisk(FILE* file) {
    return std::fflush(file) == 0 && _commit(_fileno(file)) == 0;
}

void removeFile(const std::wstring& path) {
    succeedsSoon([&] { return DeleteFileW(path.c_str()) != 0; });
}
