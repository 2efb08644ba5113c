// Documents beside the specified files: written whole or not at all.
#pragma once

#include "platform/clock.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// What a measurement was taken with: named texts in their order, each name once, printable ASCII.
using Conditions = std::vector<std::pair<std::string, std::string>>;

// One line "name: value" each.
std::string linesOf(const Conditions& conditions);

// "2026-11-27 07:45:00"
std::string timeText(const LocalTime& time);

// Writes its part of a file; false when that failed.
using WriteContent = std::function<bool(FILE*)>;

// Writes to a temporary name in the same folder, to the disk, and only then takes the place of
// what has the name, so that a file that is cut short never has it. `mode` is L"w" for a text with
// line feeds, L"wb" otherwise. On failure the file that was there before is kept, and the result is
// false.
bool writeWhole(const std::wstring& path, const wchar_t* mode, const WriteContent& write);
bool writeDocument(const std::wstring& path, const std::string& content, const wchar_t* mode);

// Says on standard output that a document could not be written, and in the information text what it
// is in a word or two; a process tells of it again in its outcome. From another thread than the
// windows it only prints.
void reportUnwritten(const std::wstring& path, const char* what);

// Tells the log of the day that the file was written or not; returns `written`.
bool logFile(const std::wstring& path, bool written);

// "<stem>(<number>)", with the first number from `number` on of which the folder has no file with
// that ending; `number` is the next one then. Nothing is put in the place of what a program that
// was started again within a minute finds there.
std::string nextFreeName(const std::wstring& folder, const char* stem, int32_t& number,
                         const wchar_t* ending);

// A path's last part, as ASCII.
std::string fileNameOf(const std::wstring& path);
