// Lays the set-up's fields out, shows and takes them.
#include "ui/set_up_dialog.h"

#include "camera/live_view.h"
#include "screen/control_ids.h"
#include "session/message_box.h"
#include "session/process.h"
#include "ui/set_up_change.h"
#include "ui/set_up_draft.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

using enum SheetControl::Kind;

// Dialog units.
constexpr int margin = 7, pageWidth = 420;
constexpr int rowHeight = 15, editHeight = 12, textHeight = 8, textDown = 2;
constexpr int columnWidth = (pageWidth - 3 * margin) / 2;
constexpr int groupTop = 11, groupBottom = 3, groupInset = 6;
constexpr int axisLabelWidth = 130, axisWidth = 82;

// Where a field stands: the page's group whose word its name holds, the first that fits.
struct Grouping {
    SetUpPage page;
    const char *word, *title;
};
constexpr Grouping groupings[] = {
    {SetUpPage::Optics, " X per ", "From picture to stage"},
    {SetUpPage::Optics, " Y per ", "From picture to stage"},
    {SetUpPage::Optics, " spot ", "Laser spot"},
    {SetUpPage::Optics, "", "Objective"},
    {SetUpPage::Stage, "", "Focus"},
    {SetUpPage::LaserAndAmplifier, "laser board", "Laser board"},
    {SetUpPage::LaserAndAmplifier, "analog input", "Laser board"},
    {SetUpPage::LaserAndAmplifier, "laser", "Laser and lamp"},
    {SetUpPage::LaserAndAmplifier, "lamp", "Laser and lamp"},
    {SetUpPage::LaserAndAmplifier, "amplifier", "Amplifiers"},
    {SetUpPage::LaserAndAmplifier, "", "Instruments"},
    {SetUpPage::Camera, "", "Camera"},
};

struct PageTitle {
    SetUpPage page;
    int editWidth;
    const char *title, *note;
};
constexpr PageTitle pageTitles[] = {
    {SetUpPage::Optics, 90, "Optics",
     "The objective in use is chosen in the menu \"Camera\", \"Objective\"."},
    {SetUpPage::Stage, 70, "Stage",
     "Lowest and highest places count from the controller's own zero: neither \"Set Zero\" nor a "
     "restart moves them. Empty: no limit."},
    {SetUpPage::LaserAndAmplifier, 64, "Laser and amplifier",
     "An amplifier without V/A is none; \"Amplifier (V/A)\" is the one before a lock-in "
     "amplifier's "
     "voltage input. Power: level in uA and power in uW, as 0:0 4:11.5 16:46."},
    {SetUpPage::Camera, 64, "Camera", "Without a serial number the first camera that is found."},
};

// A field and the id of its control.
struct Placed {
    SetUpField field;
    int id;
};

using Value = SetUpField::Value;

// With all fields that there can be.
const SetUp& fullSetUp() {
    static const SetUp full = [] {
        SetUp set;
        set.objectives.resize(mostObjectives);
        return set;
    }();
    return full;
}

bool isChoice(const SetUpField& field) {
    SetUp some = fullSetUp();
    return std::holds_alternative<bool*>(field.of(some));
}

bool isCheck(const SetUpField& field) {
    return isChoice(field) && std::string("yes") == field.choices.first;
}
bool isLong(const SetUpField& field) {
    SetUp some = fullSetUp();
    const Value value = field.of(some);
    return std::holds_alternative<std::string*>(value) ||
           std::holds_alternative<PowerTable*>(value);
}

// "lowest X (um)": its axis, and "lowest (um)", which it shares with those of the others.
std::optional<std::pair<size_t, std::string>> axisIn(const std::string& name) {
    const std::string padded = " " + name + " ";
    for (size_t axis = 0; axis < 3; ++axis) {
        const size_t at = padded.find(std::string(" ") + "XYZ"[axis] + " ");
        if (at == std::string::npos) continue;
        std::string rest = name;
        rest.erase(at, 2);
        return std::pair(axis, rest);
    }
    return {};
}

std::string labelOf(const SetUpField& field) {
    std::string label = field.name;
    if (field.objective > 0) {
        label.erase(0, std::string("objective 1 ").size());
        if (label.empty()) label = "name";
    }
    const bool unit = label.starts_with("um ");
    if (!unit && label[0] >= 'a' && label[0] <= 'z') label[0] = static_cast<char>(label[0] - 32);
    return label;
}

const char* groupOf(const SetUpField& field) {
    for (const Grouping& each : groupings)
        if (each.page == field.page && field.name.find(each.word) != std::string::npos)
            return each.title;
    return "";
}

class PageLayout {
public:
    PageLayout(SheetPage& page, int editWidth) : page(page), editWidth(editWidth) {}

    void add(SheetControl::Kind kind, const std::string& text, int x, int y, int width, int height,
             int id = 0) {
        page.controls.push_back({kind, text, x, y, width, height, id});
    }

    void addField(const Placed& placed, const std::string& label, int x, int y, int width) {
        if (isCheck(placed.field)) return add(Check, label, x, y + 1, width, 10, placed.id);
        if (isChoice(placed.field)) return add(List, "", x, y, width, 60, placed.id);
        add(Edit, "", x, y, width, editHeight, placed.id);
    }

    // The row of a field in a group; returns how many rows it takes.
    int addRow(const Placed& placed, int x, int y, int width) {
        const std::string label = labelOf(placed.field);
        if (isCheck(placed.field)) return addField(placed, label, x, y, width), 1;
        const bool beside = !isLong(placed.field);
        add(Label, label, x, y + textDown, width - (beside ? editWidth : 0), textHeight);
        if (beside) return addField(placed, "", x + width - editWidth, y, editWidth), 1;
        addField(placed, "", x, y + rowHeight - 3, width);
        return 2;
    }

    // X, Y and Z side by side.
    int addAxes(const std::vector<Placed>& fields, int top) {
        std::vector<std::string> rows;
        for (const Placed& each : fields)
            if (const auto axis = axisIn(each.field.name);
                std::find(rows.begin(), rows.end(), axis->second) == rows.end())
                rows.push_back(axis->second);
        const int x = margin + groupInset, height = static_cast<int>(rows.size()) * rowHeight;
        add(Group, "Axes", margin, top, pageWidth - 2 * margin,
            groupTop + rowHeight + height + groupBottom);
        int y = top + groupTop;
        for (int axis = 0; axis < 3; ++axis)
            add(Label, std::string(1, "XYZ"[axis]), x + axisLabelWidth + axis * (axisWidth + 6),
                y + textDown, axisWidth, textHeight);
        for (const std::string& row : rows) {
            y += rowHeight;
            bool labelled = false;
            for (const Placed& each : fields) {
                const auto axis = axisIn(each.field.name);
                if (axis->second != row) continue;
                SetUpField named = each.field;
                named.name = row;
                if (!labelled)
                    add(Label, labelOf(named), x, y + textDown, axisLabelWidth, textHeight);
                labelled = true;
                addField(each, "",
                         x + axisLabelWidth + static_cast<int>(axis->first) * (axisWidth + 6), y,
                         axisWidth);
            }
        }
        return top + groupTop + rowHeight + height + groupBottom + 4;
    }

    // In two columns, each group whole; returns where they end.
    int addGroups(const std::vector<Placed>& fields, int top) {
        std::vector<std::pair<std::string, std::vector<Placed>>> groups;
        int all = 0;
        for (const Placed& each : fields) {
            const std::string title = groupOf(each.field);
            auto group = std::find_if(groups.begin(), groups.end(),
                                      [&](const auto& known) { return known.first == title; });
            if (group == groups.end()) group = groups.insert(group, {title, {}});
            group->second.push_back(each);
            all += isLong(each.field) ? 2 : 1;
        }
        int x = margin, y = top, rows = 0, end = top;
        for (const auto& [title, members] : groups) {
            if (x == margin && y > top && 2 * rows >= all) {
                x = margin + columnWidth + margin;
                y = top;
            }
            const size_t at = page.controls.size(); // the frame comes before what is in it
            int inGroup = 0;
            for (const Placed& each : members)
                inGroup += addRow(each, x + groupInset, y + groupTop + inGroup * rowHeight,
                                  columnWidth - 2 * groupInset);
            const int height = groupTop + inGroup * rowHeight + groupBottom;
            page.controls.insert(page.controls.begin() + static_cast<std::ptrdiff_t>(at),
                                 {Group, title, x, y, columnWidth, height, 0});
            rows += inGroup;
            y += height + 4;
            end = std::max(end, y);
        }
        return end;
    }

private:
    SheetPage& page;
    int editWidth;
};

// The list of the objectives and its buttons; returns where they end.
int addObjectiveList(PageLayout& layout) {
    constexpr int buttonWidth = 50, buttonHeight = 14, labelWidth = 44, listWidth = 200;
    int x = margin;
    layout.add(Label, "Objectives", x, margin + 3, labelWidth, textHeight);
    layout.add(List, "", x += labelWidth, margin + 1, listWidth, 120, idObjectiveList);
    layout.add(Button, "&Add", x += listWidth + 6, margin, buttonWidth, buttonHeight,
               idAddObjective);
    layout.add(Button, "&Remove", x + buttonWidth + 4, margin, buttonWidth, buttonHeight,
               idRemoveObjective);
    return margin + buttonHeight + 5;
}

int addScaleNotes(PageLayout& layout, int top) {
    for (int line = 0; line < 2; ++line, top += textHeight + 3)
        layout.add(Label, "", margin, top, pageWidth - 2 * margin, textHeight, idScaleNote + line);
    return top;
}

std::vector<Placed> placedFields(int objective, const SetUp& set) {
    std::vector<Placed> placed;
    int id = objective > 0 ? idObjectiveField : idSetUpField;
    for (SetUpField& field : setUpFieldsOf(objective, set))
        placed.push_back({std::move(field), id++});
    return placed;
}

// --- What is open --------------------------------------------------------------------------------

struct OpenSheet {
    SetUpDraft draft{SetUp()};
    int objective = 1; // that is shown
    SetUpRefusal refusal;
    bool fills = false; // the texts change by the program
    bool asks = false;  // a notice is open
};
OpenSheet open;

constexpr int longestText = 4001;

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string typedIn(const Placed& placed) {
    const SetUpField& field = placed.field;
    if (isCheck(field))
        return isCheckedInDialog(placed.id) ? field.choices.first : field.choices.second;
    if (isChoice(field))
        return selectedInDialogList(placed.id) == 0 ? field.choices.first : field.choices.second;
    return trimmed(dialogText(placed.id, longestText));
}

void show(const Placed& placed, const std::string& text) {
    if (isCheck(placed.field))
        checkInDialog(placed.id, text == placed.field.choices.first);
    else if (isChoice(placed.field))
        selectInDialogList(placed.id, text == placed.field.choices.first ? 0 : 1);
    else
        setDialogText(placed.id, text.c_str());
}

void readFields(int objective) {
    std::vector<std::string>& texts = open.draft.textsOf(objective);
    const std::vector<Placed> placed = placedFields(objective > 0 ? 1 : 0, SetUp());
    for (size_t i = 0; i < placed.size(); ++i) texts[i] = typedIn(placed[i]);
}

void readAll() {
    readFields(0);
    readFields(open.objective);
}

void showFields(int objective) {
    const std::vector<std::string>& texts = open.draft.textsOf(objective);
    const std::vector<Placed> placed = placedFields(objective > 0 ? 1 : 0, SetUp());
    for (size_t i = 0; i < placed.size(); ++i) show(placed[i], texts[i]);
}

void showObjectiveNames() {
    std::vector<std::string> names;
    for (int i = 1; i <= open.draft.objectives(); ++i) names.push_back(open.draft.nameOf(i));
    refillDialogList(idObjectiveList, names);
    selectInDialogList(idObjectiveList, open.objective - 1);
}

// What the four numbers that are typed mean.
void showScale() {
    SetUp typed;
    bool known = true;
    const std::vector<std::string>& texts = open.draft.textsOf(open.objective);
    const std::vector<SetUpField> fields = setUpFieldsOf(1, typed);
    for (size_t i = 0; i < fields.size(); ++i)
        if (fields[i].name.find(" per ") != std::string::npos)
            known = takeField(fields[i], typed, texts[i]) && known;
    const ScaleWords words = known ? scaleWords(typed.objective()) : ScaleWords();
    setDialogText(idScaleNote, words.scale.c_str());
    setDialogText(idScaleNote + 1, words.turn.c_str());
}

void showObjective(int objective) {
    open.fills = true;
    open.objective = objective;
    showObjectiveNames();
    showFields(objective);
    showScale();
    open.fills = false;
}

void showAll() {
    open.fills = true;
    showFields(0);
    open.fills = false;
    showObjective(open.objective);
}

void say(const std::string& words) {
    open.asks = true;
    showMessageBox(sheetWindow(), words.c_str(), "Set-up", BoxButtons::Ok);
    open.asks = false;
}

void opened() {
    for (const Placed& each : placedFields(0, SetUp()))
        if (isChoice(each.field) && !isCheck(each.field))
            refillDialogList(each.id, {each.field.choices.first, each.field.choices.second});
    showAll();
}

bool addObjective() {
    const std::string why = open.draft.addLike(open.objective);
    if (!why.empty()) return say(why), false;
    showObjective(open.draft.objectives());
    turnToInSheet(idObjectiveField); // its name
    return true;
}

bool removeObjective() {
    const std::string why = open.draft.remove(open.objective);
    if (!why.empty()) return say(why), false;
    showObjective(std::min(open.objective, open.draft.objectives()));
    return true;
}

bool onSheetCommand(int id) {
    if (open.fills || open.asks) return false;
    resetIdle();
    readAll();
    if (id == idObjectiveList) {
        if (selectedInDialogList(id) >= 0) showObjective(selectedInDialogList(id) + 1);
        return false;
    }
    if (id == idAddObjective) return addObjective();
    if (id == idRemoveObjective) return removeObjective();
    if (id == idObjectiveField) {
        open.fills = true;
        showObjectiveNames();
        open.fills = false;
    }
    if (id >= idObjectiveField && id < idSetUpField) showScale();
    return true;
}

bool apply() {
    open.refusal = {};
    readAll();
    // Begun from another window.
    if (stageIsMoving()) open.refusal.words = "Not while the stage moves";
    if (processUnderWay()) open.refusal.words = "Not while a measurement runs";
    if (!open.refusal.words.empty()) return false;
    SetUp changed = setUp;
    open.refusal = open.draft.takeInto(changed);
    if (!open.refusal.words.empty()) return false;
    takeSetUp(changed);
    return true;
}

int controlOf(const SetUpRefusal& refusal) {
    for (const Placed& each : placedFields(refusal.objective, fullSetUp()))
        if (each.field.name == refusal.field) return each.id;
    return 0;
}

void showRefusal() {
    const SetUpRefusal refusal = open.refusal;
    const int id = controlOf(refusal);
    if (refusal.objective > 0) showObjective(refusal.objective);
    if (id != 0) turnToInSheet(id);
    say(refusal.words);
    if (id != 0) turnToInSheet(id); // the notice had the focus
}

} // namespace

Sheet setUpSheet(const SetUp& set) {
    Sheet sheet{.caption = "Set-up", .pages = {}, .width = pageWidth, .height = 0};
    const std::vector<Placed> ofNone = placedFields(0, set), ofObjective = placedFields(1, set);
    for (const PageTitle& title : pageTitles) {
        SheetPage page{title.title, {}};
        PageLayout layout(page, title.editWidth);
        int y = margin;
        std::vector<Placed> axes, others;
        if (title.page == SetUpPage::Optics) {
            y = addObjectiveList(layout);
            others = ofObjective;
        }
        for (const Placed& each : ofNone) {
            if (each.field.page != title.page) continue;
            (axisIn(each.field.name) ? axes : others).push_back(each);
        }
        if (!axes.empty()) y = layout.addAxes(axes, y);
        y = layout.addGroups(others, y);
        if (title.page == SetUpPage::Optics) y = addScaleNotes(layout, y + 2) + 4;
        layout.add(Label, title.note, margin, y, pageWidth - 2 * margin, 2 * textHeight + 1);
        sheet.height = std::max(sheet.height, y + 2 * textHeight + margin);
        sheet.pages.push_back(std::move(page));
    }
    sheet.opened = opened;
    sheet.onCommand = onSheetCommand;
    sheet.apply = apply;
    sheet.refused = showRefusal;
    return sheet;
}

void changeSetUp() {
    open = {.draft = SetUpDraft(setUp), .objective = static_cast<int>(setUp.objectiveInUse)};
    runSheet(setUpSheet(setUp));
}
