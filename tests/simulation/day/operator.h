// An operator who presses anything at any time.
#pragma once

#include "tests/doubles/script.h"
#include "tests/simulation/day/dice.h"
#include "tests/simulation/day/swarm.h"
#include "tests/simulation/judge/judge.h"

#include <map>
#include <string>

class Operator {
public:
    Operator(Dice& drawn, const Swarm& drawnDay, Judge& onlooking)
        : dice(drawn), swarm(drawnDay), judge(onlooking) {}

    void selectsArea();
    void acts(); // anything, unless the dialog is open: the main window takes nothing then
    BoxAnswer answers(const ShownBox& box);
    void changesSetUp(); // of another laboratory, or what its controllers know
    void configures();   // in the Configuration dialog, until he closes it

private:
    void commands(int id);
    void choosesLens();
    bool typesInSetUp(const std::map<std::string, std::string>& typed);
    void typesAmplifiers();
    void typesLimits();
    void cutsStagePower();
    void clicks(int x, int y);
    void pressesKey();
    void does(const Cause& cause, const Action& call);
    void types();
    void usesTool();
    void typesInDialog();
    void entersInDialog();
    void opensAnalyzerOnBus();
    void choosesInstrument();
    void presses(int id);

    Dice& dice;
    const Swarm& swarm;
    Judge& judge;
    bool inDialog = false;
};
