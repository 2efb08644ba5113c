// Starts a program of the operator's.
#pragma once

#include <string>

// Starts the program of that path, without a shell and without waiting for it, with one argument.
// Empty when it runs; otherwise why it does not, in the system's words.
std::string startProgram(const std::wstring& path, const std::wstring& argument);
