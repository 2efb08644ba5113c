// Writes and reads the journal.
#include "session/journal.h"

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/data_folders.h"
#include "session/document.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>

// The polynomial of IEEE 802.3, bits from the low end.
uint32_t checksumOf(std::string_view text) {
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

namespace {

constexpr uint64_t longestUnflushedMs = 2000;
// The timer flushes what may wait so long at the tick after this one.
constexpr unsigned tickMs = 500;
constexpr uint64_t longestAtTickMs = longestUnflushedMs - tickMs;
constexpr int mostJournals = 100;
constexpr std::string_view firstWords = "Lumascan journal ";
constexpr size_t checksumLength = 9;      // a blank and eight digits
constexpr size_t longestLine = 1 << 16;   // what is longer is no journal's
constexpr size_t partOfFile = 1 << 16;    // that is read at once
constexpr long longestLastLine = 1 << 12; // all of a measurement's lines are shorter

// The one that is being written.
struct {
    std::wstring journalPath;
    File journal;
    uint64_t flushedMs = 0;
    bool unflushed = false; // a line since then
} current;

// " 0123cdef"
std::array<char, checksumLength> checksumText(std::string_view text) {
    std::array<char, checksumLength> digits{' '};
    uint32_t sum = checksumOf(text);
    for (size_t i = checksumLength; i-- > 1; sum >>= 4) digits[i] = "0123456789abcdef"[sum & 0xF];
    return digits;
}

std::wstring pathOf(int number) {
    return dataFolders.dataRoot + L"\\Journal\\journal" + std::to_wstring(number) + L".txt";
}

std::wstring picturePathOf(const std::wstring& path) {
    return path + L".picture";
}

void removeWithPicture(const std::wstring& path) {
    removeFile(path);
    removeFile(picturePathOf(path));
}

// The number behind the latest one that is there.
int numberBehindAll() {
    int number = mostJournals;
    while (number > 0 && !fileExists(pathOf(number - 1))) --number;
    return number;
}

// Moves them together, in their order.
void closeGaps() {
    int free = 0;
    for (int number = 0; number < mostJournals; ++number) {
        if (!fileExists(pathOf(number))) continue;
        while (free < number && fileExists(pathOf(free))) ++free;
        if (free == number) continue;
        removeFile(picturePathOf(pathOf(free))); // of an earlier one of that number
        if (replaceFile(pathOf(number), pathOf(free)))
            replaceFile(picturePathOf(pathOf(number)), picturePathOf(pathOf(free)));
    }
}

// A number is never used again while a later one is there: it tells which is the latest. What
// stays at the end of the numbers, whoever put it there, must not be in the way for good.
int nextNumber() {
    const int behind = numberBehindAll();
    if (behind < mostJournals) return behind;
    closeGaps();
    int number = 0;
    while (number < mostJournals && fileExists(pathOf(number))) ++number;
    return number;
}

void appendWithChecksum(std::string& to, std::string_view text) {
    const auto sum = checksumText(text);
    to.append(text).append(sum.data(), sum.size()) += '\n';
}

bool writeText(FILE* file, const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), file) == text.size();
}

void follow(File file) {
    current.journal = std::move(file);
    current.flushedMs = tickCountMs();
    current.unflushed = false;
    if (current.journal) startTimer(Timer::Journal, tickMs);
}

void endFile() {
    current.journal.reset();
    current.unflushed = false;
    stopTimer(Timer::Journal);
}

void giveUp() {
    endFile();
    announce(Severity::Failure, "Journal: cannot be written");
}

// The line without its checksum, when that is right.
std::optional<std::string_view> checked(std::string_view line) {
    if (line.size() < checksumLength) return {};
    const std::string_view text = line.substr(0, line.size() - checksumLength);
    const auto sum = checksumText(text);
    if (line.substr(text.size()) != std::string_view(sum.data(), sum.size())) return {};
    return text;
}

class Reader {
public:
    explicit Reader(const std::wstring& path) : file(openFile(path, L"rb")) {}

    // A line without its end was cut.
    std::optional<std::string_view> next() {
        size_t end = 0;
        while ((end = buffer.find('\n', at)) == std::string::npos)
            if (!readMore()) return {};
        const std::string_view line(buffer.data() + at, end - at);
        at = end + 1;
        const std::optional<std::string_view> text = checked(line);
        if (text) return text;
        file.reset(); // no further
        buffer.clear();
        at = 0;
        return {};
    }

private:
    bool readMore() {
        if (!file || buffer.size() - at > longestLine) return false;
        buffer.erase(0, at);
        at = 0;
        const size_t before = buffer.size();
        buffer.resize(before + partOfFile);
        buffer.resize(before + std::fread(buffer.data() + before, 1, partOfFile, file.get()));
        return buffer.size() > before;
    }

    File file;
    std::string buffer;
    size_t at = 0; // of the next line in it
};

std::string firstLineOf(const std::string& kind) {
    return std::string(firstWords) + std::to_string(journalVersion) + " " + kind;
}

// The kind and the version of a journal, from its first line.
void takeFirstLine(std::string_view line, LeftJournal& left) {
    if (!line.starts_with(firstWords)) return;
    line.remove_prefix(firstWords.size());
    for (int version = 1; version <= journalVersion; ++version) {
        const std::string words = std::to_string(version) + " ";
        if (!line.starts_with(words)) continue;
        left.version = version;
        left.kind = line.substr(words.size());
    }
}

} // namespace

bool beginJournal(const std::string& kind) {
    leaveJournal();
    makeFolder(dataFolders.dataRoot + L"\\Journal"); // one that is there already is simply used
    const int number = nextNumber();
    current.journalPath = pathOf(number);
    removeFile(picturePathOf(current.journalPath)); // of an earlier one of that number
    follow(number < mostJournals ? openFile(current.journalPath, L"wb") : nullptr);
    if (!current.journal) {
        giveUp();
        return false;
    }
    journalLine(firstLineOf(kind));
    flushJournal();
    return !journalIsBroken();
}

void journalLine(std::string_view text) {
    if (!current.journal) return;
    std::string line;
    appendWithChecksum(line, text);
    if (!writeText(current.journal.get(), line)) return giveUp();
    current.unflushed = true;
    if (tickCountMs() - current.flushedMs >= longestUnflushedMs) flushJournal();
}

void flushJournal() {
    if (!current.journal) return;
    current.flushedMs = tickCountMs();
    current.unflushed = false;
    if (!flushToDisk(current.journal.get())) giveUp();
}

void journalTick() {
    if (current.unflushed && tickCountMs() - current.flushedMs >= longestAtTickMs) flushJournal();
}

bool journalIsBroken() {
    return !current.journal;
}

void removeJournal() {
    endFile();
    if (!current.journalPath.empty()) removeWithPicture(current.journalPath);
    current.journalPath.clear();
}

void leaveJournal() {
    endFile();
    current.journalPath.clear();
}

void keepJournalPicture(const std::string& picture) {
    if (!current.journal) return;
    std::string content;
    appendWithChecksum(content, picture);
    writeDocument(picturePathOf(current.journalPath), content, L"wb");
}

std::vector<LeftJournal> leftJournals() {
    std::vector<LeftJournal> found;
    for (int number = mostJournals; number-- > 0;) {
        const std::wstring path = pathOf(number);
        if (path == current.journalPath || !fileExists(path)) continue;
        Reader reader(path);
        LeftJournal left{path};
        if (const std::optional<std::string_view> first = reader.next())
            takeFirstLine(*first, left);
        found.push_back(left);
    }
    return found;
}

NextLine linesOfJournal(const LeftJournal& left) {
    const auto reader = std::make_shared<Reader>(left.path);
    reader->next(); // its kind
    return [reader] { return reader->next(); };
}

std::optional<std::string> lastLineOfJournal(const LeftJournal& left) {
    const File file = openFile(left.path, L"rb");
    if (!file) return {};
    std::string tail(longestLastLine, '\0');
    if (std::fseek(file.get(), -longestLastLine, SEEK_END) != 0) std::rewind(file.get()); // shorter
    tail.resize(std::fread(tail.data(), 1, tail.size(), file.get()));
    for (size_t end; (end = tail.rfind('\n')) != std::string::npos; tail.resize(end)) {
        const size_t before = end == 0 ? std::string::npos : tail.rfind('\n', end - 1);
        const size_t begin = before == std::string::npos ? 0 : before + 1;
        const auto text = checked(std::string_view(tail).substr(begin, end - begin));
        if (text) return std::string(*text);
    }
    return {};
}

std::string journalPicture(const LeftJournal& left) {
    const std::string content = contentOfFile(picturePathOf(left.path)).value_or("");
    if (content.empty()) return {};
    return std::string(checked(std::string_view(content).substr(0, content.size() - 1))
                           .value_or(std::string_view()));
}

bool continueJournal(const LeftJournal& left, const NextLine& lines) {
    leaveJournal();
    current.journalPath = left.path;
    const bool written = writeWhole(left.path, L"wb", [&](FILE* file) {
        std::string part;
        appendWithChecksum(part, firstLineOf(left.kind));
        while (const std::optional<std::string_view> line = lines()) {
            appendWithChecksum(part, *line);
            if (part.size() < partOfFile) continue;
            if (!writeText(file, part)) return false;
            part.clear();
        }
        return writeText(file, part);
    });
    follow(written ? openFile(left.path, L"ab") : nullptr);
    if (!current.journal) giveUp();
    return !journalIsBroken();
}

void removeLeftJournal(const LeftJournal& left) {
    removeWithPicture(left.path);
}
