// Lists the scans, shows, marks and reuses them.
#include "ui/scans_window.h"

#include "actions/settings.h"
#include "archive/earlier_settings.h"
#include "archive/scan_file.h"
#include "archive/scan_index.h"
#include "archive/scan_verdict.h"
#include "camera/live_view.h"
#include "instruments/laser_link.h"
#include "mapping/map_rendering.h"
#include "mapping/scan_area_view.h"
#include "mapping/scan_map.h"
#include "platform/text_format.h"
#include "platform/viewer.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "ui/commands.h"

#include <algorithm>
#include <memory>

namespace {

using enum ToolControl::Kind;

constexpr int margin = 10, height = 22;
constexpr int tableTop = 38, tableHeight = 456;
constexpr int innerWidth = 1180;
constexpr int buttonsTop = tableTop + tableHeight + 8;
constexpr int outerWidth = innerWidth + 6, outerHeight = buttonsTop + height + margin + 31;

constexpr unsigned tickMs = 20;
constexpr uint64_t partMs = 40; // of each tick: the window answers in between

struct State {
    WindowHandle window = nullptr;
    WindowHandle edits[2] = {}; // what is sought, the word
    ScanIndex index;
    std::vector<size_t> shown; // of the index' rows
    std::wstring selected;     // path
    std::string sought;
    ScanColumn by = ScanColumn::Time;
    bool descending = true;
    std::wstring inMapWindow; // path of the file that the map window was given
    size_t plane = 0;         // of its planes, the next one with "Next plane"
};

// Its rows stay when the window is closed: what was read is not read again.
State state;

void tell(const std::string& words) {
    showMessageBox(windows.main, words.c_str(), "Scans", BoxButtons::Ok);
}

const ScanRow* rowAt(int row) {
    const auto at = static_cast<size_t>(row);
    const bool there = row >= 0 && at < state.shown.size();
    return there ? &state.index.rows()[state.shown[at]] : nullptr;
}

const ScanRow* selectedRow() {
    return rowAt(selectedInToolTable(state.window, idScansTable));
}

std::wstring fullPath(const ScanRow& row) {
    return dataFolders.dataRoot + L"\\" + row.path;
}

void showCount() {
    const size_t all = state.index.rows().size(), shown = state.shown.size();
    std::string words = "Listing the folders ...";
    if (state.index.isListed()) {
        words = formatted("%u scans", static_cast<unsigned>(all));
        if (shown != all) words += formatted(", %u shown", static_cast<unsigned>(shown));
        if (const size_t left = state.index.toRead(); left > 0)
            words += formatted(", %u to be read%s", static_cast<unsigned>(left),
                               processUnderWay() ? " after this process" : "");
        if (const auto& folders = state.index.notListed(); !folders.empty())
            words += formatted("; CANNOT BE LISTED (%u): KST_Data\\",
                               static_cast<unsigned>(folders.size())) +
                     narrowed(folders.front());
    }
    setToolText(state.window, idScansCount, words.c_str());
}

// Sorted and filtered anew; the selected scan stays selected where it is among them.
void showRows() {
    const std::vector<ScanRow>& rows = state.index.rows();
    state.shown = state.index.isListed() ? rowsShown(rows, state.sought, state.by, state.descending)
                                         : std::vector<size_t>();
    const auto at = std::find_if(state.shown.begin(), state.shown.end(),
                                 [&](size_t row) { return rows[row].path == state.selected; });
    const bool isThere = at != state.shown.end();
    const std::wstring selected = state.selected; // the table tells of its own changes
    fillToolTable(state.window, idScansTable, static_cast<int>(state.shown.size()),
                  isThere ? static_cast<int>(at - state.shown.begin()) : -1);
    state.selected = selected;
    showCount();
}

void listAnew() {
    state.index.begin();
    startTimer(Timer::Scans, tickMs);
    showRows();
}

// Nothing that takes its time, or asks, while something is under way.
bool isRefused() {
    if (processUnderWay()) return refuseForProcess(), true;
    if (!stageIsMoving()) return false;
    showInformation("Not while the stage moves");
    return true;
}

// A sound scan is selected; otherwise says what is amiss.
const ScanRow* soundRow() {
    if (isRefused()) return nullptr;
    const ScanRow* row = selectedRow();
    if (!row) return tell("Select a scan first"), nullptr;
    if (row->fault.empty()) return row;
    tell("The file of this scan is damaged: " + row->fault);
    return nullptr;
}

std::string titleOf(const ScanRow& row, const Plane& plane) {
    return plane.title + " - file " + narrowed(row.path);
}

void showPlane(const ScanRow& row, size_t number) {
    std::string fault;
    const std::string name = narrowed(row.path);
    std::optional<ScanMap> map = mapOfFile(fullPath(row), fault);
    if (!map) return tell("The map is not shown: " + fault);
    state.plane = number % map->planes.size();
    const Plane& plane = map->planes[state.plane];
    map->views.mapChannel = channelOf(plane);
    map->file = name;
    const std::string title = titleOf(row, plane);
    state.inMapWindow = row.path;
    showFileMap(std::move(*map), title);
    showInformation(("Shown from a file: " + name).c_str()); // the rows may be others by now
}

void showMap() {
    if (const ScanRow* row = soundRow()) showPlane(*row, 0);
}

void showNextPlane() {
    const ScanRow* row = soundRow();
    if (!row) return;
    const bool isShown = shownFileMap() && state.inMapWindow == row->path;
    showPlane(*row, isShown ? state.plane + 1 : 0);
}

std::string joined(const std::vector<std::string>& parts, const char* between) {
    std::string all;
    for (const std::string& part : parts) all += (all.empty() ? "" : between) + part;
    return all;
}

void useSettings() {
    const ScanRow* row = soundRow();
    if (!row) return;
    const std::string name = narrowed(row->path);
    const GwyContents contents = contentsOfFile(fullPath(*row));
    if (!contents.fault.empty()) return tell("The file of this scan is damaged: " + contents.fault);
    const EarlierSettings settings = takeEarlierSettings(contents);
    showScanSettings();
    logEvent("Settings of " + name + ": " + joined(settings.taken, ", "));
    if (!settings.notTaken.empty()) logEvent("Not taken: " + joined(settings.notTaken, "; "));
    if (scanArea.placed) showScanArea();
    showInformation(("Settings of " + name).c_str());
    std::string words = "Taken: " + joined(settings.taken, ", ") + ".";
    if (!settings.notTaken.empty())
        words += "\n\nNot taken:\n- " + joined(settings.notTaken, "\n- ");
    tell(words);
}

void showFolder() {
    if (isRefused()) return;
    const ScanRow* row = selectedRow();
    if (!row) return tell("Select a scan first");
    if (!showInFolder(fullPath(*row))) tell("The folder does not open");
}

void mark(ScanVerdict::Mark as) {
    if (isRefused()) return;
    const int at = selectedInToolTable(state.window, idScansTable);
    if (!rowAt(at)) return tell("Select a scan first");
    ScanVerdict verdict{.mark = as};
    if (as != ScanVerdict::Mark::None) verdict.word = windowText(state.edits[1], 200);
    for (char& letter : verdict.word)
        if (letter < ' ' || letter > '~') letter = '?';
    if (!state.index.say(state.shown[static_cast<size_t>(at)], verdict))
        return tell("It could not be written beside the scan");
    showRows();
}

void seek() {
    const std::string typed = windowText(state.edits[0], 200);
    if (typed == state.sought) return; // the edit tells also of its focus
    state.sought = typed;
    showRows();
}

constexpr ToolControl controls[] = {
    {Label, "Filter", margin, 8, 36, height},
    {Edit, "", 50, 8, 300, height, idScansFilter},
    {Label, "", 366, 8, 560, height, idScansCount},
    {Button, "List anew", innerWidth - margin - 90, 7, 90, height + 2, idScansList},
    {PictureTable,
     "Picture:56 Time:140 Size:70 Step/um:68 Instrument:125 Bias/V:54 Laser/uA:68 Sample:100 "
     "Note:140 Mark:140 File:400",
     margin, tableTop, innerWidth - 2 * margin, tableHeight, idScansTable},
    {Button, "Show map", margin, buttonsTop, 90, height + 2, idScansShow},
    {Button, "Next plane", 105, buttonsTop, 90, height + 2, idScansPlane},
    {Button, "Use its settings", 200, buttonsTop, 120, height + 2, idScansUse},
    {Button, "Show in folder", 325, buttonsTop, 110, height + 2, idScansFolder},
    {Label, "Mark, with a word", 470, buttonsTop, 106, height + 2},
    {Edit, "", 580, buttonsTop + 1, 250, height, idScansWord},
    {Button, "Good", 836, buttonsTop, 70, height + 2, idScansGood},
    {Button, "Bad", 911, buttonsTop, 70, height + 2, idScansBad},
    {Button, "No mark", 986, buttonsTop, 80, height + 2, idScansNoMark},
};

} // namespace

void openScansWindow() {
    if (state.window) {
        raiseToolWindow(state.window);
    } else {
        state.window = createToolWindow(L"Scans", 40, std::data(controls),
                                        static_cast<int>(std::size(controls)), state.edits,
                                        outerWidth, outerHeight);
        if (!state.window) return;
        state.sought.clear();
    }
    listAnew();
}

bool isScansWindow(WindowHandle window) {
    return window && window == state.window;
}

void onScansCommand(int id) {
    resetIdle();
    if (id == idScansFilter) seek();
    if (id == idScansList && !isRefused()) listAnew();
    if (id == idScansShow) showMap();
    if (id == idScansPlane) showNextPlane();
    if (id == idScansUse) useSettings();
    if (id == idScansFolder) showFolder();
    if (id == idScansGood) mark(ScanVerdict::Mark::Good);
    if (id == idScansBad) mark(ScanVerdict::Mark::Bad);
    if (id == idScansNoMark) mark(ScanVerdict::Mark::None);
}

void onScansSelection() {
    const ScanRow* row = selectedRow();
    if (!row) return;
    if (row->path != state.selected) setWindowText(state.edits[1], row->verdict.word.c_str());
    state.selected = row->path;
}

void onScansHeading(int column) {
    resetIdle();
    const auto by = static_cast<ScanColumn>(column);
    if (by == ScanColumn::Picture) return;
    state.descending = by == state.by ? !state.descending : by == ScanColumn::Time;
    state.by = by;
    showRows();
}

void onScansRowOpened() {
    resetIdle();
    showMap();
}

std::string scansCell(int row, int column) {
    const ScanRow* of = rowAt(row);
    return of ? cellOf(*of, static_cast<ScanColumn>(column)) : std::string();
}

std::vector<uint32_t> scansPicture(int row) {
    const ScanRow* of = rowAt(row);
    if (!of || !of->isRead || !of->fault.empty()) return {};
    std::vector<uint32_t> pixels(of->picture.size(), 0xC8C8C8);
    for (size_t i = 0; i < pixels.size(); ++i) {
        const uint8_t level = of->picture[i];
        if (level != noLevel) pixels[i] = pixelOf(colourOf(level * 1023 / (noLevel - 1)));
    }
    return pixels;
}

void scansTick() {
    if (processUnderWay() || stageIsMoving()) return;
    const bool wasListed = state.index.isListed();
    const bool goesOn = state.index.goOn(partMs);
    if (!goesOn) stopTimer(Timer::Scans);
    if (!state.window) return;
    if (goesOn && (wasListed || !state.index.isListed())) return showCount();
    showRows();
}

void forgetScansWindow() {
    state.window = nullptr;
    state.edits[0] = state.edits[1] = nullptr;
    if (!processUnderWay()) state.index.keep();
}
