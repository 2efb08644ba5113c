// Puts a list together, row by row, and starts it.
#include "ui/list_window.h"

#include "actions/measurements.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "lists/list_record.h"
#include "lists/list_run.h"
#include "mapping/occasion.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_plan.h"
#include "motion/stage.h"
#include "motion/stage_connection.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "platform/widen.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/set_up.h"
#include "spectroscopy/sweep_record.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

using enum ToolControl::Kind;

constexpr int fieldCount = 14, fieldsAcross = 7;
constexpr int margin = 10, height = 22, fieldWidth = 100;
constexpr int tableTop = 66, tableHeight = 240;
constexpr int buttonsTop = tableTop + tableHeight + 8;
constexpr int fieldsTop = buttonsTop + 34;
constexpr int seriesTop = fieldsTop + 2 * 46;
constexpr int bottomTop = seriesTop + 34;
constexpr int endTop = bottomTop + 30;
constexpr int howTop = endTop + 30;
constexpr int innerWidth = 2 * margin + fieldsAcross * (fieldWidth + 6) + 180;
constexpr int outerWidth = innerWidth + 6, outerHeight = howTop + 36 + margin + 29;

enum Edits : size_t {
    editName,
    editSample,
    editNote,
    editFields,
    editSeriesName = editFields + fieldCount,
    editFrom,
    editTo,
    editSteps,
    editEndProgram,
    editCount
};

struct {
    WindowHandle window = nullptr;
    WindowHandle edits[editCount] = {};
    ScanList list;
    std::string onDisk;            // the text of its file
    std::string shown[fieldCount]; // what the fields held before anything was typed
    int selected = -1;
    bool fills = false; // the table; what it selects then is no wish
} state;

std::string text(size_t edit) {
    return windowText(state.edits[edit], 200);
}

void setText(size_t edit, const std::string& to) {
    setWindowText(state.edits[edit], to.c_str());
}

void tell(const std::string& words) {
    if (processUnderWay()) return showInformation(words.c_str()); // a box would hold a point up
    showMessageBox(windows.main, words.c_str(), "Scan list", BoxButtons::Ok);
}

ListRow* selectedRow() {
    const auto at = static_cast<size_t>(state.selected);
    return state.selected >= 0 && at < state.list.rows.size() ? &state.list.rows[at] : nullptr;
}

std::string shortText(double value) {
    return formatted("%.7g", std::fabs(value) < 1e-9 ? 0.0 : value); // of single numbers, too
}

// The fields of a kind: its numbers, and Z at the end, which is none of them.
std::vector<const ListNumber*> fieldsOf(ListKind kind) {
    std::vector<const ListNumber*> fields;
    for (const ListNumber& number : listNumbers())
        if (number.isOf(kind)) fields.push_back(&number);
    fields.push_back(nullptr);
    return fields;
}

std::string labelOf(const ListNumber* field) {
    if (!field) return "Z (um), or empty";
    static constexpr std::pair<const char*, const char*> labels[] = {{"x", "X (um)"},
                                                                     {"y", "Y (um)"},
                                                                     {"columns", "Columns"},
                                                                     {"rows", "Rows"},
                                                                     {"step", "Step (um)"},
                                                                     {"laser", "Laser (uA)"},
                                                                     {"bias", "Bias (V)"},
                                                                     {"limit", "Limit (A)"},
                                                                     {"channel", "Channel 0..3"},
                                                                     {"repeats", "Repeats"},
                                                                     {"every", "Every (min)"},
                                                                     {"range", "Range (+/- V)"},
                                                                     {"points", "Points/quarter"},
                                                                     {"on", "On (s)"},
                                                                     {"off", "Off (s)"},
                                                                     {"cycles", "Light cycles"}};
    for (const auto& [name, label] : labels)
        if (name == std::string(field->name)) return label;
    return field->name;
}

// What the controllers count where the window, as the rest of the program, says 0 um.
double zeroOf(const ListNumber* field) {
    if (!field) return ofController(stageZ, 0.0);
    if (field->value == &ListRow::xUm) return ofController(stageX, 0.0);
    return field->value == &ListRow::yUm ? ofController(stageY, 0.0) : 0.0;
}

// Of the selected row into the edits.
void showFields() {
    const ListRow* row = selectedRow();
    const std::vector<const ListNumber*> fields =
        row ? fieldsOf(row->kind) : std::vector<const ListNumber*>();
    for (size_t i = 0; i < fieldCount; ++i) {
        const bool used = i < fields.size();
        const auto id = static_cast<int>(i);
        showToolControl(state.window, idListLabel + id, used);
        showToolControl(state.window, idListEdit + id, used);
        if (!used) continue;
        setToolText(state.window, idListLabel + id, labelOf(fields[i]).c_str());
        const bool isEmpty = !fields[i] && !row->zUm;
        const double value = fields[i] ? row->*fields[i]->value : row->zUm.value_or(0.0);
        state.shown[i] = isEmpty ? "" : shortText(value - zeroOf(fields[i]));
        setText(editFields + i, state.shown[i]);
    }
}

// Of the selected row, which the table has no room for: why it failed, say.
void showHow() {
    const auto row = static_cast<size_t>(state.selected);
    const std::string how = selectedRow() ? listProgress.howOf(row) : "";
    const std::string words = formatted("Row %d: ", state.selected + 1) + how;
    setToolText(state.window, idListHow, how.empty() ? "" : words.c_str());
}

void fillTable() {
    state.fills = true;
    fillToolTable(state.window, idListTable, static_cast<int>(state.list.rows.size()),
                  state.selected);
    state.fills = false;
    showHow();
}

void showRows(int selected) {
    state.selected = std::min(selected, static_cast<int>(state.list.rows.size()) - 1);
    fillTable();
    showFields();
    onPaint(); // no frame may come by itself
}

void showList() {
    setText(editName, state.list.name);
    setText(editSample, state.list.sample);
    setText(editNote, state.list.note);
    checkInTool(state.window, idListGoesOn, state.list.goesOnAfterFailure);
    checkInTool(state.window, idListKeepsBias, state.list.keepsBiasInAPause);
    checkInTool(state.window, idListFollowsDrift, state.list.followsDrift);
    showRows(state.list.rows.empty() ? -1 : 0);
}

// False, and said, when the name is none of a file.
bool takeHead() {
    const std::string name = text(editName);
    if (name.empty() || name.find_first_of("\\/:*?\"<>|") != std::string::npos) {
        tell("The list needs a name that a file can have");
        return false;
    }
    state.list.name = name;
    state.list.sample = text(editSample);
    state.list.note = text(editNote);
    state.list.goesOnAfterFailure = isCheckedInTool(state.window, idListGoesOn);
    state.list.keepsBiasInAPause = isCheckedInTool(state.window, idListKeepsBias);
    const bool kept = keepOccasion(state.list.sample, state.list.note);
    const bool programKept = keepProgramAtEnd(text(editEndProgram));
    if (!kept || !programKept) tell("Options.ini could not be written");
    state.list.followsDrift = isCheckedInTool(state.window, idListFollowsDrift);
    return true;
}

// What was typed, into the selected row; says the first field that cannot be taken, and takes none
// then.
bool takeFields() {
    ListRow* row = selectedRow();
    if (!row) return true;
    ListRow changed = *row;
    const std::vector<const ListNumber*> fields = fieldsOf(row->kind);
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::string typed = text(editFields + i);
        if (typed == state.shown[i]) continue;
        std::optional<double> number = exactNumber(typed);
        if (number) *number += zeroOf(fields[i]);
        if (!number && !(typed.empty() && !fields[i])) {
            tell(formatted("Row %d, ", state.selected + 1) + labelOf(fields[i]) + ": \"" + typed +
                 "\" is no number");
            return false;
        }
        if (fields[i])
            changed.*fields[i]->value = *number;
        else
            changed.zUm = number;
    }
    if (const std::string fault = faultIn(changed); !fault.empty()) {
        tell(fault);
        return false;
    }
    *row = changed;
    return true;
}

bool isUnsaved() {
    return !state.list.rows.empty() && textOf(state.list) != state.onDisk;
}

bool writeList() {
    if (!writeScanList(state.list)) return false;
    state.onDisk = textOf(state.list);
    return true;
}

void insertRow(const ListRow& row) {
    if (state.list.rows.size() == mostListRows) return tell("A list has at most 10000 rows");
    if (state.list.rows.empty()) state.list.setUpInForce = setUpWords(setUp);
    const int at = state.selected + 1;
    state.list.rows.insert(state.list.rows.begin() + at, row);
    showRows(at);
}

// With the program's present settings, where the stage stands.
ListRow presentRow(ListKind kind) {
    ListRow row;
    row.kind = kind;
    row.xUm = ofController(stageX, stageX.positionUm);
    row.yUm = ofController(stageY, stageY.positionUm);
    row.laserUa = laserLink.laserLevel * setUp.laserUaPerVolt;
    row.biasVolts = static_cast<double>(instrumentLink.biasVoltage);
    row.limitAmperes = static_cast<double>(instrumentLink.currentLimit);
    row.channel = scanSettings.options.mainChannel;
    row.stepUm = scanArea.scanStep;
    row.rangeVolts = static_cast<double>(sweepRecord.voltageRange);
    row.quarterPoints = sweepRecord.pointsPerQuarter;
    row.onSeconds = static_cast<double>(sweepRecord.onTime);
    row.offSeconds = static_cast<double>(sweepRecord.offTime);
    row.lightCycles = sweepRecord.repeatCount;
    return row;
}

void addArea() {
    const ScanArea area = presentArea();
    if (area.totalPoints < 2) return tell("Draw a scan area first");
    if (const std::string why = area.part ? whyLost(*area.part) : ""; !why.empty())
        return tell("The area's place: " + why);
    ListRow row = presentRow(ListKind::Map);
    row.xUm += area.offsetXUm;
    row.yUm += area.offsetYUm;
    row.columns = area.cols;
    row.rows = area.rows;
    insertRow(row);
}

void removeRow() {
    if (!selectedRow()) return;
    state.list.rows.erase(state.list.rows.begin() + state.selected);
    showRows(state.selected);
}

void moveRow(int by) {
    const int to = state.selected + by;
    if (!selectedRow() || to < 0 || to >= static_cast<int>(state.list.rows.size())) return;
    std::swap(state.list.rows[static_cast<size_t>(state.selected)],
              state.list.rows[static_cast<size_t>(to)]);
    showRows(to);
}

void makeSeries() {
    const ListRow* row = selectedRow();
    if (!row) return tell("Select the row that the series is made of");
    RowSeries series;
    const std::string name = text(editSeriesName);
    for (const ListNumber* field : fieldsOf(row->kind))
        if (field && name == field->name) series.number = field;
    if (!series.number && name != "z")
        return tell("\"" + name + "\" is no field of the row: laser, bias, step, z, x, y ...");
    const auto from = exactNumber(text(editFrom)), to = exactNumber(text(editTo)),
               steps = exactNumber(text(editSteps));
    if (!from || !to || !steps || *steps < 2 || *steps > 1000)
        return tell("A series goes from a number to a number in 2 to 1000 steps");
    series.from = *from;
    series.to = *to;
    series.steps = static_cast<int32_t>(*steps);
    series.inRatios = isCheckedInTool(state.window, idListLogarithmic);
    series.andBack = isCheckedInTool(state.window, idListAndBack);
    std::string fault;
    const std::vector<ListRow> rows = seriesOf(*row, series, fault);
    if (!fault.empty()) return tell(fault);
    if (state.list.rows.size() + rows.size() > mostListRows)
        return tell("A list has at most 10000 rows");
    const auto at = state.list.rows.begin() + state.selected;
    state.list.rows.insert(state.list.rows.erase(at), rows.begin(), rows.end());
    showRows(state.selected);
}

// Rows that nobody has saved, before others take their place or the program ends.
void keepUnsaved() {
    if (!isUnsaved()) return;
    ScanList list = state.list;
    list.name += " (unsaved)";
    const std::string file = "KST_Data\\Scan lists\\" + list.name + ".ini";
    const bool written = writeScanList(list);
    logEvent(written ? "List: kept as " + file : "List: its rows are lost, not written: " + file);
}

void openList() {
    const std::string name = text(editName);
    std::string fault;
    const std::optional<ScanList> list = readScanList(name, fault);
    if (!list) return tell("KST_Data\\Scan lists\\" + name + ".ini: " + fault);
    if (isUnsaved() &&
        showMessageBox(windows.main,
                       "The rows that are shown have not been saved. Open the other list all the "
                       "same?",
                       "Scan list", BoxButtons::YesNo) != BoxAnswer::Yes)
        return;
    if (processUnderWay()) return refuseForProcess(); // since the question
    state.list = *list;
    state.onDisk = textOf(state.list);
    showList();
}

void saveList() {
    if (!takeHead() || !takeFields()) return;
    showRows(state.selected);
    if (!writeList()) return tell("The list could not be written");
    showInformation(("Saved: KST_Data\\Scan lists\\" + state.list.name + ".ini").c_str());
}

void startList() {
    if (stageIsMoving()) return showInformation("Not while the stage moves");
    if (processUnderWay()) return refuseForProcess();
    if (!takeHead() || !takeFields()) return;
    const bool any = std::any_of(state.list.rows.begin(), state.list.rows.end(),
                                 [](const ListRow& row) { return row.on; });
    if (!any) return tell("No row of the list is switched on");
    if (const std::string other = otherSetUpOf(state.list); !other.empty()) {
        const std::string question = "The rows were made under another set-up: " + other +
                                     ". Are their places and heights right for this one?";
        if (showMessageBox(windows.main, question.c_str(), "Scan list", BoxButtons::YesNo) !=
            BoxAnswer::Yes)
            return;
        if (stageIsBusy()) return;
        state.list.setUpInForce = setUpWords(setUp);
    }
    if (const std::string left = listThatWasCutOff(); !left.empty()) {
        if (showMessageBox(windows.main,
                           ("Do you want to give up what was cut off? There is " + left +
                            "; it cannot go on when this one begins.")
                               .c_str(),
                           "Scan list", BoxButtons::YesNo) != BoxAnswer::Yes)
            return;
        if (stageIsBusy()) return;
    }
    if (!writeList()) return tell("The list could not be written");
    showRows(state.selected);
    startListRun([list = state.list] { return startScanList(list); });
    if (state.window) showRows(state.selected);
}

// "2", "1, 2", "1 ... 20": of all rows that begin where this one does; empty of one that is not the
// first of them.
std::string numbersAt(size_t row) {
    std::vector<size_t> all;
    for (size_t i = 0; i < state.list.rows.size(); ++i)
        if (state.list.rows[i].xUm == state.list.rows[row].xUm &&
            state.list.rows[i].yUm == state.list.rows[row].yUm)
            all.push_back(i + 1);
    if (all.front() != row + 1) return {};
    std::string text = std::to_string(all.front());
    if (all.size() > 3) return text + " ... " + std::to_string(all.back());
    for (size_t i = 1; i < all.size(); ++i) text += ", " + std::to_string(all[i]);
    return text;
}

// Numbered, where they lie now.
void drawRows(ContextHandle picture) {
    constexpr size_t mostDrawn = 200;
    for (size_t i = 0; i < std::min(state.list.rows.size(), mostDrawn); ++i) {
        const ListRow& row = state.list.rows[i];
        const bool map = row.kind == ListKind::Map;
        ScanArea area{.scanStep = row.stepUm, .placed = true};
        area.offsetXUm = row.xUm - ofController(stageX, stageX.positionUm);
        area.offsetYUm = row.yUm - ofController(stageY, stageY.positionUm);
        computeScanArea(area);
        const double right = map ? row.columns - 1 : 0, top = map ? row.rows - 1 : 0;
        const PixelPoint corners[] = {
            pointOnPresentView(area, 0, 0), pointOnPresentView(area, right, 0),
            pointOnPresentView(area, right, top), pointOnPresentView(area, 0, top),
            pointOnPresentView(area, 0, 0)};
        const Colour colour = static_cast<int>(i) == state.selected ? markRed : markGreen;
        if (map) drawLines(picture, corners, static_cast<int>(std::size(corners)), colour);
        if (!map)
            drawEllipse(picture, corners[0].x - 3, corners[0].y - 3, corners[0].x + 3,
                        corners[0].y + 3, colour);
        drawText(picture, corners[3].x + 2, corners[3].y + 1, numbersAt(i).c_str(), colour, true);
    }
}

std::vector<ToolControl> controls() {
    std::vector<ToolControl> all = {
        {Label, "List", margin, 8, 50, height},
        {Edit, "", 60, 8, 200, height, idListName},
        {Button, "Open", 266, 8, 60, height, idListOpen},
        {Button, "Save", 330, 8, 60, height, idListSave},
        {Label, "Sample", margin, 36, 50, height},
        {Edit, "", 60, 36, 200, height, idListSample},
        {Label, "Note", 270, 36, 40, height},
        {Edit, "", 312, 36, innerWidth - 312 - margin, height, idListNote},
        {Table,
         "No.:40 On:36 What:50 X:70 Y:70 Z:65 Size:80 Step:50 Laser:55 Bias:60 Repeats:60 "
         "Every:60 How:205",
         margin, tableTop, innerWidth - 2 * margin, tableHeight, idListTable}};
    int x = margin;
    const auto button = [&](const char* name, int id, int width) {
        all.push_back({Button, name, x, buttonsTop, width, height + 2, id});
        x += width + 5;
    };
    button("Add area", idListAddArea, 90);
    button("Add I-V here", idListAddSweep, 100);
    button("Add series here", idListAddSeries, 110);
    button("Copy", idListCopy, 70);
    button("Remove", idListRemove, 70);
    button("Up", idListUp, 60);
    button("Down", idListDown, 60);
    button("On/off", idListOnOff, 70);
    for (int i = 0; i < fieldCount; ++i) {
        const int left = margin + i % fieldsAcross * (fieldWidth + 6);
        const int top = fieldsTop + i / fieldsAcross * 46;
        all.push_back({Label, "", left, top, fieldWidth, 18, idListLabel + i});
        all.push_back({Edit, "", left, top + 19, fieldWidth, height, idListEdit + i});
    }
    const int right = innerWidth - margin - 64;
    all.push_back({Button, "Set", right, fieldsTop + 19, 64, height, idListTake});
    all.push_back({Label, "Series of", margin, seriesTop, 56, height});
    all.push_back({Edit, "laser", 68, seriesTop, 70, height});
    all.push_back({Label, "from", 146, seriesTop, 30, height});
    all.push_back({Edit, "", 178, seriesTop, 60, height});
    all.push_back({Label, "to", 246, seriesTop, 18, height});
    all.push_back({Edit, "", 266, seriesTop, 60, height});
    all.push_back({Label, "in", 334, seriesTop, 16, height});
    all.push_back({Edit, "5", 352, seriesTop, 40, height});
    all.push_back({Label, "steps", 396, seriesTop, 36, height});
    all.push_back({Check, "logarithmic", 440, seriesTop, 95, height, idListLogarithmic});
    all.push_back({Check, "and back", 540, seriesTop, 85, height, idListAndBack});
    all.push_back({Button, "Make rows", 632, seriesTop, 90, height + 2, idListMakeSeries});
    all.push_back({Check, "Go on with the next row after one that failed", margin, bottomTop, 320,
                   height, idListGoesOn});
    all.push_back({Check, "Bias stays in a pause", 340, bottomTop, 170, height, idListKeepsBias});
    all.push_back({Label, "At the end run", margin, endTop, 90, height});
    all.push_back({Edit, "", 104, endTop, 406, height, idListEndProgram});
    all.push_back(
        {Label, "a program, with the list's record; empty: none", 518, endTop, 280, height});
    all.push_back({Check, "Follow drift", 520, bottomTop, 110, height, idListFollowsDrift});
    all.push_back({Button, "Start", right - 40, bottomTop, 104, height + 2, idListStart});
    all.push_back({Label, "", margin, howTop, innerWidth - 2 * margin, 36, idListHow});
    return all;
}

} // namespace

void openListWindow() {
    if (state.window) return raiseToolWindow(state.window);
    const std::vector<ToolControl> all = controls();
    state.window = createToolWindow(L"Scan list", 60, all.data(), static_cast<int>(all.size()),
                                    state.edits, outerWidth, outerHeight);
    if (!state.window) return;
    display.overlay = drawRows;
    listProgress.changed = [] {
        if (state.window) fillTable();
    };
    if (state.list.rows.empty()) {
        state.list.sample = occasion.sample;
        state.list.note = occasion.note;
    }
    showList();
    setText(editEndProgram, programAtEnd());
    setText(editSeriesName, "laser");
    setText(editSteps, "5");
}

bool isListWindow(WindowHandle window) {
    return window && window == state.window;
}

void onListCommand(int id) {
    resetIdle();
    const bool changesList = id >= idListAddArea && id <= idListOpen;
    if (changesList && processUnderWay()) return refuseForProcess();
    if (changesList && id != idListRemove && !takeFields()) return;
    if (id == idListAddArea) addArea();
    if (id == idListAddSweep) insertRow(presentRow(ListKind::IvCurve));
    if (id == idListAddSeries) insertRow(presentRow(ListKind::Series));
    if (id == idListCopy && selectedRow()) insertRow(ListRow(*selectedRow()));
    if (id == idListRemove) removeRow();
    if (id == idListUp) moveRow(-1);
    if (id == idListDown) moveRow(1);
    if (id == idListOnOff && selectedRow()) {
        selectedRow()->on = !selectedRow()->on;
        showRows(state.selected);
    }
    if (id == idListTake) showRows(state.selected);
    if (id == idListMakeSeries) makeSeries();
    if (id == idListOpen) openList();
    if (id == idListSave) saveList();
    if (id == idListStart) startList();
}

void onListSelection() {
    if (state.fills) return;
    const int selected = selectedInToolTable(state.window, idListTable);
    // What was typed is of the row that was selected before, unless a list runs.
    if (selected != state.selected && !processUnderWay()) takeFields();
    showRows(selected);
}

std::string listCell(int row, int column) {
    if (row < 0 || static_cast<size_t>(row) >= state.list.rows.size()) return {};
    const ListRow& of = state.list.rows[static_cast<size_t>(row)];
    const bool map = of.kind == ListKind::Map;
    switch (column) {
    case 0:
        return std::to_string(row + 1);
    case 1:
        return of.on ? "yes" : "no";
    case 2:
        return nameOf(of.kind);
    case 3:
        return formatted("%.1f", of.xUm - ofController(stageX, 0.0));
    case 4:
        return formatted("%.1f", of.yUm - ofController(stageY, 0.0));
    case 5:
        return of.zUm ? formatted("%.1f", *of.zUm - ofController(stageZ, 0.0)) : "";
    case 6:
        return map ? formatted("%.0f x %.0f", of.columns, of.rows) : "";
    case 7:
        return map ? formatted("%g", of.stepUm) : "";
    case 8:
        return of.kind == ListKind::IvCurve ? "" : formatted("%.4g", of.laserUa);
    case 9:
        return of.kind == ListKind::IvCurve ? formatted("+/- %.3g", of.rangeVolts)
                                            : formatted("%.4g", of.biasVolts);
    case 10:
        return formatted("%.0f", of.repeats);
    case 11:
        return of.everyMinutes > 0.0 ? formatted("%g min", of.everyMinutes) : "";
    default:
        return listProgress.howOf(static_cast<size_t>(row));
    }
}

void continueLastList() {
    std::string fault;
    const std::optional<ListPlace> left = unfinishedList(fault);
    if (!left)
        return showInformation(fault.empty() ? "No list was cut off"
                                             : ("The list that was cut off: " + fault).c_str());
    for (const StageAxis* axis : {&stageX, &stageY, &stageZ})
        if (axis->placeLost)
            return showInformation("Not continued: the stage has lost its place since");
    const std::string question =
        formatted("The list \"%s\" was cut off: %d of %d rows are measured. Go on?\n\nThe stage "
                  "goes to where it stood at the list's start, and the row that was cut goes on.",
                  left->list.name.c_str(), left->measured(), left->toMeasure());
    if (showMessageBox(windows.main, question.c_str(), "Scan list", BoxButtons::YesNo) !=
        BoxAnswer::Yes)
        return;
    if (stageIsBusy()) return;
    keepUnsaved();
    state.list = left->list;
    state.onDisk = textOf(state.list);
    openListWindow();
    if (state.window) showList();
    startListRun([&] { return continueScanList(*left); });
    if (state.window) showRows(state.selected);
}

void forgetListWindow() {
    keepUnsaved();
    state.window = nullptr;
    std::fill(std::begin(state.edits), std::end(state.edits), nullptr);
    display.overlay = nullptr;
    listProgress.changed = [] {};
}
