// The operator, the faults and the judge of a random day.
#include "tests/simulation/random_day.h"

#include "app/program.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/configuration.h"
#include "ui/tool_windows.h"

#include <cmath>
#include <random>

namespace {

// --- The judge -----------------------------------------------------------------------------------

constexpr const char* ruleNames[] = {"lights", "bias",     "place", "watch",
                                     "cause",  "one move", "box",   "end"};

// Sets of laboratory axes.
constexpr unsigned noAxis = 0, axisX = 1u << labX, axisY = 1u << labY, axisZ = 1u << labZ;
constexpr unsigned xy = axisX | axisY, allAxes = xy | axisZ;

struct AxisView {
    const char* name;
    const char* controller; // of the laboratory, by the axis that it drives
    StageAxis& axis;
    int id = -1;                  // the controller's handle
    double zeroUm = 0;            // carriage where the program last called its place 0
    double unwatchedFromUm = NAN; // where it was when the program ceased to wait for it
    bool doubtful = false;        // a fault of this axis may have misled the program
};

// What the program does just now, and what it may move for it.
struct Cause {
    std::string what;
    unsigned axes = noAxis;
    bool process = false;
    bool sweep = false;  // of the bias
    bool inMove = false; // it came in the middle of a move
};

// Two axes count as arrived within 3 um, a zero drops its microsteps (1.25 um), and the carriage
// may lag behind its motor by the play (2 um), at the zero as well.
constexpr double placeToleranceUm = 3.0 + 1.25 + 2.0 + 0.2;
constexpr double unwatchedWayUm = 5.0;

class Judge {
public:
    Judge(RandomDay& record, const std::set<Rule>& rules) : day(record), ignored(rules) {
        current = this;
        real.open = vendors<decltype(real.open)>("open_device");
        real.move = vendors<decltype(real.move)>("command_move");
        replaceFunction(
            "open_device", +[](const char* name) { return current->opens(name); });
        replaceFunction(
            "command_move", +[](int id, int position, int microsteps) {
                return current->moves(id, position, microsteps);
            });
        onlooker.waits = [this] { look(); };
        onlooker.dispatches = [this](const Message& message) {
            if (isPageKey(message)) --pageKeys;
            begin(causeOf(message));
        };
        onlooker.dispatched = [this] { end(); };
    }

    void note(const std::string& what) {
        day.history.push_back(formatted("%8.0f  ", testTimeMs()) + what);
    }

    void find(Rule rule, const std::string& what) {
        if (ignored.count(rule) != 0) return;
        std::string whole = std::string(ruleNames[static_cast<size_t>(rule)]) + ": " + what;
        if (!found.insert(whole.substr(0, whole.find_first_of("0123456789"))).second) return;
        if (!causes.empty()) whole += " (in: " + causes.back().what + ")";
        note("FOUND " + whole);
        day.broken.insert(ruleNames[static_cast<size_t>(rule)]);
        day.findings.push_back(formatted("%.0f ms: ", testTimeMs()) + whole);
    }

    void begin(Cause cause) {
        cause.inMove = stageIsMoving();
        causes.push_back(std::move(cause));
    }
    void end() { causes.pop_back(); }

    void breaks(const std::string& text) {
        faults = text;
        for (AxisView& each : axes) each.doubtful |= blamesAxis(each);
        biasDoubtful |= blamesBus();
        boardEverBroken |= blames("board");
        busEverBroken |= blamesBus();
    }

    void calledZero(unsigned which) {
        for (int axis : {labX, labY, labZ})
            if ((which & 1u << axis) != 0 && axes[axis].axis.positionUm == 0.0)
                axes[axis].zeroUm = labStageUm(axis);
    }

    // The program waits: what is on the screen now is what the operator goes by.
    void look() {
        if (!mainWindow) return;
        if (!shownBoxes.empty() && shownBoxes.size() != boxesSeen) lookAtBox(shownBoxes.back());
        boxesSeen = shownBoxes.size();
        lookAtLights();
        lookAtBias();
        for (int axis : {labX, labY, labZ}) lookAtAxis(axis);
        if (labCounters().moves != movesSeen)
            find(Rule::Cause, "the stage was moved past the program's library");
    }

    // A key that nudges the focus while a process runs is not dispatched: the wait takes it.
    void pressedPageKey() { ++pageKeys; }

    void choseInstrument() { instrumentChosen = true; }

    bool busIsBlamed() const { return biasDoubtful || blamesBus(); }

    // After the program's end.
    void lookAtEnd() {
        onlooker = {};
        if (processRunning != 0) find(Rule::End, "a process still runs");
        if (imagingStarts != 0) find(Rule::End, "imaging was not stopped");
        const bool reached = labBoardPresent();
        if (reached && !saidLost && !boardDoubtful && (labLaserPwm() != 0 || labIlluminated()))
            find(Rule::Lights, formatted("left on: laser %d, illumination %d", labLaserPwm(),
                                         labIlluminated() ? 1 : 0));
        if (!busIsBlamed() && labBiasVolts() != 0.0)
            find(Rule::Bias, formatted("left on: %g V", labBiasVolts()));
        if (!boardEverBroken && (labLaserPwm() != 0 || labIlluminated()))
            find(Rule::End, "the laser or the illumination was left on");
        if (!busEverBroken && labBiasVolts() != 0.0) find(Rule::End, "a bias was left on");
        const LabCounters& left = labCounters();
        if (left.cameraDevices != 0) find(Rule::End, "a camera device was not destroyed");
        if (!instrumentChosen) lookAtLinks(left);
        if (serial.openPorts != 0) find(Rule::End, "the port was not closed");
    }

private:
    template <class Function> static Function vendors(const char* name) {
        return reinterpret_cast<Function>(virtualLabFunction("libximc.dll", name));
    }

    static bool isPageKey(const Message& message) {
        return message.id == messageKeyDown &&
               (message.wParam == keyPageUp || message.wParam == keyPageDown);
    }

    static Cause causeOf(const Message& message) {
        switch (message.id) {
        case messageCommand:
            return causeOfCommand(static_cast<int>(message.wParam));
        case messageKeyDown:
            return causeOfKey(message.wParam);
        case messageLeftButtonUp:
            return {"button up", xy};
        case messageTimer:
            return {"timer"};
        default:
            return {formatted("message %#x", message.id)};
        }
    }

    static Cause causeOfKey(uintptr_t key) {
        const std::string name = formatted("key %#x", static_cast<unsigned>(key));
        if (key == keyPageUp || key == keyPageDown) return {name, axisZ};
        if (key == keyLeft || key == keyRight) return {name, axisX};
        if (key == keyUp || key == keyDown) return {name, axisY};
        return {name};
    }

    static Cause causeOfCommand(int id) {
        const std::string name = formatted("command %d", id);
        switch (id) {
        case idStart:
        case idWideView:
        case idFocus:
            return {name, allAxes, true};
        case idMoveXPlus:
        case idMoveXMinus:
            return {name, axisX};
        case idMoveYPlus:
        case idMoveYMinus:
            return {name, axisY};
        case idFocusUp:
        case idFocusDown:
        case idFocusUpFast:
        case idFocusDownFast:
            return {name, axisZ};
        default:
            return {name};
        }
    }

    int opens(const char* name) {
        const int id = real.open(name);
        for (int axis : {labX, labY, labZ}) {
            if (id < 0 || std::string(axes[axis].controller) != name) continue;
            axes[axis].id = id;
            axes[axis].zeroUm = labStageUm(axis);
        }
        return id;
    }

    int moves(int id, int position, int microsteps) {
        for (int axis : {labX, labY, labZ})
            if (id >= 0 && axes[axis].id == id) judgeMove(axis);
        const int result = real.move(id, position, microsteps);
        if (result == 0) ++movesSeen;
        return result;
    }

    void judgeMove(int axis) {
        const Cause none{"nothing"};
        const Cause& cause = causes.empty() ? none : causes.back();
        const char* name = axes[axis].name;
        const bool nudged = axis == labZ && processRunning != 0 && pageKeys > 0;
        if ((cause.axes & 1u << axis) == 0 && nudged)
            --pageKeys;
        else if ((cause.axes & 1u << axis) == 0)
            find(Rule::Cause, formatted("%s was sent", name));
        if (cause.inMove) find(Rule::OneMove, formatted("%s was sent inside another move", name));
        if (stageIsMoving() && labStageMoves(axis) && !axes[axis].doubtful)
            find(Rule::OneMove, formatted("%s was sent elsewhere on its way", name));
        axes[axis].unwatchedFromUm = NAN;
    }

    bool blames(const char* part) const { return faults.find(part) != std::string::npos; }

    bool blamesAxis(const AxisView& each) const {
        return blames("stage") || blames(formatted("axis %s", each.name).c_str());
    }

    bool blamesBus() const {
        for (const char* part : {"gpib", "visa", "instrument"})
            if (blames(part)) return true;
        return false;
    }

    // Of a day with one instrument. Kind 7 was opened over the network and is closed on the bus; an
    // adapter that was pulled cannot take a device offline.
    void lookAtLinks(const LabCounters& left) {
        const int kind = static_cast<int>(day.seed % equipmentKindCount);
        if (left.visaSessions != (kind == kindUsbSourcemeter ? 2u : 0u))
            find(Rule::End, "a session over USB was left open");
        if (left.networkLinks > (kind == kindAnalyzerGpib ? 1u : 0u))
            find(Rule::End, "the network's link was left open");
        if (left.gpibDescriptors > (kind == kindGpibMultimeter || busEverBroken ? 1u : 0u))
            find(Rule::End, "a device on the bus was left online");
    }

    // A light that is on must show, or the title must say that the board is lost. One that is off
    // need not while the board does not answer: "On" is then what was asked for.
    void lookAtLights() {
        saidLost = windowText(mainWindow, 200).find("board lost") != std::string::npos;
        // A board that takes everything and does nothing cannot be told from one that is there.
        if (blames("board absent") && laserLink.disconnected == 0) boardDoubtful = true;
        const bool answers = labBoardPresent() && laserLink.disconnected == 0;
        bool right = true;
        const auto judged = [&](const char* name, int onButton, bool lit) {
            const int checked = checkedRadio(onButton);
            if (checked == 0 || (checked == onButton) == lit) return;
            right = false;
            if (boardDoubtful) return;
            if (lit ? !saidLost : answers)
                find(Rule::Lights, formatted("the %s is %s", name, lit ? "on" : "off"));
        };
        judged("laser", idLaserOn, labLaserPwm() != 0);
        judged("illumination", idIlluminationOn, labIlluminated());
        if (right && !blames("board absent")) boardDoubtful = false;
    }

    void lookAtBias() {
        for (const Cause& cause : causes)
            if (cause.sweep) return;
        const double volts = labBiasVolts();
        const double said = static_cast<double>(instrumentLink.biasVoltage);
        const bool right = std::fabs(volts) < 1e-6 || std::fabs(volts - said) < 1e-3;
        if (right) {
            biasDoubtful = blamesBus();
        } else if (!busIsBlamed()) {
            find(Rule::Bias, formatted("%g V on the sample, %g V in the dialog", volts, said));
        }
    }

    void lookAtAxis(int axis) {
        AxisView& each = axes[axis];
        const bool blamed = blamesAxis(each);
        if (stageIsMoving() || each.axis.axisNumber == 0) {
            each.unwatchedFromUm = NAN;
            return;
        }
        const double um = labStageUm(axis);
        if (labStageMoves(axis)) {
            if (std::isnan(each.unwatchedFromUm)) each.unwatchedFromUm = um;
            if (std::fabs(um - each.unwatchedFromUm) > unwatchedWayUm && !each.doubtful)
                find(Rule::Watch, formatted("%s goes on and nobody waits for it", each.name));
            return;
        }
        each.unwatchedFromUm = NAN;
        const double said = each.axis.positionUm, is = um - each.zeroUm;
        if (std::fabs(said - is) <= placeToleranceUm)
            each.doubtful = blamed;
        else if (!each.doubtful)
            find(Rule::Place,
                 formatted("%s is at %.1f um, said to be at %.1f", each.name, is, said));
    }

    // A box holds whatever is under way until it is answered.
    void lookAtBox(const ShownBox& box) {
        const bool asksConsent = box.text.starts_with("Hysteresis compensated");
        if (asksConsent && stopRequested) find(Rule::Box, "asked after a stop: " + box.text);
        const bool asksForStop = box.text.starts_with("Do you want to stop");
        if (processUnderWay() && !asksForStop && !causes.empty() && !causes.back().process)
            find(Rule::Box, "holds a process: " + box.text);
    }

    inline static Judge* current = nullptr;
    RandomDay& day;
    const std::set<Rule>& ignored;
    std::set<std::string> found; // each up to its first number
    std::vector<Cause> causes;
    AxisView axes[3] = {
        {"x", "virtual:2", stageX}, {"y", "virtual:1", stageY}, {"z", "virtual:3", stageZ}};
    std::string faults;
    uint64_t movesSeen = 0;
    int pageKeys = 0;
    bool instrumentChosen = false; // in the dialog
    bool boardEverBroken = false, busEverBroken = false;
    size_t boxesSeen = 0;
    bool boardDoubtful = false;
    bool biasDoubtful = false; // a source may not have heard what it was told
    bool saidLost = false;
    struct {
        int (*open)(const char* name);
        int (*move)(int id, int position, int microsteps);
    } real;
};

// --- The operator --------------------------------------------------------------------------------

constexpr const char* faultLines[] = {"",
                                      "",
                                      "",
                                      "",
                                      "camera lost",
                                      "camera absent",
                                      "stage absent",
                                      "stage count 2",
                                      "axis x absent",
                                      "axis y absent",
                                      "axis x stalled",
                                      "axis z stalled",
                                      "axis x lost",
                                      "axis y lost 20",
                                      "axis z mute",
                                      "axis x slow 60",
                                      "axis z old",
                                      "limit x right at 15",
                                      "limit y left at -30",
                                      "board unplugged",
                                      "board unplugged",
                                      "board absent",
                                      "gpib error",
                                      "gpib error ibwrt 3",
                                      "gpib absent",
                                      "visa absent",
                                      "instrument absent",
                                      "instrument refused",
                                      "instrument stuck",
                                      "instrument silent",
                                      "instrument garbage"};

constexpr const char* typedTexts[] = {"5", "-30", "", "nan", "1e30", "9999999999", "100", "x"};

class Operator {
public:
    Operator(uint32_t seed, Judge& onlooking) : random(seed), judge(onlooking) {}

    int below(int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); }

    template <class T, size_t count> T oneOf(const T (&choices)[count]) {
        return choices[below(static_cast<int>(count))];
    }

    void acts() {
        // Numbers of commands lie in these ranges; some belong to none.
        const int firstCommands[] = {idStart, 2100, idLaserOn, idFocus, idSaveWindowImage};
        const int x = below(1446), y = below(1069);
        switch (below(14)) {
        case 0:
            return pressesKey();
        case 1:
            judge.note(formatted("click %d %d", x, y));
            return clicks(x, y);
        case 2:
            judge.note(formatted("drag from %d %d", x, y));
            return postDrag(x, y, x + below(120) - 60, y + below(120) - 60);
        case 3:
            return types();
        case 4:
        case 5:
            return breaksOrMends();
        case 6:
            return commands(idStart);
        case 7:
        case 8:
            return commands(idConfiguration);
        case 9:
            return usesTool();
        default:
            return commands(oneOf(firstCommands) + below(39));
        }
    }

    BoxAnswer answers(const ShownBox& box) {
        const BoxAnswer replies[] = {BoxAnswer::No, BoxAnswer::Cancel, BoxAnswer::None};
        const bool stops = box.text.starts_with("Do you want to stop");
        const BoxAnswer reply = below(5) == 0 ? oneOf(replies)
                                : stops       ? BoxAnswer::No
                                              : BoxAnswer::Yes;
        judge.note("box '" + box.text + formatted("', answer %d", static_cast<int>(reply)));
        return reply;
    }

    // In the Configuration dialog, until he closes it.
    void configures() {
        if (stageIsMoving()) judge.find(Rule::OneMove, "the dialog opened while the stage moves");
        inDialog = true;
        for (int left = below(8); left > 0 && mainWindow; --left) {
            advanceVirtualTime(below(400));
            switch (below(5)) {
            case 0:
                typesInDialog();
                break;
            case 1:
                setDialogText(idBias, oneOf({"0", "0.5", "-1", "nan"}));
                judge.note("bias " + dialogTextIn(idBias));
                break;
            case 2:
                choosesInstrument();
                break;
            case 3:
                presses(idSet);
                break;
            default:
                presses(
                    oneOf({idInitializeInstrument, idConnectLaser, idConnectStages, idConnectCamera,
                           idGo, idHandXMinus, idHandYPlus, idSetZero, idConfocalCheck}));
            }
            judge.look();
        }
        inDialog = false;
    }

private:
    void commands(int id) {
        judge.note(formatted("command %d", id));
        postCommand(id);
    }

    void clicks(int x, int y) {
        const intptr_t point = static_cast<intptr_t>(y) << 16 | x;
        post(messageLeftButtonDown, 1, point);
        in(below(300), [point] { post(messageLeftButtonUp, 0, point); });
    }

    void pressesKey() {
        const uintptr_t keys[] = {keyPageUp, keyPageDown, keyLeft, keyUp, keyRight, keyDown, 'A'};
        const uintptr_t key = oneOf(keys);
        const int repeats = below(3) == 0 ? 1 + below(20) : 1; // 33 ms apart while he holds it
        judge.note(formatted("key %#x, %d times", static_cast<unsigned>(key), repeats));
        for (int i = 0; i < repeats; ++i)
            in(33.0 * i, [this, key] {
                if (key == keyPageUp || key == keyPageDown) judge.pressedPageKey();
                post(messageKeyDown, key);
            });
        in(33.0 * repeats, [key] { post(messageKeyUp, key); });
    }

    // A message whose handling is `call`.
    void does(Cause cause, Action call) {
        judge.note(cause.what);
        postCall([this, cause, call] {
            judge.begin(cause);
            call();
            judge.end();
        });
    }

    void types() {
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
        const auto edit = oneOf(edits);
        const std::string text = oneOf(typedTexts);
        typeInto(edit.field, text);
        does({"Enter behind " + text + " in " + edit.name, edit.axes},
             [enter = edit.enter] { enter(); });
    }

    void breaksOrMends() {
        std::string lines = oneOf(faultLines);
        if (below(3) == 0) lines += std::string("\n") + oneOf(faultLines);
        if (!applyLabFaults(lines)) judge.find(Rule::End, "no such fault: " + lines);
        judge.breaks(lines);
        const char* const files[] = {"", "Confocal", "KST_Data"};
        refusedFile = oneOf(files);
        foldersRefused = below(4) == 0;
        drawingFailures[static_cast<Drawing>(below(8))] = below(25);
        judge.note("broken: " + lines + (foldersRefused ? " | folders" : "") +
                   (refusedFile.empty() ? "" : " | file " + refusedFile));
    }

    void usesTool() {
        if (toolWindows.empty()) return commands(below(2) == 0 ? idIvMeasurement : idTimeEvolution);
        const WindowHandle tool = toolWindows[static_cast<size_t>(below(2)) % toolWindows.size()];
        const char* const texts[] = {"1", "2", "", "x"};
        for (NativeWindow* edit : tool->edits) edit->text = oneOf(texts);
        if (below(5) == 0) return does({"closes a tool"}, [tool] { onToolClose(tool); });
        const bool iv = tool->edits.size() == 1;
        does({iv ? "sweep" : "series", noAxis, true, iv},
             [tool, iv] { onToolCommand(tool, iv ? idSweepStart : idSeriesStart); });
    }

    void typesInDialog() {
        const int id = oneOf({idHandStep, idDialogPositionX, idDialogPositionY, idCurrentLimit,
                              idLaserComPort, idAddressOctet4, idGpibAddress, idCameraAperture});
        setDialogText(id, oneOf({"0", "-1", "10", "18", "24", "30", "2000", "", "x"}));
        judge.note(formatted("in %d he types ", id) + dialogTextIn(id));
    }

    void choosesInstrument() {
        const int kind = below(equipmentKindCount);
        selectInDialogList(idInstrumentList, kind);
        const char* address = kind == kindGpibSourcemeter ? "24" : "18";
        if (kind == kindAnalyzerGpib) address = "17";
        if (below(4) != 0) setDialogText(idGpibAddress, address);
        judge.note(formatted("chooses instrument %d", kind));
        judge.choseInstrument();
        if (below(2) == 0) presses(below(2) == 0 ? idSet : idInitializeInstrument);
    }

    void presses(int id) {
        judge.note(formatted("presses %d", id));
        if (id == idInitializeInstrument) judge.choseInstrument();
        const bool moves = id == idGo || (id >= idHandXMinus && id <= idHandYPlus);
        judge.begin({formatted("button %d", id), moves ? xy : noAxis});
        if (id == idConfocalCheck) checkInDialog(id, below(2) == 0);
        onConfigurationCommand(id);
        if (id == idSetZero && !stageIsTaken()) judge.calledZero(xy);
        judge.end();
    }

    std::mt19937 random;
    Judge& judge;

public:
    bool inDialog = false; // the main window takes nothing meanwhile
};

constexpr int rowsLookedAt = 104; // of 200 for the focus

void writeSettings(uint32_t seed) {
    const int kind = static_cast<int>(seed % equipmentKindCount);
    writeDesktopFile(
        "KST_Data/Config.txt",
        formatted("step:4.0, laser:4.00, laser correct:(640,500), Ammeter:%d, GPIB:%d, "
                  "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\n",
                  kind, kind == kindGpibSourcemeter ? 24 : 18));
    instrumentLink.biasVoltage = 0.5f;
}

} // namespace

RandomDay liveRandomDay(uint32_t seed, const std::set<Rule>& ignored) {
    RandomDay day;
    day.seed = seed;
    prepareWorld();
    nobodyLooks = true;
    setLabRowsAroundSpot(rowsLookedAt);
    onLeftButtonUp(-1, -1); // no drag and no idle time is left from another day
    resetIdle();
    Judge judge(day, ignored);
    Operator hand(seed, judge);
    answerOthers = [&](const ShownBox& box) { return hand.answers(box); };
    whileDialogOpen = [&] { hand.configures(); };
    writeSettings(seed);
    double time = 2000;
    at(time, [] {
        postDrag(560, 470, 670, 560);
        postCommand(idStart);
    });
    for (int i = 0; i < 60; ++i)
        at(time += hand.below(1000), [&] {
            if (!hand.inDialog) hand.acts();
        });
    at(time + 1, [] { post(messageClose); });
    if (runProgram(1) != 0) judge.find(Rule::End, "another exit code than 0");
    judge.lookAtEnd();
    return day;
}

std::string told(const RandomDay& day) {
    std::string text = formatted("seed %u\n", day.seed);
    for (const std::string& finding : day.findings) text += finding + '\n';
    for (const std::string& line : day.history) text += "    " + line + '\n';
    return text;
}
