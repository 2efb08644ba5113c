// Opens the tool windows, starts their measurements and closes them.
#include "ui/tool_windows.h"

#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/sweep_record.h"
#include "spectroscopy/time_evolution.h"
#include "ui/commands.h"
#include "ui/continue_window.h"
#include "ui/list_window.h"
#include "ui/places_window.h"
#include "ui/profile_window.h"
#include "ui/scans_window.h"

#include <algorithm>
#include <iterator>

namespace {

using enum ToolControl::Kind;

constexpr ToolControl ivControls[] = {
    {Label, "Voltage Range (+/- V)", 30, 360, 150, 20},
    {Edit, "", 190, 360, 50, 20, idLabel},
    {Button, "Start", 250, 360, 40, 20, idSweepStart},
};

constexpr ToolControl timeEvolutionControls[] = {
    {Label, "Time interval (sec)", 30, 336, 150, 20},
    {Label, "On time", 30, 360, 55, 20},
    {Edit, "", 88, 360, 84, 20},
    {Label, "Off time", 184, 360, 55, 20},
    {Edit, "", 242, 360, 84, 20},
    {Label, "repeat", 338, 360, 45, 20},
    {Edit, "", 386, 360, 34, 20},
    {Button, "Start", 434, 360, 44, 20, idSeriesStart},
};

// Side by side, screen pixels.
constexpr int ivLeft = 100;
constexpr int timeEvolutionLeft = 620;

struct ToolState {
    WindowHandle window = nullptr;
    WindowHandle edits[3] = {};
    bool holdsLiveView = false; // switched it off, and has not let it go on yet
    bool wasLive = false;       // before it did
    bool measuring = false;
    bool closeWanted = false;
};

ToolState tools[2];

ToolState& stateOf(Tool tool) {
    return tools[static_cast<size_t>(tool)];
}

// A window that is no tool's has no state.
ToolState* stateOf(WindowHandle window) {
    const auto found = std::find_if(std::begin(tools), std::end(tools),
                                    [&](const ToolState& each) { return each.window == window; });
    return window && found != std::end(tools) ? found : nullptr;
}

void holdLiveView(ToolState& tool) {
    tool.wasLive = liveViewIsOn();
    for (const ToolState& other : tools)
        if (other.holdsLiveView) tool.wasLive |= other.wasLive;
    tool.holdsLiveView = true;
    switchLiveView(LiveView::Off);
}

void letLiveViewGoOn(ToolState& tool) {
    tool.holdsLiveView = false;
    switchLiveView(tool.wasLive ? LiveView::On : LiveView::Off);
}

bool hasSweepSource() {
    return selectedInstrument().canSweep;
}

bool canSweep() {
    if (hasSweepSource()) return true;
    showMessageBox(windows.main,
                   "Please change the current equipment as a sourcemter or parameter analyzer",
                   "Notice", BoxButtons::Ok);
    return false;
}

void fillEdits(const ToolState& tool) {
    const SweepRecord& record = sweepRecord;
    if (&tool == &stateOf(Tool::IvCurve))
        return setWindowText(tool.edits[0],
                             formatted("%.2f", static_cast<double>(record.voltageRange)).c_str());
    setWindowText(tool.edits[0], formatted("%.1f", static_cast<double>(record.onTime)).c_str());
    setWindowText(tool.edits[1], formatted("%.1f", static_cast<double>(record.offTime)).c_str());
    setWindowText(tool.edits[2], formatted("%d", record.repeatCount).c_str());
}

Outcome sweep() {
    measureIvCurve();
    saveIvCurve(false);
    return sweepRecord.outcome;
}

Outcome recordSeries() {
    if (measureTimeEvolution()) saveTimeEvolution(false);
    return sweepRecord.outcome;
}

void measure(ToolState& tool, const char* name, Outcome (*work)(), void (*saveQuietly)()) {
    if (stageIsBusy()) return; // a process has its own edits and plot
    sweepRecord.plotWindow = tool.window;
    sweepRecord.valueEdit = tool.edits[0];
    sweepRecord.offTimeEdit = tool.edits[1];
    sweepRecord.repeatEdit = tool.edits[2];
    if (!tool.holdsLiveView || liveViewIsOn()) tool.wasLive = liveViewIsOn();
    tool.measuring = true;
    runProcess(name, work, saveQuietly);
    tool.measuring = false;
    if (!windows.main) return;
    letLiveViewGoOn(tool);
    if (tool.closeWanted) destroyToolWindow(tool.window);
}

} // namespace

void openTool(Tool tool) {
    ToolState& state = stateOf(tool);
    if (state.window) return raiseToolWindow(state.window);
    const bool iv = tool == Tool::IvCurve;
    if (iv && !hasSweepSource() && processUnderWay())
        return refuseForProcess(); // a box would hold it up
    if (iv && !canSweep()) return;
    if (!processUnderWay()) holdLiveView(state);
    state.window =
        iv ? createToolWindow(L"IV Curve", ivLeft, ivControls, std::size(ivControls), state.edits)
           : createToolWindow(sweepRecord.plotTitle, timeEvolutionLeft, timeEvolutionControls,
                              std::size(timeEvolutionControls), state.edits);
    if (state.window)
        fillEdits(state);
    else if (state.holdsLiveView)
        letLiveViewGoOn(state);
}

void onToolCommand(WindowHandle window, int id) {
    if (isContinueWindow(window)) return onContinueCommand(id);
    if (isListWindow(window)) return onListCommand(id);
    if (isPlacesWindow(window)) return onPlacesCommand(id);
    if (isScansWindow(window)) return onScansCommand(id);
    if (isProfileWindow(window)) return onProfileCommand(id);
    ToolState* tool = stateOf(window);
    if (!tool) return;
    if (id == idSweepStart && !processUnderWay() && canSweep())
        measure(*tool, "I-V curve", sweep, [] { saveIvCurve(true); });
    if (id == idSeriesStart)
        measure(*tool, "Time evolution", recordSeries, [] { saveTimeEvolution(true); });
}

void onToolClose(WindowHandle window) {
    ToolState* tool = stateOf(window);
    if (tool && tool->measuring) {
        stopAsClosed();
        tool->closeWanted = true;
        return;
    }
    // Opened and closed without measuring.
    if (tool && tool->holdsLiveView && !liveViewIsOn() && !processUnderWay())
        letLiveViewGoOn(*tool);
    destroyToolWindow(window);
}

void onToolKey(WindowHandle window, uintptr_t virtualKey) {
    if (toolTakesKeys(window)) onKeyDown(virtualKey);
}

bool toolTakesKeys(WindowHandle window) {
    return isContinueWindow(window);
}

std::string onToolTable(WindowHandle window, int row, int column) {
    if (isPlacesWindow(window)) return placesCell(row, column);
    if (isScansWindow(window)) return scansCell(row, column);
    return isListWindow(window) ? listCell(row, column) : std::string();
}

void onToolSelection(WindowHandle window) {
    if (isListWindow(window)) onListSelection();
    if (isPlacesWindow(window)) onPlacesSelection();
    if (isScansWindow(window)) onScansSelection();
}

std::vector<uint32_t> onToolPicture(WindowHandle window, int row) {
    return isScansWindow(window) ? scansPicture(row) : std::vector<uint32_t>();
}

void onToolHeading(WindowHandle window, int column) {
    if (isScansWindow(window)) onScansHeading(column);
}

void onToolRowOpened(WindowHandle window) {
    if (isScansWindow(window)) onScansRowOpened();
}

bool toolClosesByEscape(WindowHandle window) {
    return isScansWindow(window);
}

void onToolPaint(WindowHandle window) {
    if (isContinueWindow(window)) paintContinueWindow();
    if (isPlacesWindow(window)) paintPlacesWindow();
    if (isProfileWindow(window)) paintProfile();
}

bool isToolWindow(WindowHandle window) {
    return stateOf(window) != nullptr || isContinueWindow(window) || isListWindow(window) ||
           isPlacesWindow(window) || isScansWindow(window) || isProfileWindow(window);
}

void forgetTool(WindowHandle window) {
    if (isContinueWindow(window)) forgetContinueWindow();
    if (isListWindow(window)) forgetListWindow();
    if (isPlacesWindow(window)) forgetPlacesWindow();
    if (isScansWindow(window)) forgetScansWindow();
    if (isProfileWindow(window)) forgetProfile();
    if (ToolState* tool = stateOf(window)) *tool = {};
}
