// What the script sends.
#include "tests/simulation/day/script_client.h"

#include "door/door.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "tests/doubles/scripted_client.h"
#include "tests/simulation/judge/judge.h"

#include <algorithm>

std::string ScriptClient::options() const {
    return happens ? "scripts may connect = yes\nscripts may switch laser and bias = yes\n" : "";
}

void ScriptClient::plan(double firstMs, double lastMs, Judge& onlooker) {
    if (!happens) return;
    judge = &onlooker;
    judge->count("days of scripts");
    const int longestPauseMs = dice.oneOf({300, 1000, 3000});
    for (double ms = firstMs; (ms += 1 + dice.below(longestPauseMs)) < lastMs;)
        at(ms, [this] { acts(); });
    // Nobody forgets a pause for long.
    for (double ms = firstMs; ms < lastMs; ms += 5000)
        at(ms, [this] {
            if (clientIsConnected()) sends("SCAN:RES");
        });
}

void ScriptClient::acts() {
    if (!portIsOpen()) return;
    const std::string heard = clientHears();
    judge->day.counts["lines that scripts heard"] +=
        static_cast<uint64_t>(std::count(heard.begin(), heard.end(), '\n'));
    if (!clientIsConnected()) {
        judge->note("script: connects");
        return clientConnects();
    }
    const int act = dice.below(100);
    if (act < 35) return asks();
    if (act < 45) return sets();
    if (act < 70) return begins();
    if (act < 82) return switches();
    if (act < 90) return sends(dice.oneOf({"SCAN:PAUS", "SCAN:RES", "SCAN:STOP", "STAG:STOP"}));
    if (act < 96) return sendsBadText();
    vanishes();
}

void ScriptClient::sends(const std::string& text) {
    judge->note("script: " + text.substr(0, 60));
    clientSends(text + "\n");
}

void ScriptClient::asks() {
    sends(dice.oneOf({"*IDN?",        "STAG:POS?",       "SCAN:STAT?",
                      "READ?",        "SYST:ERR?",       "STAT:OPER?",
                      "SCAN:DATA? 0", "SCAN:DATA? MASK", "LAS?;:SOUR:VOLT?",
                      "LOG?",         "*STB?;*ESR?",     "SCAN:REP?;FILE?",
                      "*CLS",         "*OPC?",           "*OPC;*WAI;SYST:VERS?",
                      "CAM:PICT?",    "*TST?",           "SYST:HELP?",
                      "SETup?",       "SWE:DATA?"}));
}

void ScriptClient::sets() {
    sends(dice.oneOf({"SCAN:STEP 2", "SCAN:STEP 7.5um", "LAS:LEV 8", "LAS:LEV 16", "LAS:LEV MAX",
                      "SCAN:STEP nan", "SOUR:VOLT:ILIM 1e-4", "SWE:RANG 0.5;POIN 3",
                      "SCAN:STEP 1e9"}));
}

void ScriptClient::begins() {
    // Which of two would begin nobody knows.
    if (clientIsAtWork() || waitingMessages() != 0) return asks();
    switch (dice.below(10)) {
    case 0:
        judge->script.begins = {"script's sweep", noAxis, true, true};
        return sends("SWE:RANG 0.5;POIN 3;STAR");
    case 1:
        judge->script.begins = {"script's series", noAxis, true};
        return sends("TIME:ON 1;OFF 0.5;CYCL 2;STAR");
    case 2:
        judge->script.begins = {autofocusName, allAxes, true};
        return sends("FOC:STAR");
    case 3:
    case 4:
        judge->script.begins = {"script's move", allAxes};
        return sends(formatted("STAG:POS %d,%d", dice.from(-60, 60), dice.from(-60, 60)));
    default:
        beginsScan();
    }
}

void ScriptClient::beginsScan() {
    judge->script.begins = {scanName, allAxes, true};
    const int step = dice.oneOf({2, 4, 7});
    const int x = static_cast<int>(stageX.positionUm) + dice.from(-30, 30);
    const int y = static_cast<int>(stageY.positionUm) + dice.from(-30, 30);
    sends(formatted("SCAN:AREA %d,%d,%d,%d;STEP %d;STAR", x, y, step * dice.from(0, 5),
                    step * dice.from(0, 4), step));
}

void ScriptClient::switches() {
    switch (dice.below(6)) {
    case 0:
        return sends("LAS OFF");
    case 1:
        return sends(dice.oneOf({"ILL ON", "ILL OFF"}));
    case 2:
        judge->script.begins = {"script's bias", noAxis, false, false, true};
        judge->script.switchedMs = testTimeMs();
        return sends(dice.oneOf({"SOUR:VOLT 0.5", "SOUR:VOLT -0.5", "SOUR:VOLT 0"}));
    case 3:
        return sends("*RST");
    default:
        if (labLaserPwm() != 0) return sends("LAS?");
        judge->lightAsked(idLaserOn);
        judge->script.litLaser = true;
        judge->script.switchedMs = testTimeMs();
        judge->script.isGone = false;
        sends("LAS ON");
    }
}

void ScriptClient::sendsBadText() {
    const std::string zeros(3, '\0');
    const std::string texts[] = {
        std::string(70'000, 'x'), ";;;",          "SCAN:STAR 5",
        "SCAN:AREA 1,2,\"",       zeros + "*RST", "SCAN:AREA 0,0,-5,1e99",
        "STAG:POS 1e30,nan",      "#9999999999",  "*IDN?;*RST;*IDN?;:SCAN:STOP;STEP",
        "LIST:LOAD \"../../x\"",  "\xff\xfe",     "STAT:OPER:ENAB 99999"};
    sends(texts[dice.below(static_cast<int>(std::size(texts)))]);
}

void ScriptClient::vanishes() {
    judge->note("script: vanishes");
    judge->count("scripts that vanished");
    if (dice.percent(50)) clientSends("SCAN:DATA? 0\n*IDN"); // in the middle of it
    clientLeaves();
    judge->script.isGone = true;
}
