// A desktop of its own for every test, and folders and files that cannot be made.
#pragma once

#include "platform/files.h"

#include <string>
#include <vector>

extern bool foldersRefused;
extern std::string refusedFile; // files whose path holds this text cannot be written; empty: none

extern bool diskFull; // files can be made, and nothing be written into them
extern std::vector<std::string> overwrittenFiles; // opened for writing with something in them

void makeTempDesktop();
void removeTempDesktop();

// Names below the desktop, sorted, with slashes: "KST_Data/Config.txt". Folders end with a slash.
// The log of the day is left out.
std::vector<std::string> filesOnDesktop();

// The content of a file below the desktop; empty when it is not there.
std::string contentOf(const std::string& name);
std::string pathOnDesktop(const std::string& name); // for other programs
void writeDesktopFile(const std::string& name, const std::string& content);
