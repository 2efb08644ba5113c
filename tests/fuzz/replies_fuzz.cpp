// Fuzzes everything that reads text from outside: instruments' replies, the settings line, the
// board's replies, the analyzer's replies, a journal. The first byte chooses, the rest is the text.
#include "app/settings_line.h"
#include "instruments/ammeter.h"
#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/kxci.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "instruments/lock_in.h"
#include "instruments/number_extraction.h"
#include "instruments/visa.h"
#include "mapping/scan_area.h"
#include "mapping/scan_journal.h"
#include "session/data_folders.h"
#include "spectroscopy/sweep_journal.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <string>

namespace {

std::string text; // of the present input
std::vector<std::string> scanLines, sweepLines;

void require(bool condition) {
    if (!condition) std::abort();
}

// What belongs to a number in the text; 100 characters or more end the program by design.
std::string kept(ReplyKind kind) {
    std::string number;
    bool digitSeen = false;
    for (char c : kind == ReplyKind::Analyzer ? text.substr(0, 100) : text) {
        if (c == '\0' || c == '\n' || (c == '\v' && kind == ReplyKind::Sourcemeter)) break;
        digitSeen = digitSeen || std::isdigit(static_cast<unsigned char>(c));
        if (std::strchr("0123456789+-.", c) || (digitSeen && c == 'E')) number += c;
    }
    return number;
}

template <class Read> void readNumber(ReplyKind kind, Read read) {
    const std::string number = kept(kind);
    if (number.size() >= 100) return;
    char* end = nullptr;
    const float whole = std::strtof(number.c_str(), &end);
    const float value = read();
    require(value == whole || (*end == 'E' && value == 0.0f)); // "%f" may refuse a bare exponent
}

template <ReplyKind kind> float extract() {
    return extractNumber(text.data(), text.size(), kind);
}

void readSettings() {
    SessionSettings settings = currentSettings();
    parseSettingsLine(text.c_str(), settings);
    applySettings(settings);
    scanArea.rectX2 = 1232;
    scanArea.rectY2 = 1028;
    computeScanArea(scanArea);
    require(scanArea.scanStep >= scanStepLowest && scanArea.scanStep <= scanStepHighest);
    require(scanArea.cols >= 1 && scanArea.cols <= 1802 && scanArea.rows >= 1);
    require(std::isfinite(scanArea.offsetXUm) && std::isfinite(laserLink.laserLevel));
    const std::string line = formatSettingsLine(currentSettings());
    SessionSettings again = currentSettings();
    again.confocalEnabled = ~again.confocalEnabled;
    parseSettingsLine(line.c_str(), again);
    require(again.confocalEnabled ==
            scanSettings.confocalEnabled); // what was written is read whole
    setLaserLevel(1);                      // whatever level was read, the command stays a command
    setLaserLevel(0);
}

void readBoard() {
    serial.replies.assign(1, text);
    require(std::isfinite(laserAnalogRead(laserLink, 0, 1)));
    for (int channel = 0; channel < 3; ++channel) {
        serial.replies.assign(1, text);
        require(std::isfinite(laserChannelValue(laserLink, channel)));
    }
}

constexpr unsigned long driverErrorCount = 0xE0140025; // an error number, not a count

// A reply over GPIB: at most as many bytes as are asked for, now and then with a driver's error.
void readBus(ReplyKind kind, Reading (*read)()) {
    text.resize(std::min<size_t>(text.size(), 100));
    gpibOpenDevice(18);
    readNumber(kind, read);
}

// A value that counts has come from the text whole.
void readLockIn(bool (*open)(), Reading (*read)(), std::optional<InstrumentSettings> (*set)()) {
    text.resize(std::min<size_t>(text.size(), 100));
    open();
    set();
    const Reading reading = read();
    for (float value : reading.values) require(reading.answered || value == 0.0f);
    const std::optional<InstrumentSettings> settings = set();
    if (settings) require(std::isfinite(settlingMs(*settings, 99.0)) && settings->poles <= 4);
}

// Lines of a journal: as conditions behind those of a scan or a sweep, which they may replace, and
// as points. What comes of it is a map or a curve of the journal's own size.
NextLine linesOf(const std::vector<std::string>& lines) {
    return [&lines, i = size_t{0}]() mutable {
        return i < lines.size() ? std::optional<std::string_view>(lines[i++]) : std::nullopt;
    };
}

void readJournals() {
    for (const char* kind : {scanJournalKind, sweepJournalKind, seriesJournalKind}) {
        std::vector<std::string> lines = kind == scanJournalKind ? scanLines : sweepLines;
        std::istringstream typed(text);
        std::vector<std::string> own;
        for (std::string line; std::getline(typed, line);) own.push_back(line);
        lines.pop_back(); // "points", before the conditions that replace others
        lines.insert(lines.end(), own.begin(), own.end());
        lines.emplace_back("points");
        lines.insert(lines.end(), own.begin(), own.end());
        if (const std::optional<JournaledScan> scan = scanOfLines(linesOf(lines))) {
            require(scan->points >= 0 && scan->points <= scan->plan().area.totalPoints);
            require(firstMissingRow(scan->map) <= scan->map.conditions->area.rows);
        }
        if (const std::optional<JournaledSweep> sweep = curveOfLines(kind, linesOf(lines)))
            require(sweep->record.currentIndex >= 0 &&
                    static_cast<size_t>(sweep->record.currentIndex) <=
                        sweep->record.yValues.size());
    }
}

// The lines that the program itself writes before the points.
std::vector<std::string> writtenLines(void (*begin)()) {
    begin();
    leaveJournal();
    const std::vector<LeftJournal> left = leftJournals();
    require(!left.empty());
    const NextLine next = linesOfJournal(left.front());
    std::vector<std::string> lines;
    while (const std::optional<std::string_view> line = next()) lines.emplace_back(*line);
    removeLeftJournal(left.front());
    return lines;
}

void answerAnalyzer(const char*, char* reply, int*) {
    std::memcpy(reply, text.c_str(), text.size() + 1);
}

void readAnalyzer() {
    paOpen(analyzerNetwork, 18, 192, 168, 0, 10, 1225);
    text.resize(std::min<size_t>(text.size(), 4000));
    paRead(analyzerNetwork);
}

void connectDoubles() {
    resetScript();
    resetClock();
    makeTempDesktop();
    resetProgram();
    replaceFunction(
        "OpenKXCIConnection_C", +[](const char*, int, int* status) { *status = kxciConnected; });
    replaceFunction("SendKXCICommand_C", answerAnalyzer);
    replaceFunction(
        "ibrd", +[](int, void* reply, size_t) {
            std::memcpy(reply, text.data(), text.size());
            return 0ul;
        });
    replaceFunction(
        "ThreadIbsta", +[] { return text.starts_with('!') ? 0x8100ul : 0x2100ul; });
    replaceFunction(
        "ThreadIbcnt", +[] { return text.starts_with('!') ? driverErrorCount : text.size(); });
    replaceFunction(
        "viRead", +[](ViSession, uint8_t* buffer, uint32_t count, uint32_t* received) {
            *received = std::min(count, static_cast<uint32_t>(text.size()));
            std::memcpy(buffer, text.data(), *received);
            return ViStatus{0};
        });
    prepareDataFolders(dataFolders);
    allocateMaps();
    scanMap.conditions = conditionsOf(presentPlan());
    scanLines = writtenLines(beginScanJournal);
    allocateSweep(sweepRecord);
    noteStart(sweepRecord);
    sweepLines = writtenLines([] { beginSweepJournal(sweepRecord); });
    require(std::freopen("/dev/null", "w", stdout)); // what is read is printed
    serial.scripted = true;
    openLaserLink(laserLink, nullptr);
}

void (*const targets[])() = {
    [] { readNumber(ReplyKind::Multimeter, extract<ReplyKind::Multimeter>); },
    [] { readNumber(ReplyKind::Sourcemeter, extract<ReplyKind::Sourcemeter>); },
    [] { readNumber(ReplyKind::Analyzer, extract<ReplyKind::Analyzer>); },
    readSettings,
    readBoard,
    readAnalyzer,
    [] { readBus(ReplyKind::Multimeter, gpibMultimeterRead); },
    [] { readBus(ReplyKind::Sourcemeter, gpibSourcemeterRead); },
    readJournals,
    [] { readLockIn([] { return sr830Open(8); }, sr830Read, sr830Settings); },
    [] { readLockIn(sr860Open, sr860Read, sr860Settings); }};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool connected = (connectDoubles(), true);
    (void)connected;
    if (size == 0) return 0;
    resetClock();
    serial.writes.clear(); // the doubles remember everything
    text.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    targets[data[0] % std::size(targets)](); // the corpus begins with a target's number
    return 0;
}
