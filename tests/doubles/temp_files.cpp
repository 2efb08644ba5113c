// Folders and files of the native tests: below a fresh temporary folder, with the names that
// Windows refuses refused.
#include "tests/doubles/temp_files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdio_ext.h>

namespace fs = std::filesystem;

bool foldersRefused = false;
std::string refusedFile, unreadableFile;
bool flushFails = false, diskFull = false;
std::vector<std::string> overwrittenFiles;
DiskWatch diskWatch;
static fs::path desktop;
static std::map<FILE*, std::string> names; // of what was opened last

static void watchDisk() {
    if (diskWatch.before) diskWatch.before();
}

static std::string makeTempFolder() {
    char name[] = "/tmp/lumascan-XXXXXX";
    if (!mkdtemp(name)) std::abort();
    return name;
}

void makeTempDesktop() {
    removeTempDesktop();
    diskWatch = {};
    desktop = makeTempFolder();
    foldersRefused = flushFails = diskFull = false;
    overwrittenFiles.clear();
    refusedFile.clear();
    unreadableFile.clear();
}

void removeTempDesktop() {
    std::error_code ignored;
    if (!desktop.empty()) fs::remove_all(desktop, ignored);
    desktop.clear();
}

std::string copyDesktop() {
    const std::string folder = makeTempFolder();
    fs::copy(desktop, folder, fs::copy_options::recursive);
    return folder;
}

void useAsDesktop(const std::string& folder) {
    removeTempDesktop();
    desktop = folder;
}

// Empty for a name that Windows does not take.
static fs::path nativePath(std::wstring path) {
    constexpr size_t longestPath = 259; // MAX_PATH less the terminating zero
    const size_t unusable = std::wstring_view(path).find_first_of(L":*?\"<>|");
    if (unusable != std::wstring::npos || path.size() > longestPath) return {};
    std::replace(path.begin(), path.end(), L'\\', L'/');
    return path;
}

std::wstring desktopFolder() {
    return desktop.wstring();
}

bool makeFolder(const std::wstring& path) {
    std::error_code error;
    const fs::path folder = nativePath(path);
    return !foldersRefused && !folder.empty() && fs::create_directory(folder, error);
}

bool fileExists(const std::wstring& path) {
    std::error_code error;
    const fs::path file = nativePath(path);
    return !file.empty() && fs::exists(file, error);
}

File openFile(const std::wstring& path, const wchar_t* mode) {
    const fs::path file = nativePath(path);
    const std::string& of = *mode == L'r' ? unreadableFile : refusedFile;
    const bool refused = !of.empty() && file.string().find(of) != std::string::npos;
    if (file.empty() || refused || fs::is_directory(file)) return nullptr;
    watchDisk();
    std::error_code error;
    if (*mode == L'w' && fs::file_size(file, error) > 0 && !error)
        overwrittenFiles.push_back(file.lexically_relative(desktop).string());
    File opened(std::fopen(file.c_str(), fs::path(mode).c_str()));
    if (opened && diskFull && *mode != L'r')
        opened.reset(std::fopen("/dev/full", fs::path(mode).c_str()));
    if (opened) names[opened.get()] = file.lexically_relative(desktop).string();
    return opened;
}

bool replaceFile(const std::wstring& from, const std::wstring& to) {
    watchDisk();
    std::error_code error;
    fs::rename(nativePath(from), nativePath(to), error);
    return !error;
}

bool flushToDisk(FILE* file) {
    watchDisk();
    if (diskFull || flushFails) __fpurge(file); // not even a part of it is there
    const bool flushed = !diskFull && !flushFails && std::fflush(file) == 0;
    if (flushed && diskWatch.flushed) diskWatch.flushed(names[file]);
    return flushed;
}

void removeFile(const std::wstring& path) {
    watchDisk();
    std::error_code ignored;
    const fs::path file = nativePath(path);
    if (fs::remove(file, ignored) && diskWatch.removed)
        diskWatch.removed(file.lexically_relative(desktop).string());
}

std::vector<std::string> filesOnDesktop() {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(desktop)) {
        const std::string name = entry.path().lexically_relative(desktop).string();
        if (name.starts_with("KST_Data/Log")) continue; // every run leaves one
        names.push_back(entry.is_directory() ? name + "/" : name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string pathOnDesktop(const std::string& name) {
    return (desktop / name).string();
}

std::string contentOf(const std::string& name) {
    std::ifstream file(desktop / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeDesktopFile(const std::string& name, const std::string& content) {
    fs::create_directories((desktop / name).parent_path());
    std::ofstream(desktop / name, std::ios::binary) << content;
}

uint64_t lengthOfFile(FILE* file) {
    const bool atEnd = fseeko(file, 0, SEEK_END) == 0;
    const off_t length = atEnd ? ftello(file) : -1;
    std::rewind(file);
    return length > 0 ? static_cast<uint64_t>(length) : 0;
}

bool seekInFile(FILE* file, uint64_t at) {
    return fseeko(file, static_cast<off_t>(at), SEEK_SET) == 0;
}

std::optional<std::vector<FolderEntry>> entriesOf(const std::wstring& folder) {
    std::vector<FolderEntry> entries;
    std::error_code error;
    const fs::directory_iterator listed(nativePath(folder), error);
    if (error || (!unreadableFile.empty() &&
                  nativePath(folder).string().find(unreadableFile) != std::string::npos))
        return {};
    for (const fs::directory_entry& entry : listed) {
        if (entry.is_symlink()) continue;
        const bool isFolder = entry.is_directory(error);
        entries.push_back(
            {entry.path().filename().wstring(), isFolder, isFolder ? 0 : entry.file_size(error),
             static_cast<uint64_t>(entry.last_write_time(error).time_since_epoch().count())});
    }
    return entries;
}
