// Reads and writes Options.ini.
#include "session/options.h"

#include "platform/files.h"
#include "session/data_folders.h"
#include "session/day_log.h"

#include <cstdio>
#include <optional>
#include <sstream>
#include <string_view>

namespace {

std::wstring optionsPath() {
    return dataFolders.dataRoot + L"\\Options.ini";
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks(" \t\r\n\0", 5);
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Nothing where there is a file that cannot be read: it must not be replaced.
std::optional<std::vector<std::string>> readLines() {
    std::vector<std::string> lines;
    // Not as text, which would end at a stray control character.
    const File file = openFile(optionsPath(), L"rb");
    if (!file && fileExists(optionsPath())) return {};
    std::string content;
    for (int c = file ? std::fgetc(file.get()) : EOF; c != EOF; c = std::fgetc(file.get()))
        content += static_cast<char>(c);
    std::istringstream text(content);
    for (std::string line; std::getline(text, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// Whether the line carries the name; then its value.
bool carries(const std::string& line, const std::string& name, std::string_view& value) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) return false;
    const std::string_view text(line);
    value = trimmed(text.substr(equals + 1));
    return trimmed(text.substr(0, equals)) == name;
}

void put(std::vector<std::string>& lines, const Option& option) {
    const std::string written = option.name + " = " + option.value;
    std::string_view old;
    for (std::string& line : lines) {
        if (!carries(line, option.name, old)) continue;
        line = written;
        return;
    }
    lines.push_back(written);
}

bool writeLines(const std::wstring& path, const std::vector<std::string>& lines) {
    const File file = openFile(path, L"w");
    if (!file) return false;
    bool written = true;
    for (const std::string& line : lines) {
        written &= std::fwrite(line.data(), 1, line.size(), file.get()) == line.size();
        written &= std::fputc('\n', file.get()) != EOF;
    }
    return std::fflush(file.get()) == 0 && written;
}

} // namespace

std::string readOption(const std::string& name) {
    std::string_view value;
    const auto lines = readLines();
    if (!lines) return {};
    for (const std::string& line : *lines)
        if (carries(line, name, value)) return std::string(value);
    return {};
}

bool writeOptions(const std::vector<Option>& options) {
    const std::wstring path = optionsPath();
    const std::wstring whole = path + L".new";
    if (auto lines = readLines()) {
        for (const Option& option : options) put(*lines, option);
        if (writeLines(whole, *lines) && replaceFile(whole, path)) return true;
    }
    logEvent("Options.ini could not be written");
    std::printf("Options.ini could not be written\n");
    std::fflush(stdout);
    return false;
}
