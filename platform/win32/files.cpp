// Folders and files by wide path.
#include "platform/files.h"

#include <windows.h>

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
    // Unlike a search this takes no pattern, and it also finds a name with a colon, which NTFS
    // keeps as a stream of the file before the colon and does not list.
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

File openFile(const std::wstring& path, const wchar_t* mode) {
    return File(_wfopen(path.c_str(), mode));
}
