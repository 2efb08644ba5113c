// Reads and writes Options.ini.
#include "session/options.h"

#include "platform/files.h"
#include "session/announce.h"
#include "session/data_folders.h"
#include "session/document.h"

#include <algorithm>
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
std::optional<std::vector<std::string>> readLines(const std::wstring& path = optionsPath()) {
    std::vector<std::string> lines;
    const std::optional<std::string> content = contentOfFile(path);
    if (!content && fileExists(path)) return {};
    std::istringstream text(content.value_or(""));
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

} // namespace

std::optional<std::vector<OptionLine>> optionsIn(const std::wstring& path) {
    const auto lines = readLines(path);
    if (!lines) return {};
    std::vector<OptionLine> found;
    for (size_t i = 0; i < lines->size(); ++i) {
        const std::string_view text = trimmed((*lines)[i]);
        if (text.empty() || std::string_view("#;[").find(text.front()) != std::string_view::npos)
            continue;
        const size_t equals = std::min(text.find('='), text.size());
        const std::string_view value = text.substr(std::min(equals + 1, text.size()));
        found.push_back(
            {{std::string(trimmed(text.substr(0, equals))), std::string(trimmed(value))},
             static_cast<int>(i + 1)});
    }
    return found;
}

bool optionsCanBeRead() {
    return readLines().has_value();
}

bool writeOptionsIn(const std::wstring& path, const std::vector<Option>& options,
                    const std::vector<std::string>& gone) {
    auto lines = readLines(path);
    if (!lines) return false;
    std::string_view value;
    for (const std::string& name : gone)
        std::erase_if(*lines, [&](const std::string& line) { return carries(line, name, value); });
    for (const Option& option : options) put(*lines, option);
    std::string content;
    for (const std::string& line : *lines) content += line + "\n";
    return writeDocument(path, content, L"w");
}

std::string readOption(const std::string& name) {
    std::string_view value;
    const auto lines = readLines();
    if (!lines) return {};
    for (const std::string& line : *lines)
        if (carries(line, name, value)) return std::string(value);
    return {};
}

bool writeOptions(const std::vector<Option>& options) {
    if (writeOptionsIn(optionsPath(), options)) return true;
    announce(Severity::Failure, "Options.ini could not be written");
    return false;
}

void takeOption(const std::string& name, bool& value, const char* whenTrue, const char* whenFalse) {
    const std::string text = readOption(name);
    if (text == whenTrue || text == whenFalse)
        value = text == whenTrue;
    else if (!text.empty())
        tellUnknownOption(name, text);
}

void tellUnknownOption(const std::string& name, const std::string& value) {
    announce(Severity::Trouble,
             "Options.ini: \"" + name + " = " + value + "\" is not known, the default holds");
}
