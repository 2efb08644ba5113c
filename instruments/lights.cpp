// The laser and the illumination: what they are meant to be, and what the board was told.
#include "instruments/lights.h"

#include "instruments/laser_link.h"
#include "platform/messages.h"
#include "platform/text_format.h"
#include "platform/truncate.h"
#include "screen/control_ids.h"
#include "screen/screen.h"
#include "session/announce.h"
#include "session/day_log.h"
#include "session/forced_end.h"
#include "session/main_title.h"
#include "session/set_up.h"
#include "session/stay_awake.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string>
#include <utility>

namespace {

// The pins in use, and what a thread that may not format anything sends to them.
struct Wiring {
    int32_t laserPin = 5, lampPin = 6;
    char laserOff[8] = "G 5 0", lampOff[8] = "D 6 0";
};

// The next one is written beside the one that such a thread may just read.
Wiring wirings[2];
std::atomic<const Wiring*> wiring = &wirings[0];

// A light that is on or off, with the state before the last switching.
struct Light {
    int state = 0;
    int previous = 0;
    bool lit = false;     // as last asked for, a way back to the previous state included
    bool mayBeOn = false; // an "on" was sent, and no "off" has gone out there since
    int32_t onPort = 0;   // the COM port at which
    bool told = true;     // the board has what was last asked for
    int radioOn;
    int radioOff;
    bool (*send)(bool on);
    const char* name;
    std::string logged = {}; // the last line about it
};

bool sendIllumination(bool on) {
    return laserDigitalWrite(laserLink, wiring.load()->lampPin, on ? setUp.lampOnLevel : 0) != 0;
}

bool sendLaser(bool on) {
    return laserAnalogWrite(laserLink, wiring.load()->laserPin,
                            laserDriveOf(on ? laserLink.laserLevel : 0.0)) != 0;
}

// What the board has said of its lights since its port was opened.
struct BoardsWord {
    bool asking = false; // it is being asked just now
    bool silent = false; // it did not answer that, twice
    int ticks = 0;       // since a silent one was asked
    std::string whyDark; // of a laser that was on
};

struct {
    Light illumination{.radioOn = idIlluminationOn,
                       .radioOff = idIlluminationOff,
                       .send = sendIllumination,
                       .name = "Illumination"};
    Light laser{.radioOn = idLaserOn, .radioOff = idLaserOff, .send = sendLaser, .name = "Laser"};
    bool otherLight = false; // than the laser's alone, since onlyTheLaserShone was asked
    std::string lossSaid;    // of the board
    BoardsWord board;
} lights;

bool onlyTheLaserShines() {
    return lights.laser.lit && lights.laser.told && !lights.illumination.lit &&
           lights.illumination.told;
}

bool isLinked() {
    return !laserLink.disconnected && laserLink.portHandle;
}

bool boardIsAsked() {
    return setUp.asksTheBoard() && isLinked();
}

// By the bits of its answer.
std::string darkCauses(int causes) {
    constexpr const char* words[] = {"interlock open", "interlock was open", "keep-alive ran out",
                                     "the board has started anew", "its converter does not answer"};
    if (causes & 1) causes &= ~2; // that it was says nothing more
    std::string text;
    for (size_t bit = 0; bit < std::size(words); ++bit)
        if (causes >> bit & 1) text += (text.empty() ? "" : ", ") + std::string(words[bit]);
    return text.empty() ? "the board gives no cause" : text;
}

// What another port takes switches nothing off, unless the board has moved there and answers.
bool isBoardsPort(const Light& light) {
    return light.onPort == laserLink.comPort || laserLink.boardAnswered;
}

// Sends what the light is meant to be; false when it did not go out.
bool tell(Light& light) {
    const bool on = light.lit && !forcedEnd.begun;
    if (on && isLinked()) { // also when only a part of it goes out
        light.mayBeOn = true;
        light.onPort = laserLink.comPort;
    }
    light.told = light.send(on);
    if (light.told && !on && isBoardsPort(light)) light.mayBeOn = false;
    stayAwakeFor(AwakeFor::Laser, lights.laser.mayBeOn);
    return light.told;
}

void show(const Light& light) {
    checkRadio(light.radioOn, light.radioOff,
               light.lit || light.mayBeOn ? light.radioOn : light.radioOff);
}

bool tellBoth() {
    const bool laserTold = tell(lights.laser);
    const bool illuminationTold = tell(lights.illumination);
    show(lights.laser);
    show(lights.illumination);
    return laserTold && illuminationTold;
}

// Switched off, and may shine nevertheless.
bool isLost(const Light& light) {
    return light.mayBeOn && !light.lit;
}

std::string lossOfTheBoard() {
    if (isLost(lights.laser)) return "laser board lost: the laser may be on";
    if (isLost(lights.illumination)) return "laser board lost: the illumination may be on";
    // At a desk that never had one nothing is lost; another program may hold the port of one.
    const bool hasOne = laserLink.wasOpen || laserLink.portTaken;
    if (hasOne && !(lights.laser.told && lights.illumination.told)) return "laser board lost";
    return {};
}

void showWhetherTheBoardIsLost() {
    const std::string loss = lossOfTheBoard();
    if (loss == lights.lossSaid) return;
    titleLoss(loss);
    if (!loss.empty()) showInformation(loss.c_str());
    lights.lossSaid = windows.main ? loss : std::string(); // before that nobody has read it
}

void logChange(Light& light) {
    std::string line = std::string(light.name) + (light.lit ? " on" : " off");
    if (light.lit && &light == &lights.laser) line += ", " + laserIntensityWords();
    if (!light.told) line += ", but the board did not take it";
    if (line == light.logged) return;
    light.logged = line;
    logEvent(line);
}

// It stays dark until it was told off and on again.
void goDark(int causes) {
    lights.board.whyDark = darkCauses(causes);
    lights.laser.lit = false;
    lights.laser.state = 0;
    lights.otherLight = true;
    tell(lights.laser);
    show(lights.laser);
    lights.laser.logged = "Laser dark: " + lights.board.whyDark;
    announce(Severity::Trouble, lights.laser.logged);
}

// One answer may be disturbed on its way.
void askBoard() {
    if (lights.board.asking || !boardIsAsked()) return;
    lights.board.asking = true;
    std::optional<LaserBoardState> state = askLaserBoard(laserLink);
    if (!state) state = askLaserBoard(laserLink);
    lights.board.asking = false;
    const bool wasSilent = std::exchange(lights.board.silent, !state);
    if (!state && !wasSilent)
        announce(Severity::Trouble, "The laser board does not say whether its laser shines");
    if (state && lights.laser.lit && laserDriveOf(laserLink.laserLevel) > 0 &&
        state->laserLevel == 0)
        goDark(state->causes);
    // In its boot loader it did not hear the first greeting; a reset has ended its keep-alive.
    constexpr int startedAnew = 8;
    if (state && (state->causes & startedAnew)) greetLaserBoard(laserLink);
}

int switchLight(Light& light, int mode) {
    bool on = mode == 1;
    if (mode == 2) {
        on = light.previous == 1;
    } else {
        light.previous = light.state;
        light.state = on ? 1 : 0;
    }
    light.lit = on;
    if (on && &light == &lights.laser) lights.board.whyDark.clear();
    if (!tell(light) && isLost(light) && reopenLaserLink(laserLink)) tellBoth();
    lights.otherLight |= !onlyTheLaserShines();
    show(light);
    logChange(light);
    showWhetherTheBoardIsLost();
    focusMainWindow();
    return light.previous;
}

bool tellDark() {
    const Wiring& pins = *wiring.load();
    const bool laserTold = laserWriteAtOnce(laserLink, pins.laserOff);
    return laserWriteAtOnce(laserLink, pins.lampOff) && laserTold;
}

void takePins() {
    Wiring& next = wiring.load() == &wirings[0] ? wirings[1] : wirings[0];
    next.laserPin = setUp.laserPin;
    next.lampPin = setUp.lampPin;
    formatInto(next.laserOff, "G %d 0", next.laserPin);
    formatInto(next.lampOff, "D %d 0", next.lampPin);
    wiring = &next;
}

} // namespace

int setLaserOutput(int mode) {
    return switchLight(lights.illumination, mode);
}

int32_t laserDriveOf(double volts) {
    return laserDriveOf(volts, setUp.laserFullScaleVolts);
}

int32_t laserDriveOf(double volts, double fullScaleVolts) {
    return std::clamp(truncated(volts / fullScaleVolts * 255.0), 0, 255);
}

double presentLaserPowerUw() {
    return powerUwAt(setUp.laserPower, laserLink.laserLevel * setUp.laserUaPerVolt).value_or(-1.0);
}

std::string laserIntensityWords() {
    std::string words = formatted("%.1f uA", laserLink.laserLevel * setUp.laserUaPerVolt);
    const double uW = presentLaserPowerUw();
    if (uW >= 0.0) words += formatted(", %.3g uW", uW);
    return words;
}

bool prepareOffCommands() {
    const bool laserMoves = wiring.load()->laserPin != setUp.laserPin;
    const bool lampMoves = wiring.load()->lampPin != setUp.lampPin;
    if (!laserMoves && !lampMoves) return true;
    const bool wasLit = lights.illumination.lit;
    if (laserMoves && lights.laser.mayBeOn) setLaserLevel(0);
    if (lampMoves && lights.illumination.mayBeOn) setLaserOutput(0);
    const bool dark =
        !(laserMoves && lights.laser.mayBeOn) && !(lampMoves && lights.illumination.mayBeOn);
    if (dark) takePins();
    if (lampMoves && wasLit) setLaserOutput(1);
    if (!dark)
        announce(Severity::Trouble, "The laser board does not switch a light off: its old pins "
                                    "stay in use until it does");
    return dark;
}

int setLaserLevel(int mode) {
    return switchLight(lights.laser, mode);
}

bool illuminationIsOn() {
    return lights.illumination.state == 1;
}

bool laserIsOn() {
    return lights.laser.state == 1;
}

bool onlyTheLaserShone() {
    if (!lights.board.silent) askBoard();
    return onlyTheLaserShines() && !std::exchange(lights.otherLight, false);
}

void followLaserBoard() {
    constexpr unsigned onceASecond = 1000;
    if (boardIsAsked()) startTimer(Timer::Board, onceASecond);
}

void followKeepAlive() {
    laserLink.keepAliveS = setUp.boardKeepAliveS;
    if (isLinked()) laserSend(laserLink, formatted("K%d", laserLink.keepAliveS).c_str());
    followLaserBoard();
}

void watchLaserBoard() {
    // One that keeps silent costs its time-outs.
    constexpr int ticksWhenSilent = 10;
    if (lights.board.silent && ++lights.board.ticks % ticksWhenSilent != 0) return;
    askBoard();
}

std::string whyLaserIsDark() {
    return lights.board.whyDark;
}

bool laserBoardKeepsSilent() {
    return setUp.asksTheBoard() && (lights.board.silent || !boardIsAsked());
}

int connectLaserBoard(WindowHandle ownerWindow) {
    if (!setUpIsThere()) { // its pins are not known: the wrong light would go on
        announce(Severity::Trouble, "The laser board is not opened: Setup.ini cannot be read");
        return 0;
    }
    laserLink.keepAliveS = setUp.boardKeepAliveS;
    const int opened = openLaserLink(laserLink, ownerWindow);
    lights.laser.state = 0;
    lights.laser.lit = false;
    if (opened && !tellBoth() && reopenLaserLink(laserLink)) tellBoth();
    prepareOffCommands();
    logChange(lights.laser);
    logChange(lights.illumination);
    lights.board = BoardsWord();
    followLaserBoard();
    if (opened && !laserLink.boardAnswered) showInformation(noBoardAnswers(laserLink).c_str());
    showWhetherTheBoardIsLost();
    return laserLink.disconnected ? 0 : opened;
}

void renewLaserBoard() {
    if (!laserLink.wasOpen) return;
    if (reopenLaserLink(laserLink)) tellBoth();
    showWhetherTheBoardIsLost();
}

std::string lightLeftOn() {
    return isLost(lights.laser) || isLost(lights.illumination) ? lossOfTheBoard() : std::string();
}

bool darkenAtOnce() {
    const bool dark = tellDark() || (reopenLaserLink(laserLink) && tellDark());
    if (!onWindowThread()) return dark;
    for (Light* light : {&lights.laser, &lights.illumination}) {
        light->state = 0;
        light->lit = false;
        light->told = dark;
        if (dark && isBoardsPort(*light)) light->mayBeOn = false;
        show(*light);
    }
    return dark;
}
