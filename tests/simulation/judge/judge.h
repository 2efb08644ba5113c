// Who looks on whenever the program waits, and what each of its rules sees: one file a rule.
#pragma once

#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "tests/doubles/doubles.h"
#include "tests/simulation/day/laboratory.h"
#include "tests/simulation/day/random_day.h"
#include "tests/simulation/judge/lists.h"

#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Sets of laboratory axes.
constexpr unsigned noAxis = 0, axisX = 1u << labX, axisY = 1u << labY, axisZ = 1u << labZ;
constexpr unsigned xy = axisX | axisY, allAxes = xy | axisZ;

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

constexpr const char *scanName = "scan", *listName = "list", *wideViewName = "wide view",
                     *autofocusName = "autofocus";

// Words of the title.
constexpr const char* boardLostWords = "laser board lost";
constexpr const char* biasMayBeOnWords = "the bias may be on";

struct AxisView {
    const char* name;
    char controller; // by which its name ends, in the laboratory
    StageAxis& axis;
    int id = -1;            // the controller's handle
    double zeroUm = 0;      // carriage where the program last called its place 0
    bool doubtful = false;  // a fault of this axis may have misled the program
    int ignored = 0;        // moves that its controller acknowledged and did not begin
    bool placeLost = false; // until the program calls a place 0 again
    bool powerCut = false;  // of its controller, until that is opened again
    double sentToUm = 0;    // by the controller's count, as labCountedUm
    // What somebody has set for it, by the same count.
    double lowestUm = -std::numeric_limits<double>::infinity();
    double highestUm = std::numeric_limits<double>::infinity();
};

// A reading as the laboratory knows it.
struct Taken {
    double timeMs, x, y; // of the sample under the laser spot, um
    double value;        // in the unit of the map
    double biasVolts;
    bool laser, lamp; // shone
    bool overloaded;
    double lockInX = 0, lockInY = 0; // of a lock-in amplifier, whose value is R
};

// A rule; what it does not look at stays empty.
class Checker {
public:
    Checker() = default;
    virtual ~Checker() = default;
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;

    virtual void broken() {} // something was broken or mended
    virtual void look() {}   // the program waits
    virtual void moveIsSent(int /*axis*/, bool /*nudged by a key that the wait takes*/) {}
    virtual void fieldIsShown(Field /*field*/) {}
    virtual void boxOpens(const ShownBox& /*box*/) {}
    virtual void dialogOpens() {}
    virtual void commandComes(int /*id*/) {}
    virtual void processBegins() {}
    virtual void processEnds(const Cause& /*cause*/, const std::string& /*said meanwhile*/) {}
    virtual void cellIsMarked(size_t /*column*/, size_t /*map row*/, PointMark /*mark*/) {}
    virtual void cellCounts(const Taken* /*its readings*/, size_t /*how many*/) {}
    virtual void causeEnds() {} // the latest of the judge's
    virtual void ends() {}      // the program has ended
    virtual void letsGo() {}    // of what it held until then
};

class Judge {
public:
    Judge(RandomDay& record, Laboratory& place);
    ~Judge();
    Judge(const Judge&) = delete;
    Judge& operator=(const Judge&) = delete;

    // What the operator does.
    void note(const std::string& what);
    void count(const std::string& what) { ++day.counts[what]; }
    void begin(Cause cause);
    void end(); // and everything that came of it
    void breaks(const std::string& text);
    void calledZero(unsigned axes);
    void choseInstrument() { instrumentChosen = setUpChanged = true; }
    void changedSetUp() { setUpChanged = true; }
    void cutsStagePower(bool placesAreKept);
    void lightAsked(int id); // by the number of the operator's button, which does the same
    void answers(const ShownBox& box, BoxAnswer answer);
    void opensDialog();
    // A key that nudges the focus while a process runs is not dispatched: the wait takes it.
    void pressedPageKey() { ++pageKeys; }

    void look();
    void lookAtEnd();   // after the program's end
    void lookAtLeaks(); // after it has let go of what it held

    // For the rules.
    void find(Rule rule, const std::string& what);
    bool blames(const char* part) const { return faults.find(part) != std::string::npos; }
    bool mayMislead(const AxisView& each) const;
    bool losesPlace(const AxisView& each) const;
    double playUm(int axis) const;
    // Two axes count as arrived within 3 um, a zero drops its microsteps, and the carriage may lag
    // behind its motor by the play, at the zero as well.
    double placeToleranceUm(int axis) const;
    bool blamesBus() const;
    bool inScan() const;
    // The list that runs, which may wait with everything as idle, and the row that it is at.
    Cause* runningList();
    bool listWaits() const;
    std::optional<size_t> rowOfList();
    void cellCounts(const Taken* taken, size_t count); // as measured
    bool saidAtEnd() const;                            // that something may be on, in a box

    RandomDay& day;
    Laboratory& laboratory;
    std::vector<Cause> causes; // what came in the middle of what, the latest last
    AxisView axes[3] = {{"x", '2', stageX}, {"y", '1', stageY}, {"z", '3', stageZ}};
    bool boardSaidLost = false, biasSaidLost = false; // in the title
    bool instrumentChosen = false;                    // in the dialog
    bool setUpChanged = false;                        // there: the instrument or the board's port
    bool devicesBroke = false;                        // since the day began
    bool boardDoubtful = false;                       // it may do nothing of what it takes
    bool zMustAsk = false;  // its controller has lost its place, and nobody has said Yes to that
    uint64_t movesSeen = 0; // that the program's library sent
    std::optional<ListAtWork> list; // the latest that began
    std::vector<ListAtWork> lists;  // that have begun
    struct {
        Cause begins = {"script"}; // what it has asked for last, which may begin
        bool litLaser = false;     // it has switched it on, and nobody has since
        bool isGone = false;       // it has vanished then
        double switchedMs = -1;    // when it last asked for light or bias
    } script;

    // What a script asked for in a process is carried out as soon as that has ended.
    bool scriptSwitchesBehind() const { return script.switchedMs >= processBeganMs; }

    // A scan or a list that was declined before its first move left all as it was.
    static bool isUnbegun(const Cause& cause);

private:
    double processBeganMs = 0;
    int opens(const char* name);
    int moves(int id, int position, int microsteps);
    void isSent(int axis);
    Cause causeOf(const Message& message);
    Cause causeOfCommand(int id);
    void doubtAxes();
    static void isZero(AxisView& each, int axis);
    void lookAtProcess();
    void lookAtProcessEnd(const Cause& cause);
    void lookAtMarks();

    static Judge* current;
    std::vector<std::unique_ptr<Checker>> checkers;
    std::set<std::string> found; // each up to its first number
    std::string faults;
    int pageKeys = 0;
    bool zHasMoved = false, zPlaceWasKept = false; // before its controller's power was cut
    std::array<double, 4> disturbedMove = {-1.0};  // when it came back, and what was sent to whom
    size_t boxesSeen = 0;
    bool processSeen = false;
    std::string rowSeen; // of a list
    std::vector<std::vector<PointMark>> marksSeen;
    struct {
        int (*open)(const char* name);
        int (*move)(int id, int position, int microsteps);
    } real;
};

std::unique_ptr<Checker> checkLights(Judge& judge);
std::unique_ptr<Checker> checkBias(Judge& judge);
std::unique_ptr<Checker> checkPlace(Judge& judge);
std::unique_ptr<Checker> checkWatch(Judge& judge);
std::unique_ptr<Checker> checkCause(Judge& judge);
std::unique_ptr<Checker> checkOneMove(Judge& judge);
std::unique_ptr<Checker> checkCell(Judge& judge);
std::unique_ptr<Checker> checkLight(Judge& judge);
std::unique_ptr<Checker> checkSound(Judge& judge);
std::unique_ptr<Checker> checkLost(Judge& judge);
std::unique_ptr<Checker> checkView(Judge& judge);
std::unique_ptr<Checker> checkAlive(Judge& judge);
std::unique_ptr<Checker> checkFocus(Judge& judge);
std::unique_ptr<Checker> checkNamed(Judge& judge);
std::unique_ptr<Checker> checkFiles(Judge& judge);
std::unique_ptr<Checker> checkBox(Judge& judge);
std::unique_ptr<Checker> checkLists(Judge& judge);
std::unique_ptr<Checker> checkLimit(Judge& judge);
std::unique_ptr<Checker> checkAsked(Judge& judge);
std::unique_ptr<Checker> checkPicture(Judge& judge);
std::unique_ptr<Checker> checkGone(Judge& judge);
std::unique_ptr<Checker> checkEnd(Judge& judge);
