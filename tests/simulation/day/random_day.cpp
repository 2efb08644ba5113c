// A random day from its start to its end.
#include "tests/simulation/day/random_day.h"

#include "app/program.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/bias.h"
#include "instruments/kinds.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/doubles/doubles.h"
#include "tests/simulation/day/dice.h"
#include "tests/simulation/day/faults.h"
#include "tests/simulation/day/list_day.h"
#include "tests/simulation/day/operator.h"
#include "tests/simulation/day/power_cut.h"
#include "tests/simulation/day/script_client.h"
#include "tests/simulation/day/swarm.h"
#include "tests/simulation/judge/judge.h"
#include "ui/commands.h"

namespace {

constexpr int rowsLookedAt = 104; // of 200 for the focus

// And then the power was cut.
void leaveBias(int kind) {
    instrumentLink.gpibAddress = kind == kindGpibSourcemeter ? 24 : 17;
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; }; // that it is connected
    connectInstrument(kind);
    applyBias(0.7, 1e-4);
    resetProgram();
}

void prepareDesktop(const Swarm& swarm, const Laboratory& laboratory, const ScriptClient& script) {
    if (laboratory.isOther) writeDesktopFile("KST_Data/Setup.ini", laboratory.setUpFile());
    writeDesktopFile("KST_Data/Config.txt", swarm.settingsLine());
    writeDesktopFile("KST_Data/Options.ini", swarm.options() +
                                                 (laboratory.isOther ? "write .gwy = yes\n" : "") +
                                                 script.options());
    if (swarm.biasLeft && instrumentKind(swarm.kind).applyBias) leaveBias(swarm.kind);
    instrumentLink.biasVoltage = static_cast<float>(swarm.biasVolts);
    instrumentLink.currentLimit = static_cast<float>(swarm.limitAmperes);
}

// What the operator does, each at its time; the last he does is to close the window.
void planDay(Dice& dice, const Swarm& swarm, Operator& hand, ListDay& listDay, Judge& judge) {
    constexpr double beginsMs = 2000;
    const double endsMs = listDay.happens ? 80000 : 34000;
    if (swarm.kind == kindAnalyzerGpib) at(beginsMs - 500, [] { postCommand(idConfiguration); });
    double time = beginsMs;
    if (listDay.happens)
        listDay.plan(time, endsMs, swarm, judge);
    else
        at(time, [&] {
            hand.selectsArea();
            postCommand(idStart);
        });
    while ((time += dice.below(swarm.longestPauseMs)) < endsMs) at(time, [&] { hand.acts(); });
    at(time, [] { post(messageClose); });
}

// Beside all else, in another laboratory.
void planSetUpChanges(Dice& dice, Operator& hand) {
    for (double ms = 3000; (ms += 500 + dice.below(12000)) < 34000;)
        at(ms, [&hand] { hand.changesSetUp(); });
}

} // namespace

RandomDay liveRandomDay(uint32_t seed) {
    RandomDay day;
    day.seed = seed;
    prepareWorld();
    Laboratory laboratory(seed);
    nobodyLooks = true;
    libraries.callsMayFail = true;
    setLabRowsAroundSpot(rowsLookedAt);
    onLeftButtonUp(-1, -1); // no drag and no idle time is left from another day
    resetIdle();
    Dice dice(seed);
    const Swarm swarm(dice);
    ScriptClient script(seed);
    prepareDesktop(swarm, laboratory, script);
    laboratory.apply();
    Judge judge(day, laboratory);
    ListDay listDay(seed, !laboratory.isOther);
    PowerCut powerCut(seed, listDay.happens);
    onlooker.waits = [&, judges = onlooker.waits] {
        const auto seconds = static_cast<int>(testTimeMs() / 1000);
        wallTime.minute = 5 + seconds / 60 % 55;
        wallTime.second = seconds % 60;
        judges();
        powerCut.look();
    };
    swarm.count(day.counts);
    day.kind = swarm.kind;
    Operator hand(dice, swarm, judge);
    answerOthers = [&](const ShownBox& box) {
        const std::optional<BoxAnswer> ofList = listDay.answers(box);
        if (ofList)
            judge.note("box '" + box.text + (*ofList == BoxAnswer::Yes ? "', Yes" : "', No"));
        return ofList ? *ofList : hand.answers(box);
    };
    whileDialogOpen = [&] { hand.configures(); };
    if (swarm.brokenAtStart) breakOrMend(dice, swarm, judge);
    planDay(dice, swarm, hand, listDay, judge);
    script.plan(2500, listDay.happens ? 80000 : 34000, judge);
    if (laboratory.isOther) planSetUpChanges(laboratory.dice, hand);
    judge.count(laboratory.isOther ? "days in another laboratory" : "days in that as built");
    if (runProgram(1) != 0) judge.find(Rule::End, "another exit code than 0");
    judge.lookAtEnd();
    libraries.callFaults.clear();
    resetProgram(); // lets go of what the program holds
    judge.lookAtLeaks();
    if (!powerCut.hasHappened()) return day;
    for (const std::string& wrong : powerCut.startAgain(day.counts, laboratory))
        judge.find(Rule::Kept, wrong);
    if (const ListAfterCut* list = powerCut.listGoneOn(); list && !swarm.filesBreak)
        for (const std::string& wrong :
             list->wrong(judge.lists, swarm.kind, swarm.takesUpPlay(), day.counts))
            judge.find(Rule::List, "after the cut: " + wrong);
    resetProgram();
    return day;
}

std::string told(const RandomDay& day) {
    std::string text = formatted("seed %u\n", day.seed);
    for (const std::string& finding : day.findings) text += finding + '\n';
    for (const std::string& line : day.history) text += "    " + line + '\n';
    return text;
}
