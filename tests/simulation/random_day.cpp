// The operator, the faults and the judge of a random day.
#include "tests/simulation/random_day.h"

#include "app/program.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "tests/doubles/doubles.h"
#include "tests/simulation/power_cut.h"
#include "ui/commands.h"
#include "ui/configuration.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <sstream>
#include <utility>

namespace {

// --- The judge -----------------------------------------------------------------------------------

constexpr const char* ruleNames[] = {"lights", "bias",  "place", "watch", "cause", "one move",
                                     "cell",   "named", "files", "kept",  "box",   "end"};

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
    bool sweep = false;    // of the bias
    bool bias = false;     // may put one on the sample, as a process may
    bool inMove = false;   // it came in the middle of a move
    bool began = false;    // a process
    size_t saidBefore = 0; // information texts
};

constexpr const char* scanName = "scan";

// Two axes count as arrived within 3 um, a zero drops its microsteps (1.25 um), and the carriage
// may lag behind its motor by the play (2 um), at the zero as well.
constexpr double placeToleranceUm = 3.0 + 1.25 + 2.0 + 0.2;
constexpr double unwatchedWayUm = 5.0;

class Judge {
public:
    Judge(RandomDay& record, const std::set<Rule>& rules) : day(record), ignored(rules) {
        current = this;
        real.open = stageFunction<decltype(real.open)>("open_device");
        real.move = stageFunction<decltype(real.move)>("command_move");
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
        onlooker.shows = [this](Field field) {
            if (field == Field::MeasuredValue) shownMs = virtualNowMs();
        };
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
    void end() {
        look(); // nothing may have waited meanwhile
        if (causes.back().began && !processUnderWay()) lookAtProcessEnd(causes.back());
        causes.pop_back();
    }

    void breaks(const std::string& text) {
        faults = text;
        for (AxisView& each : axes) each.doubtful |= blamesAxis(each);
        // A board that takes everything and does nothing cannot be told from one that is there.
        if (blames("board absent") && laserLink.disconnected == 0) boardDoubtful = true;
        boardEverBroken |= blames("board");
        busEverBroken |= blamesBus();
        cameraEverBroken |= blames("camera Pylon");
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
        lookAtProcess();
        lookAtCells();
        if (!overwrittenFiles.empty()) {
            find(Rule::Files, "overwritten: " + overwrittenFiles.back());
            overwrittenFiles.clear();
        }
        logWasRefused = logIsRefused();
        askedSinceLook = false;
        if (labCounters().moves != movesSeen)
            find(Rule::Cause, "the stage was moved past the program's library");
    }

    // A key that nudges the focus while a process runs is not dispatched: the wait takes it.
    void pressedPageKey() { ++pageKeys; }

    // Also what is mended before the judge looks again.
    void refusesFiles() { logWasRefused |= logIsRefused(); }

    void choseInstrument() { instrumentChosen = true; }

    void count(const std::string& what) { ++day.counts[what]; }

    // After the program's end.
    void lookAtEnd() {
        onlooker = {};
        if (processRunning != 0) find(Rule::End, "a process still runs");
        if (imagingStarts != 0) find(Rule::End, "imaging was not stopped");
        const bool reached = labBoardPresent();
        if (reached && !saidLost && !saidAtEnd() && !boardDoubtful &&
            (labLaserPwm() != 0 || labIlluminated()))
            find(Rule::Lights, formatted("left on: laser %d, illumination %d", labLaserPwm(),
                                         labIlluminated() ? 1 : 0));
        if (labBiasVolts() != 0.0 && !biasSaidLost && !saidAtEnd())
            find(Rule::Bias, formatted("left on without a word: %g V", labBiasVolts()));
        if (!boardEverBroken && (labLaserPwm() != 0 || labIlluminated()))
            find(Rule::End, "the laser or the illumination was left on");
        if (!busEverBroken && labBiasVolts() != 0.0) find(Rule::End, "a bias was left on");
        const LabCounters& left = labCounters();
        if (left.cameraDevices != devicesBefore && !cameraEverBroken)
            find(Rule::End, "a camera device was not destroyed");
        if (!instrumentChosen) lookAtLinks(left);
        if (serial.openPorts != 0) find(Rule::End, "the port was not closed");
    }

private:
    template <class Function> static Function stageFunction(const char* name) {
        return reinterpret_cast<Function>(findFunction(loadLibrary("libximc.dll"), name, 0));
    }

    static bool saidAtEnd() {
        const auto says = [](const ShownBox& box) {
            return box.text.find("may be on") != std::string::npos;
        };
        return std::any_of(shownBoxes.begin(), shownBoxes.end(), says);
    }

    static bool isPageKey(const Message& message) {
        return message.id == messageKeyDown &&
               (message.wParam == keyPageUp || message.wParam == keyPageDown);
    }

    Cause causeOf(const Message& message) {
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

    Cause causeOfCommand(int id) {
        const std::string name = formatted("command %d", id);
        if (id == idLaserOn || id == idLaserView) askedForLaser = askedSinceLook = true;
        switch (id) {
        case idStart:
            return {scanName, allAxes, true};
        case idWideView:
            return {"wide view", allAxes, true};
        case idFocus:
            return {"autofocus", allAxes, true};
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
        const uint64_t before = labCounters().moves;
        const int result = real.move(id, position, microsteps);
        movesSeen += labCounters().moves - before;
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
        if (cause.inMove && !nudged)
            find(Rule::OneMove, formatted("%s was sent inside another move", name));
        // A stop cuts short the wait in which a move goes its last micrometre.
        if (stageIsMoving() && labStageMoves(axis) && !axes[axis].doubtful && stopRequested == 0)
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
        const std::string title = windowText(mainWindow, 200);
        for (auto [said, words] : {std::pair(&saidLost, "laser board lost"),
                                   std::pair(&biasSaidLost, "the bias may be on")}) {
            const bool before = std::exchange(*said, title.find(words) != std::string::npos);
            if (*said && !before) lookAtLog(words);
        }
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
        bool mayComeOn = false, sweeps = false;
        for (const Cause& cause : causes) {
            sweeps |= cause.sweep;
            mayComeOn |= cause.process || cause.bias;
        }
        const double volts = labBiasVolts();
        const double before = std::exchange(biasSeen, volts);
        if (sweeps) return;
        if (volts != 0.0 && before == 0.0 && !mayComeOn)
            find(Rule::Cause, formatted("a bias was put on, %g V", volts));
        const double said = static_cast<double>(instrumentLink.biasVoltage);
        const bool right = std::fabs(volts) < 1e-6 || std::fabs(volts - said) < 1e-3;
        if (!right && !biasSaidLost)
            find(Rule::Bias, formatted("%g V on the sample, %g V in the dialog", volts, said));
    }

    // The first wait of a process.
    void lookAtProcess() {
        const bool runs = processUnderWay();
        if (runs && !processSeen && !causes.empty()) {
            causes.back().began = true;
            causes.back().saidBefore = historyOf(Field::Information).size();
            ++day.counts["process: " + causes.back().what];
            marked.clear();
        }
        processSeen = runs;
    }

    void lookAtProcessEnd(const Cause& cause) {
        processSeen = false;
        if (!mainWindow) return;
        look();
        std::string said;
        const std::vector<std::string>& all = historyOf(Field::Information);
        for (size_t i = std::min(cause.saidBefore, all.size()); i < all.size(); ++i) said += all[i];
        const bool scans = cause.what == scanName;
        if (scans && said.find("Mapping finished") == std::string::npos) return; // it was not begun
        if (scans && labLaserPwm() != 0 && !saidLost && !boardDoubtful && !askedForLaser)
            find(Rule::Lights, "the laser is on after a scan");
        if ((scans || cause.axes == noAxis) && labBiasVolts() != 0.0 && !biasSaidLost)
            find(Rule::Bias, formatted("%g V after a process", labBiasVolts()));
        if (!scans) return;
        for (auto [mark, words] : {std::pair(PointMark::Silent, ". No "),
                                   std::pair(PointMark::NotReached, ". Not reached")}) {
            if (marked[mark] == 0) continue;
            if (said.find(words) == std::string::npos)
                find(Rule::Named, std::string("not said: ") + words);
            lookAtLog(words);
        }
    }

    static bool logIsRefused() { return foldersRefused || diskFull || !refusedFile.empty(); }

    // What is said must stand there, too, unless it could not be written.
    void lookAtLog(const std::string& words) {
        if (logWasRefused || logIsRefused()) return;
        ++day.counts["said and logged"];
        if (contentOf(logOfRandomDay).find(words) == std::string::npos)
            find(Rule::Named, "not in the log: " + words);
    }

    // Each cell that has been marked since the last look is the one that was measured last.
    void lookAtCells() {
        if (scanMap.marks.size() != marksSeen.size() ||
            (!marksSeen.empty() && scanMap.marks[0].size() != marksSeen[0].size()))
            marksSeen = {};
        marksSeen.resize(scanMap.marks.size());
        for (size_t c = 0; c < marksSeen.size(); ++c) {
            if (scanMap.marks[c] == marksSeen[c]) continue;
            marksSeen[c].resize(scanMap.marks[c].size());
            for (size_t m = 0; m < marksSeen[c].size(); ++m) {
                const PointMark mark = scanMap.marks[c][m];
                if (std::exchange(marksSeen[c][m], mark) == mark) continue;
                if (mark != PointMark::NotMeasured) judgeCell(c, m, mark);
            }
        }
    }

    void judgeCell(size_t c, size_t m, PointMark mark) {
        const ScanConditions& scan = *scanMap.conditions;
        askedForLaser = askedSinceLook; // else it was before this point
        ++marked[mark];
        ++day.counts[mark == PointMark::Measured ? "points measured" : "points in doubt"];
        const bool board = scan.ammeterKind == kindArduino;
        const double scale = selectedInstrument().readingScale;
        const auto cell = static_cast<double>(scanMap.maps[planePhotocurrent][c][m]);
        struct {
            double timeMs = -1, x = 0, y = 0, value = 0;
        } read;
        // A row begins with a reading that no cell keeps.
        const auto isTheCells = [&](double timeMs, double x, double y, double value) {
            if (timeMs < lastCellMs) return true;
            read = {timeMs, x, y, value};
            // The board's number of one digit counts as 0.
            const bool tooSmall = board && cell == 0.0 && value < 10.5 * labAdcStepVolts;
            return tooSmall || std::fabs(cell - value * scale) <= 1e-3 * std::fabs(cell);
        };
        const auto search = [&](const auto& readings, auto value) {
            for (size_t i = readings.size(); i > 0; --i)
                if (const auto& at = readings[i - 1];
                    isTheCells(at.timeMs, at.sampleX, at.sampleY, at.*value))
                    break;
        };
        if (board)
            search(labReads(), &LabRead::volts);
        else
            search(labMeasurements(), &LabMeasurement::value);
        // Read since the value of the cell before was shown: an answer that came late belongs to no
        // later point.
        const double before = std::exchange(lastCellMs, shownMs);
        if (mark != PointMark::Measured) return;
        if (read.timeMs < before || read.timeMs < 0)
            return find(Rule::Cell, "marked measured without a reading");
        const double row = scan.rows - 1.0 - static_cast<double>(m);
        const double x = axes[labX].zeroUm + scan.homeXUm + scan.offsetXUm +
                         static_cast<double>(c) * scan.stepUm +
                         (labSpotPixel().column - labCentreColumn) * labUmPerPixel;
        const double y = axes[labY].zeroUm + scan.homeYUm + scan.offsetYUm + row * scan.stepUm +
                         (labSpotPixel().row - labCentreRow) * labUmPerPixel;
        const bool doubtful = axes[labX].doubtful || axes[labY].doubtful;
        if (!doubtful && std::hypot(read.x - x, read.y - y) > placeToleranceUm)
            find(Rule::Cell, formatted("measured at (%.1f, %.1f) um, belongs to (%.1f, %.1f)",
                                       read.x, read.y, x, y));
        const double is = read.value * scale;
        if (board && cell == 0.0 && is < 10.5 * labAdcStepVolts) return; // too few steps
        if (std::fabs(cell - is) > 1e-3 * std::fabs(is) + 1e-9)
            find(Rule::Cell, formatted("holds %g, measured was %g", cell, is));
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
    bool askedForLaser = false;    // by hand, since the last point
    bool askedSinceLook = false;   // and since the judge looked
    bool instrumentChosen = false; // in the dialog
    bool boardEverBroken = false, busEverBroken = false;
    size_t boxesSeen = 0;
    bool boardDoubtful = false;
    double biasSeen = 0.0;                       // V; at the last look
    bool saidLost = false, biasSaidLost = false; // in the title
    bool logWasRefused = false;                  // at the last look or since
    bool processSeen = false;
    bool cameraEverBroken = false;
    const uint64_t devicesBefore = labCounters().cameraDevices;
    std::vector<std::vector<PointMark>> marksSeen;
    std::map<PointMark, int> marked; // in the process that runs, or ran last
    double lastCellMs = -1;
    double shownMs = -1; // when the measured value was shown last
    struct {
        int (*open)(const char* name);
        int (*move)(int id, int position, int microsteps);
    } real;
};

// --- The operator --------------------------------------------------------------------------------

constexpr const char* faultLines[] = {
    "camera silent",           "camera unsettled",   "axis y mute",         "axis x old",
    "stage count 1",           "limit z right at 5", "backlash x 5",        "gpib error ibrd 2",
    "gpib error ibclr",        "gpib error ibonl",   "visa empty",          "k2450 other",
    "instrument unterminated", "camera lost",        "camera absent",       "stage absent",
    "stage count 2",           "axis x absent",      "axis y absent",       "axis x stalled",
    "axis z stalled",          "axis x lost",        "axis y lost 20",      "axis z mute",
    "axis x slow 60",          "axis z old",         "limit x right at 15", "limit y left at -30",
    "board unplugged",         "board unplugged",    "board absent",        "gpib error",
    "gpib error ibwrt 3",      "gpib absent",        "visa absent",         "instrument absent",
    "instrument refused",      "instrument stuck",   "instrument silent",   "instrument garbage"};

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
            return commands(oneOf({idStart, idStart, idFocus, idWideView}));
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
            switch (below(6)) {
            case 0:
                typesInDialog();
                break;
            case 5:
                entersInDialog();
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

    // A call that fails, with or without doing what it was asked, or is late, from the n-th on.
    std::string breaksCall() {
        const struct {
            const char* device;
            const char* library;
        } devices[] = {
            {"stage", "libximc.dll"}, {"camera", "PylonC_v9.dll"}, {"visa", "VISA64.dll"}};
        const auto device = oneOf(devices);
        const std::vector<std::string> names = faultyFunctions(device.library);
        CallFault fault{names[static_cast<size_t>(below(static_cast<int>(names.size())))]};
        fault.from = 1 + below(30);
        fault.fails = below(4) != 0;
        fault.carriedOut = below(3) == 0;
        if (!fault.fails) fault.lateMs = 100 + below(5000);
        libraries.callFaults.push_back(fault);
        judge.count(formatted("fault: %s call ", device.device) + (!fault.fails ? "late"
                                                                   : fault.carriedOut
                                                                       ? "done and failed"
                                                                       : "fails"));
        return formatted("%s %s %s from the %d. call on", device.device, fault.function.c_str(),
                         fault.fails ? "fails" : "is late", fault.from);
    }

    void breaksOrMends() {
        std::string lines = below(2) == 0 ? "" : oneOf(faultLines);
        if (below(3) == 0) lines += std::string("\n") + oneOf(faultLines);
        if (!applyLabFaults(lines)) judge.find(Rule::End, "no such fault: " + lines);
        std::istringstream each(lines);
        for (std::string line; std::getline(each, line);)
            if (!line.empty()) judge.count("fault: " + line);
        if (lines.empty()) judge.count("all mended");
        libraries.callFaults.clear();
        if (below(3) == 0) lines += "\n" + breaksCall();
        serial.refuseWrite = below(12) == 0;
        serial.replies.clear();
        for (int left = below(8) == 0 ? 3 : 0; left > 0; --left) serial.replies.push_back("\xFFx,");
        if (serial.refuseWrite) lines += "\nboard takes nothing";
        if (!serial.replies.empty()) lines += "\nboard answers garbage";
        judge.breaks(lines);
        const char* const files[] = {"", "Confocal", "KST_Data"};
        refusedFile = oneOf(files);
        foldersRefused = below(4) == 0;
        diskFull = below(6) == 0;
        judge.refusesFiles();
        drawingFailures[static_cast<Drawing>(below(8))] = below(25);
        if (foldersRefused) lines += " | folders";
        if (diskFull) lines += " | disk full";
        if (!refusedFile.empty()) lines += " | file " + refusedFile;
        for (const char* what :
             {"board takes nothing", "board answers garbage", "| folders", "| disk full", "| file"})
            if (lines.find(what) != std::string::npos) judge.count(std::string("fault: ") + what);
        judge.note("broken: " + lines);
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

    // Behind a field, and after what is typed there.
    void entersInDialog() {
        const Enter field = oneOf(enters);
        judge.note(formatted("Enter in %d", field.id));
        judge.begin({formatted("Enter in %d", field.id), field.axes, false, false, field.bias});
        if (field.bias) judge.choseInstrument();
        onConfigurationEnter(field.id);
        judge.end();
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
        const bool bias = id == idSet || id == idInitializeInstrument;
        judge.begin({formatted("button %d", id), moves ? xy : noAxis, false, false, bias});
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
    libraries.callsMayFail = true;
    setLabRowsAroundSpot(rowsLookedAt);
    onLeftButtonUp(-1, -1); // no drag and no idle time is left from another day
    resetIdle();
    Judge judge(day, ignored);
    PowerCut powerCut(seed);
    onlooker.waits = [&, judges = onlooker.waits] {
        const auto seconds = static_cast<int>(testTimeMs() / 1000);
        wallTime.minute = 5 + seconds / 60 % 55;
        wallTime.second = seconds % 60;
        judges();
        powerCut.look();
    };
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
    libraries.callFaults.clear();
    resetProgram(); // lets go of what the program holds
    if (liveContexts != 0 || liveBitmaps != 0)
        judge.find(Rule::End, formatted("%d contexts and %d bitmaps were not given back",
                                        liveContexts, liveBitmaps));
    if (!powerCut.hasHappened()) return day;
    for (const std::string& wrong : powerCut.startAgain(day.counts)) judge.find(Rule::Kept, wrong);
    resetProgram();
    return day;
}

std::string told(const RandomDay& day) {
    std::string text = formatted("seed %u\n", day.seed);
    for (const std::string& finding : day.findings) text += finding + '\n';
    for (const std::string& line : day.history) text += "    " + line + '\n';
    return text;
}
