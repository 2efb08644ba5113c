// The system's own viewers of files and folders.
#pragma once

#include <string>

// Opens the text with the program that the system has for its kind, with the system's own editor
// where nobody has chosen one. False when that failed.
bool openInViewer(const std::wstring& path);

// Shows the file in its folder, selected. False when that failed.
bool showInFolder(const std::wstring& path);
