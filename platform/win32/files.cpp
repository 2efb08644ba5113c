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

uint64_t lengthOfFile(FILE* file) {
    const bool atEnd = _fseeki64(file, 0, SEEK_END) == 0;
    const int64_t length = atEnd ? _ftelli64(file) : -1;
    const bool atBegin = _fseeki64(file, 0, SEEK_SET) == 0;
    return atBegin && length > 0 ? static_cast<uint64_t>(length) : 0;
}

bool seekInFile(FILE* file, uint64_t at) {
    return _fseeki64(file, static_cast<int64_t>(at), SEEK_SET) == 0;
}

static uint64_t joined(DWORD high, DWORD low) {
    return static_cast<uint64_t>(high) << 32 | low;
}

std::optional<std::vector<FolderEntry>> entriesOf(const std::wstring& folder) {
    std::vector<FolderEntry> entries;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &found,
                                           FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) return {};
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        const DWORD kind = found.dwFileAttributes;
        const bool isFolder = (kind & FILE_ATTRIBUTE_DIRECTORY) != 0;
        const DWORD tag = (kind & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? found.dwReserved0 : 0;
        if (isFolder && (tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT))
            continue; // a folder in the cloud is one all the same
        entries.push_back(
            {name, isFolder, joined(found.nFileSizeHigh, found.nFileSizeLow),
             joined(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime)});
    } while (FindNextFileW(search, &found));
    const bool isWhole = GetLastError() == ERROR_NO_MORE_FILES;
    FindClose(search);
    return isWhole ? std::optional(entries) : std::nullopt;
}
