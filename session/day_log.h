// KST_Data/Log/<year>-<month>-<day>.txt: what happened on a day, one line an event, on the disk as
// it happens. Points are counted there, not listed: a day of mapping stays below 1 MB.
#pragma once

#include <string>

// Appends "hh:mm:ss <event>" (local time) to the file of the day; line ends inside become blanks.
// A line that cannot be written is lost, and standard output says so once until one can be written
// again. From any thread: two calls at once share the file and nothing else.
void logEvent(const std::string& event);

// KST_Data/Log, whether it is there or not.
std::wstring logFolder();

// The file of today, whether it is there or not.
std::wstring dayLogPath();

// The local time as it stands before an event.
std::string clockText();

// A vendor's text without its line ends and what is blank behind it.
std::string inOneLine(std::string words);
