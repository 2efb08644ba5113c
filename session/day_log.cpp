// Writes the log of the day.
#include "session/day_log.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/data_folders.h"

#include <atomic>
#include <cstdio>

namespace {

// Opened and closed for each line: nothing waits in a buffer when the program ends by force, and
// the thread that ends it needs nothing of the one that hangs.
bool append(const std::wstring& path, const std::string& line) {
    File file = openFile(path, L"ab");
    if (!file) return false;
    const bool written = std::fwrite(line.data(), 1, line.size(), file.get()) == line.size();
    return std::fclose(file.release()) == 0 && written;
}

} // namespace

std::wstring logFolder() {
    return dataFolders.dataRoot + L"\\Log";
}

std::string inOneLine(std::string words) {
    for (char& c : words)
        if (c == '\r' || c == '\n') c = ' ';
    words.erase(words.find_last_not_of(' ') + 1);
    return words;
}

std::string clockText() {
    const LocalTime now = localTime();
    return formatted("%02d:%02d:%02d", now.hour, now.minute, now.second);
}

std::wstring dayLogPath() {
    const LocalTime now = localTime();
    return logFolder() + widened(formatted("\\%04d-%02d-%02d.txt", now.year, now.month, now.day));
}

void logEvent(const std::string& event) {
    static std::atomic<bool> said = false;
    if (dataFolders.dataRoot.empty()) return; // the folders are not known yet
    const std::string line = clockText() + " " + inOneLine(event) + "\r\n";
    const std::wstring path = dayLogPath();
    bool written = append(path, line);
    if (!written) { // the day's, or the desktop's, first
        makeFolder(dataFolders.dataRoot);
        makeFolder(logFolder());
        written = append(path, line);
    }
    if (!written && !said) {
        std::printf("The log of the day could not be written\n");
        std::fflush(stdout);
    }
    said = !written;
}
