// Writes documents.
#include "session/document.h"

#include "platform/files.h"
#include "platform/messages.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/day_log.h"

#include <cstdio>

namespace {

bool writeAndFlush(const std::wstring& path, const wchar_t* mode, const WriteContent& write) {
    File file = openFile(path, mode);
    if (!file) return false;
    const bool written = write(file.get()) && flushToDisk(file.get());
    return std::fclose(file.release()) == 0 && written;
}

} // namespace

std::string linesOf(const Conditions& conditions) {
    std::string lines;
    for (const auto& [name, value] : conditions) lines.append(name + ": ").append(value + "\n");
    return lines;
}

std::string timeText(const LocalTime& time) {
    return formatted("%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                     time.minute, time.second);
}

bool writeWhole(const std::wstring& path, const wchar_t* mode, const WriteContent& write) {
    const std::wstring temporary = path + L".tmp";
    if (writeAndFlush(temporary, mode, write) && replaceFile(temporary, path))
        return logFile(path, true);
    removeFile(temporary);
    return logFile(path, false);
}

bool writeDocument(const std::wstring& path, const std::string& content, const wchar_t* mode) {
    return writeWhole(path, mode, [&](FILE* file) {
        return std::fwrite(content.data(), 1, content.size(), file) == content.size();
    });
}

void reportUnwritten(const std::wstring& path, const char* what) {
    std::printf("Not written: %s\n", fileNameOf(path).c_str());
    if (!onWindowThread()) return; // it would wait for that thread, with the bias on
    showInformation((std::string("Not written: ") + what).c_str());
}

bool logFile(const std::wstring& path, bool written) {
    const std::wstring folder = path.substr(0, path.find_last_of(L'\\'));
    logEvent((written ? "Written: " : "Not written: ") + fileNameOf(folder) + "\\" +
             fileNameOf(path));
    return written;
}

std::string nextFreeName(const std::wstring& folder, const char* stem, int32_t& number,
                         const wchar_t* ending) {
    std::string name;
    do name = formatted("%s(%d)", stem, number++);
    while (fileExists(folder + L"\\" + widened(name) + ending));
    return name;
}

std::string fileNameOf(const std::wstring& path) {
    return narrowed(path.substr(path.rfind(L'\\') + 1));
}
