// Draws what a day is made of.
#include "tests/simulation/day/swarm.h"

#include "instruments/kinds.h"
#include "mapping/scan_area.h"
#include "platform/text_format.h"
#include "tests/simulation/day/faults.h"

#include <algorithm>

int gpibAddressOf(int kind) {
    return kind == kindGpibSourcemeter ? 24 : kind == kindLockInGpib ? 8 : 18;
}

Swarm::Swarm(Dice& dice) : acts(dice, static_cast<size_t>(Act::Count)), faults(dice, faultCount()) {
    drawSetup(dice);
    drawScan(dice);
    drawOperator(dice);
    drawFaults(dice);
}

void Swarm::drawSetup(Dice& dice) {
    constexpr int readable[] = {kindArduino,        kindGpibMultimeter, kindGpibSourcemeter,
                                kindUsbSourcemeter, kindOscilloscope,   kindAnalyzerEthernet,
                                kindAnalyzerGpib,   kindLockInGpib,     kindLockInUsb};
    kind = dice.percent(2) ? int{kindNiDaq} : dice.oneOf(readable);
    // More than 2.1 V is refused by a source on its 1 V range, more than 21 V or 0.105 A by the
    // analyzer.
    constexpr double volts[] = {0.5, 0.5, 0.5, -1.0, 0.0, 2.0, 5.0, 25.0};
    biasVolts = dice.oneOf(volts);
    constexpr double amperes[] = {1e-4, 1e-4, 1e-4, 1e-6, 2e-7, 0.2};
    limitAmperes = dice.oneOf(amperes);
    biasLeft = dice.percent(25);
}

void Swarm::drawScan(Dice& dice) {
    constexpr double steps[] = {0.5, 1.0, 2.0, 4.0, 7.5, 15.0, 40.0};
    stepUm = dice.oneOf(steps);
    constexpr int readings[] = {1, 1, 1, 2, 3, 10};
    readingsPerPoint = dice.oneOf(readings);
    // The picture is 180 um wide and 150 high.
    const int most = readingsPerPoint == 10 ? 5 : 14;
    cols = std::min(dice.from(1, most), static_cast<int>(150 / stepUm));
    rows = std::min(dice.from(1, most), static_cast<int>(120 / stepUm));
    // A smaller drag would be a click.
    if (stepUm < 1.0) cols = std::max(cols, 5);
    if (stepUm < 3.0) cols = std::max(cols, 3);
    confocal = dice.percent(40);
    looksEarly = dice.percent(50);
    constexpr int settles[] = {10, 10, 0, 50}, befores[] = {2, 2, 0, 20},
                  runIns[] = {0, 2, 5, 5, 10};
    settleMs = dice.oneOf(settles);
    beforeReadingMs = dice.oneOf(befores);
    runInUm = dice.oneOf(runIns);
}

void Swarm::drawOperator(Dice& dice) {
    constexpr int pauses[] = {500, 1000, 2000, 4000};
    longestPauseMs = dice.oneOf(pauses);
    constexpr int stops[] = {0, 0, 20, 50}, contraries[] = {0, 10, 20};
    stopsPercent = dice.oneOf(stops);
    contraryPercent = dice.oneOf(contraries);
    acts.set(static_cast<size_t>(Act::Scan), dice.from(5, 30));
    // Their frames take most of what a day takes.
    for (const Act slow : {Act::Focus, Act::WideView})
        acts.set(static_cast<size_t>(slow), dice.percent(30) ? dice.from(1, 30) : 0);
}

void Swarm::drawFaults(Dice& dice) {
    devicesBreak = dice.percent(65);
    filesBreak = dice.percent(50);
    brokenAtStart = devicesBreak && dice.percent(10);
    constexpr int mends[] = {20, 50, 80}, pairs[] = {0, 30}, calls[] = {0, 0, 30},
                  boards[] = {0, 0, 15};
    mendPercent = dice.oneOf(mends);
    pairPercent = dice.oneOf(pairs);
    callPercent = dice.oneOf(calls);
    boardPercent = dice.oneOf(boards);
    if (devicesBreak || filesBreak)
        acts.set(static_cast<size_t>(Act::BreakOrMend), dice.from(20, 120));
    else
        acts.set(static_cast<size_t>(Act::BreakOrMend), 0);
}

void Swarm::count(std::map<std::string, uint64_t>& counts) const {
    if (!devicesBreak) ++counts["days without device faults"];
    if (!devicesBreak && !filesBreak) ++counts["days without faults"];
    ++counts[formatted("days of step %.1f um", stepUm)];
    ++counts[formatted("days of kind %d", kind)];
    ++counts[formatted("days of %d readings a point", readingsPerPoint)];
    ++counts[formatted("days of %g V", biasVolts)];
    ++counts[formatted("days of run-in %d um", runInUm)];
    if (biasLeft) ++counts["days of a bias left by an earlier run"];
    if (looksEarly) ++counts["days of early looks"];
    if (confocal) ++counts["days of confocal scans"];
}

std::string Swarm::settingsLine() const {
    return formatted("step:%.1f, laser:4.00, laser correct:(640,500), Ammeter:%d, GPIB:%d, "
                     "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, %d\n",
                     stepUm, kind, gpibAddressOf(kind), confocal ? 1 : 0);
}

std::string Swarm::options() const {
    const char* const names = "stage controller 1 = virtual:1\n"
                              "stage controller 2 = virtual:2\n"
                              "stage controller 3 = virtual:3\n";
    return formatted("look for arrival = %s\n"
                     "wait after arrival (ms) = %d\n"
                     "wait before reading (ms) = %d\n"
                     "readings per point = %d\n"
                     "run-in (um) = %d\n%s",
                     looksEarly ? "as soon as it can be there" : "every 50 ms", settleMs,
                     beforeReadingMs, readingsPerPoint, runInUm, brokenAtStart ? names : "");
}
