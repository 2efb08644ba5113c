// Writes and reads what is on disk of a list.
#include "lists/list_record.h"

#include "mapping/map_document.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/start_program.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/document.h"
#include "session/options.h"
#include "session/outcome.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <sstream>

namespace {

constexpr char endProgramName[] = "at the end run";
constexpr wchar_t unfinishedName[] = L"Unfinished.txt";
constexpr char placeMark[] = "#place ", recordMark[] = "#record ", doneMark[] = "#done ",
               nameMark[] = "#name ", begunMark[] = "#begun ", followedMark[] = "#followed ",
               withMark[] = "#measured with ", failedMark[] = "#failed ";

std::wstring scanListFolder() {
    return dataFolders.dataRoot + L"\\Scan lists";
}

std::wstring pathOf(const std::wstring& name) {
    return scanListFolder() + L"\\" + name;
}

// With what was not taken before: a virus scanner may have held the file.
bool append(const std::wstring& path, std::string& waiting, const std::string& line) {
    waiting += line;
    const File file = openFile(path, L"a");
    if (!file || std::fputs(waiting.c_str(), file.get()) < 0 || !flushToDisk(file.get()))
        return false;
    waiting.clear();
    return true;
}

bool appendToRecord(ListPlace& place, const std::string& line) {
    return append(pathOf(widened(place.record)), place.waitingForRecord, line);
}

bool appendToUnfinished(ListPlace& place, const std::string& line) {
    return append(pathOf(unfinishedName), place.waitingForUnfinished, line);
}

// A line that a power cut has left without its end must not take the next one into it.
std::string endOfCutLine(const std::wstring& path) {
    const std::string content = contentOfFile(path).value_or("");
    return content.empty() || content.ends_with('\n') ? "" : "\n";
}

// The rest of a line behind its mark.
std::optional<std::string> behind(const std::string& line, const char* mark) {
    if (!line.starts_with(mark)) return {};
    std::string rest = line.substr(std::string(mark).size());
    if (rest.ends_with('\r')) rest.pop_back();
    return rest;
}

// "3.": a row of the list; nothing when the line was cut.
std::optional<size_t> rowIn(const ListPlace& place, const std::string& text) {
    size_t row = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), row);
    if (error != std::errc() || *end != '.' || row >= place.done.size()) return {};
    return row;
}

// A row of which the record says its end is done, though the power went before that was kept: it
// would be measured twice.
void takeRecorded(ListPlace& place) {
    std::istringstream lines(contentOfFile(pathOf(widened(place.record))).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        unsigned row = 0;
        int32_t repeat = 0;
        char how[64] = ""; // and what was wrong
        if (std::sscanf(line.c_str(), "%u\t%d\t%*[^\t]\t%*[^\t]\t%*[^\t]\t%63[^\t]", &row, &repeat,
                        how) != 3 ||
            row == 0 || row > place.done.size())
            continue;
        const std::string end = how;
        const auto isOf = [&end](ProcessEnd one) { return end.starts_with(nameOf(one)); };
        const bool stopped = isOf(ProcessEnd::Stopped) && !isOf(ProcessEnd::Asleep);
        const bool failed = end.starts_with("declined,"); // not by a No
        if (isOf(ProcessEnd::Finished) || stopped || failed)
            place.done[row - 1] = std::max(place.done[row - 1], repeat);
    }
}

// A tab or a line end in the words would break the table.
std::string inOneCell(std::string words) {
    for (char& letter : words)
        if (letter >= 0 && letter < ' ') letter = ' ';
    return words;
}

} // namespace

std::wstring scanListPath(const std::string& name) {
    return pathOf(widened(name) + L".ini");
}

bool writeScanList(const ScanList& list) {
    makeFolder(scanListFolder()); // one that is there already is simply used
    return writeDocument(scanListPath(list.name), textOf(list), L"w");
}

std::optional<ScanList> readScanList(const std::string& name, std::string& fault) {
    const auto text = contentOfFile(scanListPath(name));
    if (!text) {
        fault = "the file cannot be read";
        return {};
    }
    std::optional<ScanList> list = listOf(*text, fault);
    if (list) list->name = name;
    return list;
}

std::optional<size_t> ListPlace::next() const {
    for (size_t row = 0; row < list.rows.size(); ++row)
        if (list.rows[row].on && done[row] < static_cast<int32_t>(list.rows[row].repeats))
            return row;
    return {};
}

int32_t ListPlace::toMeasure() const {
    int32_t count = 0;
    for (const ListRow& row : list.rows) count += row.on;
    return count;
}

int32_t ListPlace::measured() const {
    int32_t count = 0;
    for (size_t row = 0; row < list.rows.size(); ++row)
        count += list.rows[row].on && !failed.contains(row) &&
                 done[row] >= static_cast<int32_t>(list.rows[row].repeats);
    return count;
}

bool beginListRecord(ListPlace& place) {
    makeFolder(scanListFolder());
    const LocalTime now = localTime();
    place.begun = timeText(now);
    const std::string stem = place.list.name + formatted("-%02d%02d%02d_%02d-%02d", now.year - 2000,
                                                         now.month, now.day, now.hour, now.minute);
    place.record = stem + ".txt";
    for (int number = 1; fileExists(pathOf(widened(place.record))); ++number)
        place.record = stem + formatted("(%d).txt", number);
    const std::string head = "list\t" + inOneCell(place.list.name) + "\nsample\t" +
                             inOneCell(place.list.sample) + "\nnote\t" +
                             inOneCell(place.list.note) +
                             "\nrow\trepeat\twhat\tstarted\tended\thow\tfolder\n";
    const std::string left =
        textOf(place.list) + nameMark + place.list.name + "\n" + recordMark + place.record + "\n" +
        begunMark + place.begun + "\n" + withMark + place.measuredWith + "\n" + placeMark +
        formatted("%.17g %.17g %.17g\n", place.homeX, place.homeY, place.homeZ);
    return writeDocument(pathOf(widened(place.record)), head, L"w") &&
           writeDocument(pathOf(unfinishedName), left, L"w");
}

bool recordRow(ListPlace& place, size_t row, int32_t repeat, const std::string& started,
               const std::string& ended, const std::string& folder, const std::string& how) {
    const ListRow& of = place.list.rows[row];
    std::string line =
        formatted("%d\t%d\t%s\t", static_cast<int>(row + 1), repeat, nameOf(of.kind));
    for (const std::string& cell : {started, ended, how}) {
        line += inOneCell(cell);
        line += '\t';
    }
    line += inOneCell(folder) + "\n";
    return appendToRecord(place, line);
}

bool recordEvent(ListPlace& place, const std::string& words) {
    const LocalTime now = localTime();
    return appendToRecord(place, formatted("%04d-%02d-%02d %02d:%02d:%02d\t", now.year, now.month,
                                           now.day, now.hour, now.minute, now.second) +
                                     inOneCell(words) + "\n");
}

bool recordContinuation(ListPlace& place) {
    place.waitingForRecord = endOfCutLine(pathOf(widened(place.record)));
    place.waitingForUnfinished = endOfCutLine(pathOf(unfinishedName));
    return recordEvent(place, "continued after it was cut off");
}

// With the count: a line of which only the disk's word is missing is written once more.
bool keepDone(ListPlace& place, size_t row) {
    ++place.done[row];
    return appendToUnfinished(
        place, formatted("%s%d.%d;\n", doneMark, static_cast<int>(row), place.done[row]));
}

bool keepFailed(ListPlace& place, size_t row) {
    if (!place.failed.insert(row).second) return true;
    return appendToUnfinished(place, formatted("%s%d.\n", failedMark, static_cast<int>(row)));
}

bool keepFollowed(ListPlace& place) {
    const StageVector& um = place.followed;
    return appendToUnfinished(place, followedMark + formatted("%.17g %.17g;\n", um.x, um.y));
}

std::wstring firstPicturePath(const ListPlace& place) {
    const std::string stem = place.record.substr(0, place.record.rfind('.'));
    return pathOf(L"First of " + widened(stem) + L".pgm");
}

bool forgetUnfinishedList() {
    removeFile(pathOf(unfinishedName));
    return !fileExists(pathOf(unfinishedName));
}

std::string programAtEnd() {
    return readOption(endProgramName);
}

bool keepProgramAtEnd(const std::string& path) {
    return path == programAtEnd() || writeOptions({{endProgramName, path}});
}

void startProgramAtEnd(const ListPlace& place) {
    const std::string path = programAtEnd();
    if (path.empty()) return;
    const std::string why = startProgram(widened(path), pathOf(widened(place.record)));
    logEvent("At the end run " + path + ": " + (why.empty() ? "started" : why));
}

std::optional<ListPlace> unfinishedList(std::string& fault) {
    const auto text = contentOfFile(pathOf(unfinishedName));
    if (!text && fileExists(pathOf(unfinishedName))) fault = "it cannot be read";
    if (!text) return {};
    const std::optional<ScanList> list = listOf(*text, fault);
    if (!list) return {};
    ListPlace place{.list = *list, .done = std::vector<int32_t>(list->rows.size())};
    bool whole = false;
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        if (const auto name = behind(line, nameMark)) place.list.name = *name;
        if (const auto record = behind(line, recordMark)) place.record = *record;
        if (const auto begun = behind(line, begunMark)) place.begun = *begun;
        if (const auto with = behind(line, withMark)) place.measuredWith = *with;
        if (const auto home = behind(line, placeMark))
            whole = std::sscanf(home->c_str(), "%lf %lf %lf", &place.homeX, &place.homeY,
                                &place.homeZ) == 3;
        if (const auto followed = behind(line, followedMark)) {
            StageVector um;
            const bool isWhole = followed->ends_with(';') && // the last line may be cut
                                 std::sscanf(followed->c_str(), "%lf %lf", &um.x, &um.y) == 2;
            if (isWhole) place.followed = um;
        }
        if (const auto failed = behind(line, failedMark))
            if (const auto row = rowIn(place, *failed)) place.failed.insert(*row);
        if (const auto done = behind(line, doneMark)) {
            int32_t row = 0, repeats = 0;
            char end = 0; // without it the line was cut
            const bool isWhole =
                std::sscanf(done->c_str(), "%d.%d%c", &row, &repeats, &end) == 3 && end == ';';
            if (isWhole && row >= 0 && static_cast<size_t>(row) < place.done.size()) {
                int32_t& counted = place.done[static_cast<size_t>(row)];
                counted = std::max(counted, repeats);
            }
        }
    }
    if (whole && !place.record.empty()) return takeRecorded(place), place;
    fault = "it does not say where the list stood";
    return {};
}
