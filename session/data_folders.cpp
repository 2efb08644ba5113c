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

std::string sessionFolderName(const DataFolders& folders) {
    if (folders.sessionFolderMade) return fileNameOf(folders.sessionFolder);
    const LocalTime now = localTime();
    return formatted("%02d%02d%02d_%02d-%02d", now.year - 2000, now.month, now.day, now.hour,
                     now.minute);
}

void ensureSessionFolder(DataFolders& folders) {
    if (folders.sessionFolderMade) return;
    const std::wstring ofMinute = folders.dataRoot + L"\\" + widened(sessionFolderName(folders));
    folders.sessionFolder = ofMinute;
    // What a program that was killed has left there may be in the way of every name.
    if (folders.fullFolder.starts_with(ofMinute))
        for (int number = 1; fileExists(folders.sessionFolder); ++number)
            folders.sessionFolder = ofMinute + L"(" + std::to_wstring(number) + L")";
    makeFolder(folders.sessionFolder);
    folders.sessionFolderMade = 1;
}

DataFolders foldersIn(const DataFolders& root, const std::string& name) {
    DataFolders folders = root;
    folders.sessionFolder = root.dataRoot + L"\\" + widened(name);
    makeFolder(folders.sessionFolder);
    folders.sessionFolderMade = 1;
    return folders;
}
