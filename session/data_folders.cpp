// Builds the paths of the data folders and makes them.
#include "session/data_folders.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/document.h"

DataFolders dataFolders;

void prepareDataFolders(DataFolders& folders) {
    const std::wstring PathDeskTop = desktopFolder();
    folders.dataRoot = PathDeskTop + L"\\KST_Data";
    makeFolder(folders.dataRoot); // one that is there already is simply used
    folders.configPath = folders.dataRoot + L"\\Config.txt";
    folders.sessionFolder = L" ";
    folders.sessionFolderMade = 0;
}

namespace {

// A folder that is there already is taken too, unless it is to be a new one.
void makeSessionFolder(DataFolders& folders, const std::wstring& path, bool isNew) {
    folders.sessionFolder = path;
    if (isNew)
        for (int number = 1; fileExists(folders.sessionFolder); ++number)
            folders.sessionFolder = path + L"(" + std::to_wstring(number) + L")";
    makeFolder(folders.sessionFolder);
    folders.sessionFolderMade = 1;
}

std::wstring sessionFolderPath(const DataFolders& folders) {
    return folders.dataRoot + L"\\" + widened(sessionFolderName(folders));
}

} // namespace

std::string sessionFolderName(const DataFolders& folders) {
    if (folders.sessionFolderMade) return fileNameOf(folders.sessionFolder);
    const LocalTime now = localTime();
    return formatted("%02d%02d%02d_%02d-%02d", now.year - 2000, now.month, now.day, now.hour,
                     now.minute);
}

void ensureSessionFolder(DataFolders& folders) {
    if (folders.sessionFolderMade) return;
    const std::wstring path = sessionFolderPath(folders);
    // What a program that was killed has left there may be in the way of every name.
    makeSessionFolder(folders, path, folders.fullFolder.starts_with(path));
}

void makeNewSessionFolder(DataFolders& folders) {
    folders.sessionFolderMade = 0;
    makeSessionFolder(folders, sessionFolderPath(folders), true);
}

DataFolders foldersIn(const DataFolders& root, const std::string& name) {
    DataFolders folders = root;
    folders.sessionFolder = root.dataRoot + L"\\" + widened(name);
    makeFolder(folders.sessionFolder);
    folders.sessionFolderMade = 1;
    return folders;
}
