// Hears what comes to the program, sees what comes of it, and tells the rules.
#include "tests/simulation/judge/judge.h"

#include "lists/list_run.h"
#include "platform/tcp_server.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/pause.h"
#include "session/process.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr const char* ruleNames[] = {"lights", "bias",  "place",   "watch", "cause", "one move",
                                     "cell",   "light", "sound",   "lost",  "view",  "alive",
                                     "focus",  "named", "files",   "kept",  "box",   "list",
                                     "limit",  "asked", "picture", "gone",  "end"};

template <class Function> Function stageFunction(const char* name) {
    return reinterpret_cast<Function>(findFunction(loadLibrary("libximc.dll"), name, 0));
}

bool isPageKey(const Message& message) {
    return message.id == messageKeyDown &&
           (message.wParam == keyPageUp || message.wParam == keyPageDown);
}

Cause causeOfKey(uintptr_t key) {
    const std::string name = formatted("key %#x", static_cast<unsigned>(key));
    if (key == keyPageUp || key == keyPageDown) return {name, axisZ};
    if (key == keyLeft || key == keyRight) return {name, axisX};
    if (key == keyUp || key == keyDown) return {name, axisY};
    return {name};
}

} // namespace

Judge* Judge::current = nullptr;

Judge::Judge(RandomDay& record, Laboratory& place) : day(record), laboratory(place) {
    current = this;
    // The lights are looked at last: whether the laser was asked for is of the time since then.
    for (const auto check :
         {checkLists,   checkFiles,   checkBox,   checkBias,  checkPlace, checkWatch,
          checkCause,   checkOneMove, checkCell,  checkLight, checkSound, checkLost,
          checkView,    checkAlive,   checkFocus, checkNamed, checkLimit, checkAsked,
          checkPicture, checkGone,    checkEnd,   checkLights})
        checkers.push_back(check(*this));
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
        for (const auto& each : checkers) each->fieldIsShown(field);
    };
}

Judge::~Judge() = default;

void Judge::note(const std::string& what) {
    day.history.push_back(formatted("%8.0f  ", testTimeMs()) + what);
}

void Judge::find(Rule rule, const std::string& what) {
    const char* const name = ruleNames[static_cast<size_t>(rule)];
    std::string whole = std::string(name) + ": " + what;
    if (!found.insert(whole.substr(0, whole.find_first_of("0123456789"))).second) return;
    if (!causes.empty()) whole += " (in: " + causes.back().what + ")";
    note("FOUND " + whole);
    day.broken.insert(name);
    day.findings.push_back(formatted("%.0f ms: ", testTimeMs()) + whole);
}

void Judge::begin(Cause cause) {
    cause.inMove = stageIsMoving();
    cause.process &= !processUnderWay(); // one at a time: it is refused
    causes.push_back(std::move(cause));
}

void Judge::end() {
    look(); // nothing may have waited meanwhile
    if (causes.back().began && !processUnderWay()) lookAtProcessEnd(causes.back());
    for (const auto& each : checkers) each->causeEnds();
    causes.pop_back();
}

void Judge::breaks(const std::string& text) {
    faults = text;
    devicesBroke |= text.find_first_not_of('\n') != std::string::npos;
    doubtAxes();
    for (const auto& each : checkers) each->broken();
}

void Judge::calledZero(unsigned which) {
    for (int axis : {labX, labY, labZ})
        if ((which & 1u << axis) != 0 && axes[axis].axis.positionUm == 0.0)
            isZero(axes[axis], axis);
}

// The program knows of it if it has kept a place of Z, which it does with Z's first move.
void Judge::cutsStagePower(bool placesAreKept) {
    cycleLabStagePower();
    devicesBroke = true;
    for (AxisView& each : axes) each.powerCut = each.placeLost = each.doubtful = true;
    zPlaceWasKept |= placesAreKept && zHasMoved;
}

void Judge::answers(const ShownBox& box, BoxAnswer answer) {
    if (box.text.find("Z has lost its place") == std::string::npos) return;
    count("asked for the lost place of Z");
    if (answer == BoxAnswer::Yes) zMustAsk = zPlaceWasKept = false;
}

void Judge::doubtAxes() {
    for (AxisView& each : axes) {
        each.placeLost |= losesPlace(each);
        each.doubtful |= mayMislead(each);
    }
}

void Judge::opensDialog() {
    for (const auto& each : checkers) each->dialogOpens();
}

// What is on the screen now is what the operator goes by.
void Judge::look() {
    if (!windows.main) return;
    const std::string title = windowText(windows.main, 200);
    boardSaidLost = title.find(boardLostWords) != std::string::npos;
    biasSaidLost = title.find(biasMayBeOnWords) != std::string::npos;
    doubtAxes();
    lookAtProcess();
    if (!shownBoxes.empty() && shownBoxes.size() != boxesSeen)
        for (const auto& each : checkers) each->boxOpens(shownBoxes.back());
    boxesSeen = shownBoxes.size();
    lookAtMarks();
    for (const auto& each : checkers) each->look();
}

void Judge::lookAtEnd() {
    onlooker = {};
    for (const auto& each : checkers) each->ends();
}

void Judge::lookAtLeaks() {
    for (const auto& each : checkers) each->letsGo();
}

// A controller that counts steps which the carriage has not gone, or other steps than it said; and
// one that is lost, as the program knows. One that does not move says so.
bool Judge::losesPlace(const AxisView& each) const {
    if (each.axis.lostBy != 0) return true;
    for (const char* lie : {"unpowered", "slips", "turn"})
        if (blames(formatted("axis %s %s", each.name, lie).c_str())) return true;
    return false;
}

bool Judge::mayMislead(const AxisView& each) const {
    return each.placeLost || blames(formatted("axis %s old", each.name).c_str());
}

// As the laboratory has it where no fault says more.
double Judge::playUm(int axis) const {
    const std::string wider = formatted("backlash %s ", axes[axis].name);
    const size_t at = faults.find(wider);
    if (at != std::string::npos) return std::atof(faults.c_str() + at + wider.size());
    return laboratory.drives[static_cast<size_t>(axis)].playUm;
}

double Judge::placeToleranceUm(int axis) const {
    const Laboratory::Drive& drive = laboratory.drives[static_cast<size_t>(axis)];
    return 3.0 + drive.stepUm() + std::max(drive.playUm, 2.0) + 0.2;
}

bool Judge::blamesBus() const {
    for (const char* part : {"gpib", "visa", "instrument"})
        if (blames(part)) return true;
    return false;
}

bool Judge::saidAtEnd() const {
    const auto says = [](const ShownBox& box) {
        return box.text.find("may be on") != std::string::npos;
    };
    return std::any_of(shownBoxes.begin(), shownBoxes.end(), says);
}

bool Judge::isUnbegun(const Cause& cause) {
    if (cause.what != scanName && cause.what != listName) return false;
    const char* const name = cause.what == scanName ? "Mapping" : "Scan list";
    const std::optional<Outcome> ended = lastOutcomeOf(name);
    return ended && ended->end == ProcessEnd::Declined && !ended->lastWords.starts_with(name);
}

void Judge::isZero(AxisView& each, int axis) {
    each.zeroUm = labStageUm(axis);
    each.placeLost = false;
}

int Judge::opens(const char* name) {
    const int id = real.open(name);
    for (int axis : {labX, labY, labZ}) {
        if (id < 0 || std::string(name).back() != axes[axis].controller) continue;
        axes[axis].id = id;
        axes[axis].powerCut = false;
        // What it counts is told wrong, perhaps.
        if (axis == labZ) zMustAsk = zPlaceWasKept && !blames("axis z") && !blames("stage call");
        isZero(axes[axis], axis);
    }
    return id;
}

int Judge::moves(int id, int position, int microsteps) {
    // One whose answer was disturbed is sent once more.
    const std::array<double, 4> move = {testTimeMs(), 1.0 * id, 1.0 * position, 1.0 * microsteps};
    const bool repeated = move == disturbedMove;
    for (int axis : {labX, labY, labZ}) {
        if (id < 0 || axes[axis].id != id || repeated) continue;
        const Laboratory::Drive& drive = laboratory.drives[static_cast<size_t>(axis)];
        axes[axis].sentToUm = (drive.reversed ? -1 : 1) *
                              (position * drive.stepUm() + microsteps * drive.microstepUm());
        isSent(axis);
    }
    const uint64_t before = labCounters().moves;
    const int result = real.move(id, position, microsteps);
    const uint64_t taken = labCounters().moves - before;
    movesSeen += taken;
    zHasMoved |= taken != 0 && axes[labZ].id == id;
    for (AxisView& each : axes) each.ignored += id >= 0 && each.id == id && result == 0 && !taken;
    disturbedMove = move;
    disturbedMove[0] = result == -1 && !repeated ? testTimeMs() : -1.0;
    return result;
}

void Judge::isSent(int axis) {
    const bool nudged = axis == labZ && session.processRunning != 0 && pageKeys > 0;
    for (const auto& each : checkers) each->moveIsSent(axis, nudged);
    const unsigned allowed = causes.empty() ? noAxis : causes.back().axes;
    if (nudged && (allowed & 1u << axis) == 0) --pageKeys;
}

void Judge::lightAsked(int id) {
    for (const auto& each : checkers) each->commandComes(id);
}

Cause Judge::causeOf(const Message& message) {
    // What begins, begins where nothing is under way.
    if (isOfTcpServer(message)) return processUnderWay() ? Cause{"script"} : script.begins;
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

Cause Judge::causeOfCommand(int id) {
    const std::string name = formatted("command %d", id);
    for (const auto& each : checkers) each->commandComes(id);
    switch (id) {
    case idStart:
        return {scanName, allAxes, true};
    case idWideView:
        return {wideViewName, allAxes, true};
    case idFocus:
        return {autofocusName, allAxes, true};
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

// The first wait of a process.
void Judge::lookAtProcess() {
    const bool runs = processUnderWay();
    // What came before its first look is in the middle of it.
    const auto its = std::find_if(causes.rbegin(), causes.rend(),
                                  [](const Cause& cause) { return cause.process; });
    if (runs && !processSeen && its != causes.rend()) {
        its->began = true;
        its->saidBefore = historyOf(Field::Information).size();
        count("process: " + its->what);
        processBeganMs = testTimeMs();
        for (const auto& each : checkers) each->processBegins();
    }
    processSeen = runs;
    Cause* const itsList = runningList();
    const std::string row = itsList ? listUnderWay() : "";
    const bool anotherRow = std::exchange(rowSeen, row) != row;
    if (!itsList || row.empty() || !anotherRow) return;
    // Each row is a process of its own for the rules.
    const std::optional<size_t> index = rowOfList();
    itsList->sweep = index && list->list.rows[*index].kind == ListKind::IvCurve;
    count("rows of lists begun");
    processBeganMs = testTimeMs();
    for (const auto& each : checkers) each->processBegins();
}

void Judge::lookAtProcessEnd(const Cause& cause) {
    processSeen = false;
    if (!windows.main) return;
    look();
    std::string said;
    const std::vector<std::string>& all = historyOf(Field::Information);
    for (size_t i = std::min(cause.saidBefore, all.size()); i < all.size(); ++i) said += all[i];
    if (cause.what == scanName && said.find("Mapping finished") == std::string::npos)
        return; // it was not begun
    for (const auto& each : checkers) each->processEnds(cause, said);
}

bool Judge::inScan() const {
    return std::any_of(causes.begin(), causes.end(), [this](const Cause& cause) {
        return (cause.what == scanName || (cause.what == listName && !listWaits())) && cause.began;
    });
}

Cause* Judge::runningList() {
    for (Cause& cause : causes)
        if (cause.what == listName && cause.began) return &cause;
    return nullptr;
}

bool Judge::listWaits() const {
    const std::string said = textIn(Field::Progress);
    return isPaused() || said.starts_with("Next repeat") || said.starts_with("Scan list paused");
}

std::optional<size_t> Judge::rowOfList() {
    int row = 0;
    if (!list || !runningList() ||
        std::sscanf(listUnderWay().c_str(), "night, row %d of", &row) != 1)
        return {};
    return static_cast<size_t>(row - 1);
}

void Judge::cellCounts(const Taken* taken, size_t count) {
    for (const auto& each : checkers) each->cellCounts(taken, count);
}

// A cell that has been marked since the last look is the one that was measured last; several have
// been taken over from a journal.
void Judge::lookAtMarks() {
    std::vector<std::pair<size_t, size_t>> marked;
    if (scanMap.marks.size() != marksSeen.size() ||
        (!marksSeen.empty() && scanMap.marks[0].size() != marksSeen[0].size()))
        marksSeen = {};
    marksSeen.resize(scanMap.marks.size());
    for (size_t c = 0; c < marksSeen.size(); ++c) {
        if (scanMap.marks[c] == marksSeen[c]) continue;
        marksSeen[c].resize(scanMap.marks[c].size());
        for (size_t m = 0; m < marksSeen[c].size(); ++m) {
            const PointMark mark = scanMap.marks[c][m];
            if (std::exchange(marksSeen[c][m], mark) == mark || mark == PointMark::NotMeasured)
                continue;
            marked.emplace_back(c, m);
        }
    }
    if (marked.size() != 1) return;
    const auto [c, m] = marked[0];
    const PointMark mark = scanMap.marks[c][m];
    count(mark == PointMark::Measured ? "points measured" : "points in doubt");
    for (const auto& each : checkers) each->cellIsMarked(c, m, mark);
}
