// Copies the disk in the middle of a day and starts the program on the copy.
#include "tests/simulation/day/power_cut.h"

#include "app/program.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/doubles/doubles.h"
#include "ui/continue_window.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

namespace fs = std::filesystem;

namespace {

constexpr char journalFolder[] = "KST_Data/Journal/";
constexpr double firstRecoveryMs = 1500, longestScanMs = 60000, longestListMs = 300000,
                 lastTriesMs = 18500;

size_t pointsOf(const std::vector<std::vector<PointMark>>& marks) {
    size_t count = 0;
    for (const std::vector<PointMark>& column : marks)
        count += column.size() - static_cast<size_t>(std::count(column.begin(), column.end(),
                                                                PointMark::NotMeasured));
    return count;
}

size_t textsOf(const std::vector<std::string>& files) {
    return static_cast<size_t>(std::count_if(files.begin(), files.end(), [](const auto& name) {
        return name.find("/Kestrel(") != std::string::npos;
    }));
}

bool haveOneSize(const ScanMap& one, const ScanMap& other) {
    return one.marks.size() == other.marks.size() &&
           (one.marks.empty() || one.marks[0].size() == other.marks[0].size());
}

bool beganAtOnce(const ScanMap& one, const ScanMap& other) {
    return one.conditions && other.conditions &&
           one.conditions->started == other.conditions->started;
}

bool isWholeRow(const ScanMap& map, size_t row) {
    return std::none_of(map.marks.begin(), map.marks.end(), [row](const auto& column) {
        return column[row] == PointMark::NotMeasured;
    });
}

// The operator confirms that the stage stands where it stood.
void goOnWithScan() {
    at(firstRecoveryMs, [] { postCommand(idContinueScan); });
    at(firstRecoveryMs + 500, [] { postCall([] { onContinueCommand(idContinueConfirm); }); });
    at(firstRecoveryMs + longestScanMs, [] {
        for (const WindowHandle tool : std::vector<WindowHandle>(toolWindows)) onToolClose(tool);
    });
}

bool isSameCell(const ScanMap& one, const ScanMap& other, size_t c, size_t m) {
    for (size_t plane = 0; plane < one.maps.size(); ++plane)
        if (one.maps[plane][c][m] != other.maps[plane][c][m]) return false;
    return one.marks[c][m] == other.marks[c][m];
}

} // namespace

PowerCut::PowerCut(uint32_t seed, bool dayOfList) {
    std::minstd_rand random(seed + 1);
    luck = static_cast<uint32_t>(random());
    const bool happens = random() % 3 == 0;
    cutMs = happens ? 2500.0 + static_cast<double>(random() % (dayOfList ? 70000 : 30000)) : 1e18;
    inFiles = random() % 2 == 0;
    if (dayOfList) filesLeft = static_cast<int>(random() % 60);
    diskWatch.before = [this] {
        if (inFiles && virtualNowMs() >= cutMs && filesLeft-- == 0) cut();
    };
    diskWatch.flushed = [this](const std::string& name) {
        if (!name.starts_with(journalFolder)) return;
        std::string firstWords("Lumascan journal 1 scan"), words(firstWords.size(), '\0');
        std::ifstream(pathOnDesktop(name)).read(words.data(), static_cast<int>(words.size()));
        if (words != firstWords) return;
        journal = name;
        flushedSize = fs::file_size(pathOnDesktop(name));
        flushed = scanMap;
    };
    diskWatch.removed = [this](const std::string& name) {
        if (name == journal) flushed = {};
    };
}

PowerCut::~PowerCut() {
    diskWatch = {};
    std::error_code ignored;
    if (!folder.empty()) fs::remove_all(folder, ignored);
}

void PowerCut::look() {
    if (!inFiles && testTimeMs() >= cutMs) cut();
}

// What was written and not flushed is there up to anywhere.
void PowerCut::cut() {
    cutMs = 1e18;
    folder = copyDesktop();
    scanThen = scanMap;
    diskWatch = {};
    if (flushed.marks.empty()) return;
    const fs::path file = fs::path(folder) / journal;
    const size_t unflushed = fs::file_size(file) - flushedSize;
    fs::resize_file(file, flushedSize + luck % (unflushed + 1));
}

std::vector<std::string> PowerCut::startAgain(std::map<std::string, uint64_t>& counts,
                                              Laboratory& laboratory) {
    prepareWorld();
    laboratory.apply("");
    useAsDesktop(folder);
    folder.clear();
    wallTime.day += 1;
    nobodyLooks = true;
    const size_t points = pointsOf(flushed.marks);
    const size_t textsBefore = textsOf(filesOnDesktop());
    std::string notice;
    answerOthers = [](const ShownBox&) { return BoxAnswer::Yes; };
    when([] { return timerRuns(); }, [&] { notice = textIn(Field::Information); });
    listGoesOn = list.isLeft();
    ScanMap recovered; // of the scan that was cut
    const auto takeRecovered = [&] {
        if (haveOneSize(scanMap, flushed) && beganAtOnce(scanMap, flushed)) recovered = scanMap;
    };
    if (listGoesOn) {
        list.goOn(firstRecoveryMs, [] { postCommand(idExit); });
        onlooker.waits = takeRecovered;
    }
    const bool goesOn = points > 0 && luck % 4 == 0 && !listGoesOn;
    if (goesOn) goOnWithScan();
    const double goneOnMs = listGoesOn ? longestListMs : goesOn ? longestScanMs : 0.0;
    const double endOfRestartMs = firstRecoveryMs + goneOnMs + lastTriesMs;
    // A curve may have been cut off or not been saved since: the latest comes first.
    for (double ms = firstRecoveryMs + goneOnMs; ms < endOfRestartMs; ms += 1000)
        at(ms, [&] {
            postCommand(points == 0 || contentOf(journal).empty() ? idExit : idRecoverScan);
        });
    at(endOfRestartMs, [] {
        if (windows.main) post(messageClose);
    });
    std::vector<std::string> wrong;
    if (runProgram(1) != 0) wrong.emplace_back("the next start ends with another code than 0");
    ++counts["power cuts"];
    if (points == 0) return wrong;
    if (!listGoesOn) recovered = scanMap;
    const bool wentOn = recovered.conditions && !recovered.conditions->continued.empty();
    ++counts[wentOn ? "scans continued" : "scans recovered"];
    counts[wentOn ? "points kept in them" : "points recovered"] += points;
    if (notice.find(" was cut off") == std::string::npos) wrong.push_back("not noticed: " + notice);
    const std::string said = ": " + historyOf(Field::Information).back();
    if (!contentOf(journal).empty()) wrong.push_back("the journal is still there" + said);
    if (textsOf(filesOnDesktop()) <= textsBefore) wrong.push_back("no text was written" + said);
    if (!haveOneSize(recovered, flushed)) {
        wrong.emplace_back("a map of another size");
        return wrong;
    }
    // What came behind the last flush may be there as well.
    const bool sameScan = haveOneSize(scanThen, flushed) && beganAtOnce(scanThen, flushed);
    for (size_t c = 0; c < flushed.marks.size(); ++c) {
        for (size_t m = 0; m < flushed.marks[c].size(); ++m) {
            if (wentOn && !isWholeRow(flushed, m)) continue; // measured anew
            const bool wasFlushed = flushed.marks[c][m] != PointMark::NotMeasured;
            if (wasFlushed && !isSameCell(recovered, flushed, c, m))
                wrong.push_back(formatted("lost: cell %zu, %zu", c, m));
            if (!wasFlushed && recovered.marks[c][m] != PointMark::NotMeasured &&
                !(sameScan && isSameCell(recovered, scanThen, c, m)))
                wrong.push_back(formatted("wrong: cell %zu, %zu", c, m));
        }
    }
    return wrong;
}
