// Reads and writes verdicts.
#include "archive/scan_verdict.h"

#include "platform/files.h"
#include "session/document.h"

#include <algorithm>

namespace {

constexpr wchar_t scanEnding[] = L".gwy", verdictEnding[] = L".mark.txt";
constexpr size_t longestVerdict = 400;

// The first line, printable.
std::string lineOf(std::string text) {
    text = text.substr(0, text.find_first_of("\r\n"));
    for (char& letter : text)
        if (letter < ' ' || letter > '~') letter = '?';
    return text;
}

// As the disk sees it, which knows no case.
bool endsWith(const std::wstring& path, const std::wstring& ending) {
    if (path.size() < ending.size()) return false;
    return std::equal(ending.begin(), ending.end(), path.end() - static_cast<int>(ending.size()),
                      [](wchar_t wanted, wchar_t letter) {
                          return wanted == letter ||
                                 (letter >= L'A' && letter <= L'Z' && letter + 32 == wanted);
                      });
}

} // namespace

std::wstring verdictPath(const std::wstring& scanPath) {
    return scanPath.substr(0, scanPath.size() - (std::size(scanEnding) - 1)) + verdictEnding;
}

bool isVerdictPath(const std::wstring& path) {
    return endsWith(path, verdictEnding);
}

bool isScanPath(const std::wstring& path) {
    return endsWith(path, scanEnding);
}

ScanVerdict readVerdict(const std::wstring& path) {
    using enum ScanVerdict::Mark;
    const File file = openFile(path, L"rb");
    if (!file) return {Unreadable, {}};
    std::string text(longestVerdict, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    const std::string line = lineOf(std::move(text));
    for (const auto& [mark, name] : {std::pair{Good, std::string("good")}, {Bad, "bad"}}) {
        if (line == name) return {mark, {}};
        if (line.starts_with(name + ": ")) return {mark, line.substr(name.size() + 2)};
    }
    return {Unreadable, {}};
}

bool writeVerdict(const std::wstring& path, const ScanVerdict& verdict) {
    if (verdict.mark == ScanVerdict::Mark::None) {
        removeFile(path);
        return !fileExists(path);
    }
    std::string line = verdict.mark == ScanVerdict::Mark::Good ? "good" : "bad";
    if (!verdict.word.empty()) line += ": " + lineOf(verdict.word);
    return writeDocument(path, line + "\n", L"w");
}
