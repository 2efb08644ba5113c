// Where the program keeps its settings file and what a run saves.
#pragma once

#include <cstdint>
#include <string>

struct DataFolders {
    std::wstring dataRoot;             // the desktop folder and "\KST_Data"
    std::wstring configPath;           // the settings file
    std::wstring sessionFolder = L" "; // YYMMDD_hh-mm below the root; a blank until it is made
    int32_t sessionFolderMade = 0;
    std::wstring fullFolder; // a session folder whose names are taken: the next one is another,
                             // also in the same minute
};

extern DataFolders dataFolders;

// Fills the paths and makes the data root where it is not there.
void prepareDataFolders(DataFolders& folders);

// Makes the session folder, named for the local minute of this first call; later calls do nothing
// until a failed save has cleared `sessionFolderMade`.
void ensureSessionFolder(DataFolders& folders);

// Makes one that holds nothing yet, whatever has been made in the same minute.
void makeNewSessionFolder(DataFolders& folders);

// The session folder's name: of the one that was made, or of the one that would be made now.
std::string sessionFolderName(const DataFolders& folders);

// The same data root with the session folder of that name, which is made where it is not there.
DataFolders foldersIn(const DataFolders& root, const std::string& name);
