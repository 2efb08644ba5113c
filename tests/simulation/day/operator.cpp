// What he presses, types and answers.
#include "tests/simulation/day/operator.h"

#include "camera/display.h"
#include "instruments/kinds.h"
#include "mapping/scan_area.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "tests/simulation/day/faults.h"
#include "ui/commands.h"
#include "ui/configuration.h"
#include "ui/set_up_change.h"
#include "ui/set_up_draft.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr const char* typedTexts[] = {"5", "-30", "", "nan", "1e30", "9999999999", "100", "x"};

// What Enter may do behind a field of the dialog.
struct Enter {
    int id;
    unsigned axes;
    bool bias;
};

constexpr Enter enters[] = {{idHandStep, noAxis, false},    {idDialogPositionX, xy, false},
                            {idDialogPositionY, xy, false}, {idLaserComPort, noAxis, false},
                            {idGpibAddress, noAxis, true},  {idAddressOctet4, noAxis, true},
                            {idBias, noAxis, true},         {idInstrumentList, noAxis, true}};

// He reads which controller would drive which axis.
bool drivesAxesRight(const std::string& question) {
    for (const auto& [line, name] : {std::pair("\nX: ", "Sample X"), std::pair("\nY: ", "Sample Y"),
                                     std::pair("\nZ: ", "Focus")}) {
        const size_t begin = question.find(line);
        if (begin == std::string::npos) return false;
        const std::string said = question.substr(begin + 1, question.find('\n', begin + 1) - begin);
        if (said.find(name) == std::string::npos && said.find("no controller") == std::string::npos)
            return false;
    }
    return true;
}

} // namespace

void Operator::acts() {
    if (inDialog) return;
    // Numbers of commands lie in these ranges; some belong to none.
    const int firstCommands[] = {idStart, 2100, idLaserOn, idFocus, idSaveWindowImage};
    const int x = dice.below(1446), y = dice.below(1069);
    switch (static_cast<Act>(swarm.acts.draw(dice))) {
    case Act::Key:
        return pressesKey();
    case Act::Click:
        judge.note(formatted("click %d %d", x, y));
        return clicks(x, y);
    case Act::Drag:
        judge.note(formatted("drag from %d %d", x, y));
        return postDrag(x, y, x + dice.below(120) - 60, y + dice.below(120) - 60);
    case Act::Type:
        return types();
    case Act::BreakOrMend:
        return breakOrMend(dice, swarm, judge);
    case Act::Scan:
        return commands(idStart);
    case Act::NewArea:
        return selectsArea();
    case Act::Focus:
        return commands(idFocus);
    case Act::WideView:
        return commands(idWideView);
    case Act::Configuration:
        return commands(idConfiguration);
    case Act::Tool:
        return usesTool();
    case Act::Light:
        return commands(dice.oneOf({idLaserOn, idLaserOff, idIlluminationOn, idIlluminationOff,
                                    idLaserView, idSampleView}));
    default:
        return commands(dice.oneOf(firstCommands) + dice.below(39));
    }
}

// For a scan of about as many points as the day wants, somewhere in the picture.
void Operator::selectsArea() {
    const auto [left, bottom, width, height] = judge.laboratory.seen();
    const double stepPx =
        scanArea.scanStep / judge.laboratory.inUse().umPerPixel / (display.wideView ? 3 : 1);
    const int dx = std::clamp(static_cast<int>((swarm.cols - 0.5) * stepPx), 12, width - 2);
    const int dy = std::clamp(static_cast<int>((swarm.rows - 0.5) * stepPx), 1, height - 2);
    const int x = left + dice.below(width - dx);
    const int y = 1028 - bottom - height + dice.below(height - dy);
    judge.note(formatted("selects %d x %d points at %d %d", swarm.cols, swarm.rows, x, y));
    postDrag(x, y, x + dx, y + dy);
}

BoxAnswer Operator::answers(const ShownBox& box) {
    const BoxAnswer replies[] = {BoxAnswer::No, BoxAnswer::Cancel, BoxAnswer::None};
    BoxAnswer reply = BoxAnswer::Yes;
    if (box.text.starts_with("Do you want to stop"))
        reply = dice.percent(swarm.stopsPercent) ? BoxAnswer::Yes : BoxAnswer::No;
    else if (box.text.starts_with("The stage controllers are not"))
        reply = drivesAxesRight(box.text) ? BoxAnswer::Yes : BoxAnswer::No;
    else if (dice.percent(swarm.contraryPercent))
        reply = dice.oneOf(replies);
    judge.answers(box, reply);
    judge.note("box '" + box.text + formatted("', answer %d", static_cast<int>(reply)));
    return reply;
}

void Operator::changesSetUp() {
    if (inDialog) return;
    switch (judge.laboratory.dice.below(6)) {
    case 0:
        return choosesLens();
    case 1:
        return commands(idSetHighestZ);
    case 2:
        return cutsStagePower();
    case 3:
        return does({"types the amplifiers"}, [this] { typesAmplifiers(); });
    default:
        return does({"types limits"}, [this] { typesLimits(); });
    }
}

// He turns the revolver where the program has taken the other one.
void Operator::choosesLens() {
    const auto next =
        static_cast<int>((judge.laboratory.lens + 1) % judge.laboratory.lenses.size());
    does({formatted("chooses lens %d", next + 1), axisZ}, [this, next] {
        Laboratory& laboratory = judge.laboratory;
        onCommand(idObjective + next);
        const bool taken = setUp.objectiveInUse == next + 1;
        if (!taken || laboratory.lens == static_cast<size_t>(next)) return;
        laboratory.lens = static_cast<size_t>(next);
        laboratory.apply();
        judge.count("lenses changed");
    });
}

// As the set-up's window does; whether it was taken.
bool Operator::typesInSetUp(const std::map<std::string, std::string>& typed) {
    if (!windows.main || processUnderWay() || stageIsMoving()) return false;
    SetUpDraft draft(setUp);
    const std::vector<SetUpField> fields = setUpFieldsOf(0, setUp);
    for (size_t i = 0; i < fields.size(); ++i)
        if (const auto found = typed.find(fields[i].name); found != typed.end())
            draft.textsOf(0)[i] = found->second;
    SetUp changed = setUp;
    if (!draft.takeInto(changed).words.empty()) return false;
    takeSetUp(changed);
    judge.count("set-ups typed");
    return true;
}

void Operator::typesAmplifiers() {
    judge.laboratory.amplifiersAreTold |= typesInSetUp(judge.laboratory.amplifierFields());
}

void Operator::typesLimits() {
    Dice& drawn = judge.laboratory.dice;
    const int axis = drawn.oneOf({labX, labY, labZ, labZ});
    constexpr double ways[] = {1, 6, 30, 200};
    const double lowest = labCountedUm(axis) - drawn.oneOf(ways);
    const double highest = labCountedUm(axis) + drawn.oneOf(ways);
    const bool none = drawn.percent(20);
    const std::string name = std::string(" ") + "XYZ"[axis] + " (um)";
    if (!typesInSetUp({{"lowest" + name, none ? "" : formatted("%.3f", lowest)},
                       {"highest" + name, none ? "" : formatted("%.3f", highest)}}))
        return;
    constexpr double infinite = std::numeric_limits<double>::infinity();
    // He tries them.
    constexpr int tries[][2] = {
        {idMoveXMinus, idMoveXPlus}, {idMoveYMinus, idMoveYPlus}, {idFocusDownFast, idFocusUpFast}};
    const int id = tries[axis][drawn.below(2)];
    for (const double ms : {300, 900, 1500})
        in(ms, [this, id] {
            if (!inDialog) commands(id);
        });
    judge.axes[axis].lowestUm = none ? -infinite : lowest;
    judge.axes[axis].highestUm = none ? infinite : highest;
}

// Of all controllers; then he connects them anew.
void Operator::cutsStagePower() {
    judge.note("the stage's power is cut");
    judge.count("fault: stage's power cut");
    judge.cutsStagePower(!swarm.filesBreak);
    const int reconnectsMs = 200 + judge.laboratory.dice.below(3000);
    for (const auto& [ms, id] : {std::pair(reconnectsMs, int{idReconnectStages}),
                                 std::pair(reconnectsMs + 2000, int{idFocusUp})})
        in(ms, [this, id = id] {
            if (!inDialog) commands(id);
        });
}

void Operator::configures() {
    judge.opensDialog();
    inDialog = true;
    if (swarm.kind == kindAnalyzerGpib && !judge.instrumentChosen) opensAnalyzerOnBus();
    for (int left = dice.below(8); left > 0 && windows.main; --left) {
        advanceVirtualTime(dice.below(400));
        switch (dice.below(6)) {
        case 0:
            typesInDialog();
            break;
        case 5:
            entersInDialog();
            break;
        case 1:
            setDialogText(idBias, dice.oneOf({"0", "0.5", "-1", "nan", "5", "25"}));
            judge.note("bias " + dialogTextIn(idBias));
            break;
        case 2:
            choosesInstrument();
            break;
        case 3:
            presses(idSet);
            break;
        default:
            presses(dice.oneOf({idInitializeInstrument, idConnectLaser, idConnectStages,
                                idConnectCamera, idGo, idHandXMinus, idHandYPlus, idSetZero,
                                idConfocalCheck}));
        }
        judge.look();
    }
    inDialog = false;
}

void Operator::commands(int id) {
    judge.note(formatted("command %d", id));
    postCommand(id);
}

void Operator::clicks(int x, int y) {
    const intptr_t point = static_cast<intptr_t>(y) << 16 | x;
    post(messageLeftButtonDown, 1, point);
    in(dice.below(300), [point] { post(messageLeftButtonUp, 0, point); });
}

void Operator::pressesKey() {
    const uintptr_t keys[] = {keyPageUp, keyPageDown, keyLeft, keyUp, keyRight, keyDown, 'A'};
    const uintptr_t key = dice.oneOf(keys);
    const int repeats =
        dice.below(3) == 0 ? 1 + dice.below(20) : 1; // 33 ms apart while he holds it
    judge.note(formatted("key %#x, %d times", static_cast<unsigned>(key), repeats));
    for (int i = 0; i < repeats; ++i)
        in(33.0 * i, [this, key] {
            if (key == keyPageUp || key == keyPageDown) judge.pressedPageKey();
            post(messageKeyDown, key);
        });
    in(33.0 * repeats, [key] { post(messageKeyUp, key); });
}

// A message whose handling is `call`.
void Operator::does(const Cause& cause, const Action& call) {
    judge.note(cause.what);
    postCall([this, cause, call] {
        judge.begin(cause);
        call();
        judge.end();
    });
}

void Operator::types() {
    const struct {
        Field field;
        void (*enter)();
        const char* name;
        unsigned axes;
    } edits[] = {{Field::ScanStep, enterScanStep, "step", noAxis},
                 {Field::LaserIntensity, enterLaserIntensity, "intensity", noAxis},
                 {Field::Gain, enterGain, "gain", noAxis},
                 {Field::Exposure, enterExposure, "exposure", noAxis},
                 {Field::PositionX, enterPositionX, "X", axisX},
                 {Field::PositionY, enterPositionY, "Y", axisY},
                 {Field::PositionZ, enterPositionZ, "Z", axisZ}};
    const auto edit = dice.oneOf(edits);
    const std::string text = dice.oneOf(typedTexts);
    typeInto(edit.field, text);
    does({"Enter behind " + text + " in " + edit.name, edit.axes},
         [enter = edit.enter] { enter(); });
}

void Operator::usesTool() {
    if (toolWindows.empty())
        return commands(dice.below(2) == 0 ? idIvMeasurement : idTimeEvolution);
    const WindowHandle tool = toolWindows[static_cast<size_t>(dice.below(2)) % toolWindows.size()];
    const char* const texts[] = {"1", "2", "", "x"};
    for (NativeWindow* edit : tool->edits) edit->text = dice.oneOf(texts);
    if (dice.below(5) == 0) return does({"closes a tool"}, [tool] { onToolClose(tool); });
    const bool iv = tool->edits.size() == 1;
    does({iv ? "sweep" : "series", noAxis, true, iv},
         [tool, iv] { onToolCommand(tool, iv ? idSweepStart : idSeriesStart); });
}

void Operator::typesInDialog() {
    const int id = dice.oneOf({idHandStep, idDialogPositionX, idDialogPositionY, idCurrentLimit,
                               idLaserComPort, idAddressOctet4, idGpibAddress, idCameraAperture});
    setDialogText(id, dice.oneOf({"0", "-1", "10", "18", "24", "30", "2000", "", "x"}));
    judge.note(formatted("in %d he types ", id) + dialogTextIn(id));
}

// Behind a field, and after what is typed there.
void Operator::entersInDialog() {
    const Enter field = dice.oneOf(enters);
    judge.note(formatted("Enter in %d", field.id));
    judge.begin({formatted("Enter in %d", field.id), field.axes, false, false, field.bias});
    if (field.bias) judge.choseInstrument();
    onConfigurationEnter(field.id);
    judge.end();
}

// At the start it was opened over the network, and is not read there.
void Operator::opensAnalyzerOnBus() {
    selectInDialogList(idInstrumentList, kindAnalyzerGpib);
    setDialogText(idGpibAddress, "17");
    presses(idInitializeInstrument);
}

void Operator::choosesInstrument() {
    const int kind = dice.below(equipmentKindCount);
    selectInDialogList(idInstrumentList, kind);
    const int address = kind == kindAnalyzerGpib ? 17 : gpibAddressOf(kind);
    if (dice.below(4) != 0) setDialogText(idGpibAddress, formatted("%d", address).c_str());
    judge.note(formatted("chooses instrument %d", kind));
    judge.choseInstrument();
    if (dice.below(2) == 0) presses(dice.below(2) == 0 ? idSet : idInitializeInstrument);
}

void Operator::presses(int id) {
    judge.note(formatted("presses %d", id));
    if (id == idInitializeInstrument) judge.choseInstrument();
    const bool moves = id == idGo || (id >= idHandXMinus && id <= idHandYPlus);
    const bool bias = id == idSet || id == idInitializeInstrument;
    judge.begin({formatted("button %d", id), moves ? xy : noAxis, false, false, bias});
    if (id == idConfocalCheck) checkInDialog(id, dice.below(2) == 0);
    onConfigurationCommand(id);
    if (id == idSetZero && !stageIsBusy()) judge.calledZero(xy);
    judge.end();
}
