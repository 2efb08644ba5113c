// Writes and reads the journal.
#include "session/journal.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/document.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace {

constexpr uint64_t longestUnflushedMs = 2000;
constexpr int mostJournals = 20;
constexpr char firstWords[] = "Lumascan journal 1 ";

std::wstring journalPath;
File journal;
uint64_t flushedMs = 0;

// The polynomial of IEEE 802.3, bits from the low end.
uint32_t checksumOf(const std::string& text) {
    static const auto table = [] {
        std::array<uint32_t, 256> made{};
        for (uint32_t i = 0; i < made.size(); ++i) {
            uint32_t value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = value & 1 ? value >> 1 ^ 0xEDB88320u : value >> 1;
            made[i] = value;
        }
        return made;
    }();
    uint32_t sum = 0xFFFFFFFFu;
    for (const char c : text) sum = sum >> 8 ^ table[(sum ^ static_cast<uint8_t>(c)) & 0xFF];
    return ~sum;
}

std::wstring pathOf(int number) {
    return dataFolders.dataRoot + L"\\Journal\\journal" + std::to_wstring(number) + L".txt";
}

std::wstring picturePathOf(const std::wstring& path) {
    return path + L".picture";
}

// The latest below `end`; -1 when there is none. Numbers are never used again while a later one is
// there.
int latestNumber(int end = mostJournals) {
    int number = end - 1;
    while (number >= 0 && (pathOf(number) == journalPath || !fileExists(pathOf(number)))) --number;
    return number;
}

void removeWithPicture(const std::wstring& path) {
    removeFile(path);
    removeFile(picturePathOf(path));
}

std::string withChecksum(const std::string& text) {
    return text + formatted(" %08x\n", checksumOf(text));
}

void giveUp() {
    journal.reset();
    logEvent("Journal: cannot be written");
    std::printf("Journal: cannot be written\n");
    std::fflush(stdout);
}

// The line without its checksum, when that is right.
std::optional<std::string> checked(const std::string& line) {
    constexpr size_t tail = 9; // a blank and the checksum
    if (line.size() < tail) return {};
    std::string text = line.substr(0, line.size() - tail);
    if (line.substr(text.size()) != formatted(" %08x", checksumOf(text))) return {};
    return text;
}

LeftJournal readJournal(const std::wstring& path) {
    LeftJournal found{.path = path};
    const std::string content = contentOfFile(path).value_or("");
    size_t end = 0;
    // A line without its end was cut.
    for (size_t at = 0; (end = content.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::optional<std::string> text = checked(content.substr(at, end - at));
        if (!text) break;
        if (!found.kind.empty())
            found.lines.push_back(*text);
        else if (text->starts_with(firstWords) && text->size() > sizeof firstWords - 1)
            found.kind = text->substr(sizeof firstWords - 1);
        else
            break;
    }
    return found;
}

} // namespace

bool beginJournal(const std::string& kind) {
    leaveJournal();
    makeFolder(dataFolders.dataRoot + L"\\Journal"); // one that is there already is simply used
    const int number = latestNumber() + 1;
    journalPath = pathOf(number);
    removeFile(picturePathOf(journalPath)); // of an earlier one of that number
    if (number < mostJournals) journal = openFile(journalPath, L"wb");
    flushedMs = tickCountMs();
    if (!journal) {
        giveUp();
        return false;
    }
    journalLine(firstWords + kind);
    flushJournal();
    return !journalIsBroken();
}

void journalLine(const std::string& text) {
    if (!journal) return;
    const std::string line = withChecksum(text);
    if (std::fwrite(line.data(), 1, line.size(), journal.get()) != line.size()) return giveUp();
    if (tickCountMs() - flushedMs >= longestUnflushedMs) flushJournal();
}

void flushJournal() {
    if (!journal) return;
    flushedMs = tickCountMs();
    if (!flushToDisk(journal.get())) giveUp();
}

bool journalIsBroken() {
    return !journal;
}

void removeJournal() {
    journal.reset();
    if (!journalPath.empty()) removeWithPicture(journalPath);
    journalPath.clear();
}

void leaveJournal() {
    journal.reset();
    journalPath.clear();
}

void keepJournalPicture(const std::string& picture) {
    if (!journal) return;
    writeDocument(picturePathOf(journalPath), withChecksum(picture), L"wb");
}

std::optional<LeftJournal> findLeftJournal(const std::string& kind) {
    std::optional<LeftJournal> unreadable;
    for (int number = latestNumber(); number >= 0; number = latestNumber(number)) {
        LeftJournal found = readJournal(pathOf(number));
        if (!found.kind.empty() && (kind.empty() || kind == found.kind)) return found;
        if (kind.empty() && !unreadable) unreadable = found;
    }
    return unreadable;
}

std::string journalPicture(const LeftJournal& left) {
    const std::string content = contentOfFile(picturePathOf(left.path)).value_or("");
    if (content.empty()) return {};
    return checked(content.substr(0, content.size() - 1)).value_or("");
}

bool continueJournal(const LeftJournal& left, const std::vector<std::string>& lines) {
    leaveJournal();
    journalPath = left.path;
    std::string content = withChecksum(firstWords + left.kind);
    for (const std::string& line : lines) content += withChecksum(line);
    if (writeDocument(left.path, content, L"wb")) journal = openFile(left.path, L"ab");
    flushedMs = tickCountMs();
    if (!journal) giveUp();
    return !journalIsBroken();
}

void removeLeftJournal(const LeftJournal& left) {
    removeWithPicture(left.path);
}
