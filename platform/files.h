// Folders and files by wide path; parts of a path are separated by a backslash.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The current user's desktop folder without a trailing separator; empty when there is none.
std::wstring desktopFolder();

// False when the folder was not made, also because it exists already.
bool makeFolder(const std::wstring& path);

// True when a file or folder of that name is there.
bool fileExists(const std::wstring& path);

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Opens as fopen does; null when it fails, and for a name with a colon, which no folder would list.
// `mode` is that of fopen ("r" and "w" are text modes).
File openFile(const std::wstring& path, const wchar_t* mode);

// The file's bytes; nothing when it does not open, or cannot be read to its end.
inline std::optional<std::string> contentOfFile(const std::wstring& path) {
    // Not as text, which would end at a stray control character.
    const File file = openFile(path, L"rb");
    if (!file) return {};
    std::string content;
    char part[4096];
    while (const size_t count = std::fread(part, 1, sizeof part, file.get()))
        content.append(part, count);
    if (std::ferror(file.get())) return {};
    return content;
}

// Gives the file the other name, in the place of a file that has it. False, and both are as they
// were, when that failed.
bool replaceFile(const std::wstring& from, const std::wstring& to);

// What was written goes from the program and the system's memory to the disk. False on failure.
bool flushToDisk(FILE* file);

// Nothing happens when it is not there.
void removeFile(const std::wstring& path);

// Bytes; 0 where that is not to be had. The file is then read from its beginning.
uint64_t lengthOfFile(FILE* file);

// False when that failed.
bool seekInFile(FILE* file, uint64_t at);

// What a folder lists, "." and ".." aside. What is only a link to another folder counts as no
// folder, so that a walk through folders ends.
struct FolderEntry {
    std::wstring name;
    bool isFolder = false;
    uint64_t size = 0;    // bytes
    uint64_t changed = 0; // when it was last written: another number after another time
};

// In no order; nothing where the folder cannot be listed, or not to its end.
std::optional<std::vector<FolderEntry>> entriesOf(const std::wstring& folder);
