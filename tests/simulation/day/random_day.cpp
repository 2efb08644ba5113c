// A random day from its start to its end.
#include "tests/simulation/day/random_day.h"

#include "app/program.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/doubles/doubles.h"
#include "tests/simulation/day/dice.h"
#include "tests/simulation/day/operator.h"
#include "tests/simulation/day/power_cut.h"
#include "tests/simulation/judge/judge.h"
#include "ui/commands.h"

namespace {

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

RandomDay liveRandomDay(uint32_t seed) {
    RandomDay day;
    day.seed = seed;
    prepareWorld();
    nobodyLooks = true;
    libraries.callsMayFail = true;
    setLabRowsAroundSpot(rowsLookedAt);
    onLeftButtonUp(-1, -1); // no drag and no idle time is left from another day
    resetIdle();
    Judge judge(day);
    PowerCut powerCut(seed);
    onlooker.waits = [&, judges = onlooker.waits] {
        const auto seconds = static_cast<int>(testTimeMs() / 1000);
        wallTime.minute = 5 + seconds / 60 % 55;
        wallTime.second = seconds % 60;
        judges();
        powerCut.look();
    };
    Dice dice(seed);
    Operator hand(dice, judge);
    answerOthers = [&](const ShownBox& box) { return hand.answers(box); };
    whileDialogOpen = [&] { hand.configures(); };
    writeSettings(seed);
    double time = 2000;
    at(time, [] {
        postDrag(560, 470, 670, 560);
        postCommand(idStart);
    });
    for (int i = 0; i < 60; ++i) at(time += dice.below(1000), [&] { hand.acts(); });
    at(time + 1, [] { post(messageClose); });
    if (runProgram(1) != 0) judge.find(Rule::End, "another exit code than 0");
    judge.lookAtEnd();
    libraries.callFaults.clear();
    resetProgram(); // lets go of what the program holds
    judge.lookAtLeaks();
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
