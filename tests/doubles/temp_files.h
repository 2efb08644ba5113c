// A desktop of its own for every test, and folders and files that cannot be made.
#pragma once

#include "platform/files.h"

#include <functional>
#include <string>
#include <vector>

extern bool foldersRefused;
extern std::string refusedFile; // files whose path holds this text cannot be written; empty: none

extern std::string unreadableFile; // the same for reading: another program holds it

extern bool flushFails;
extern bool diskFull; // files can be made, and nothing be written into them
extern std::vector<std::string> overwrittenFiles; // opened for writing with something in them

// What is called at each access to the disk; each may be empty. Names are below the desktop.
struct DiskWatch {
    std::function<void()> before; // a file is opened, flushed, put in another's place or removed
    std::function<void(const std::string&name)> flushed, removed;
};
extern DiskWatch diskWatch;

void makeTempDesktop(); // and the one before goes
void removeTempDesktop();

// The desktop as it is now, without what has not been flushed, in a folder of its own; and a
// desktop made of such a folder, which is then gone.
std::string copyDesktop();
void useAsDesktop(const std::string& folder);

// Names below the desktop, sorted, with slashes: "KST_Data/Config.txt". Folders end with a slash.
// The log of the day is left out.
std::vector<std::string> filesOnDesktop();

// The content of a file below the desktop; empty when it is not there.
std::string contentOf(const std::string& name);
std::string pathOnDesktop(const std::string& name); // for other programs
void writeDesktopFile(const std::string& name, const std::string& content);
