// The system's own viewer of a file.
#pragma once

#include <string>

// Opens the file with the program that the system has for its kind. False when it has none.
bool openInViewer(const std::wstring& path);
