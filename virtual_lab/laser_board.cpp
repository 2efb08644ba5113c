// The laser board: texts ended by a zero byte come in, decimal numbers go out.
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

constexpr int photocurrentPin = 0;
constexpr size_t longestCommand = 31;

// All that lies higher than the input's full scale is converted to the highest count.
static int convertPhotocurrent() {
    const LabSetUp& setUp = lab.faults.setUp;
    const double end = std::exp2(setUp.inputBits), step = setUp.inputVolts / end;
    double volts = behindAmplifier(setUp.boardVoltsPerAmpere, setUp.boardOffsetVolts);
    if (lab.faults.boardOverload) volts = 2 * setUp.inputVolts;
    if (!lab.faults.boardQuiet) volts += std::normal_distribution<double>(0, step / 2)(lab.noise);
    return static_cast<int>(std::clamp(std::floor(volts / step), 0.0, end - 1));
}

static bool analogRead(int pin, int samples) {
    if (pin < 0 || pin > 5 || samples < 1 || samples > 100) return false;
    const double step = lab.faults.setUp.inputVolts / std::exp2(lab.faults.setUp.inputBits);
    int sum = 0;
    for (int i = 0; i < samples && pin == photocurrentPin; ++i) { // the others are not connected
        int counts = convertPhotocurrent();
        LabPoint spot = labLaserSpotSample();
        ++lab.counters.analogReads;
        logEntry(lab.reads, {labNowMs(), spot.x, spot.y, counts * step, labRestedMs(),
                             lab.board.laserPwm > 0, lab.board.illuminated});
        sum += counts;
    }
    lab.board.reply += std::to_string(sum / samples);
    return true;
}

static bool digitalWrite(int pin, int level) {
    const LabSetUp& setUp = lab.faults.setUp;
    if (pin != setUp.lampPin || (level != 0 && level != setUp.lampOnLevel)) return false;
    lab.board.illuminated = level != 0;
    return true;
}

static bool analogWrite(int pin, int level) {
    if (pin != lab.faults.setUp.laserPin || level < 0 || level > 255) return false;
    switchLaser(level);
    return true;
}

// Which of three letters it is, or -1.
static int channelOf(char letter, const char* letters) {
    for (int channel = 0; channel < 3; ++channel)
        if (letter == letters[channel]) return channel;
    return -1;
}

// The numbers of a command, which must be written exactly as `format` would write them.
template <class... Numbers>
static bool scan(const std::string& command, const char* format, Numbers&... numbers) {
    if (std::sscanf(command.c_str(), format, &numbers...) != sizeof...(numbers)) return false;
    char exact[longestCommand + 1];
    std::snprintf(exact, sizeof exact, format, numbers...);
    return command == exact;
}

static bool scanAfterLetter(const std::string& command, int& number) {
    int read = 0; // what is refused changes nothing
    if (!scan(command.substr(1), "%d", read)) return false;
    number = read;
    return true;
}

// As docs/laser-board.md has it; nothing darkens its laser, and its keep-alive never runs out: that
// is for the firmware's own tests.
static bool tellLights() {
    char text[20];
    std::snprintf(text, sizeof text, "%02d %02d 00", lab.board.laserPwm,
                  lab.board.illuminated ? lab.faults.setUp.lampOnLevel : 0);
    lab.board.reply += text;
    return true;
}

static bool execute(const std::string& command) {
    LabBoard& board = lab.board;
    int first = 0, second = 0;
    if (command.empty()) return false;
    if (command == "z") return true;
    if (command == "I") return tellLights();
    if (command[0] == 'K') return scanAfterLetter(command, first) && first >= 0 && first <= 60;
    if (int channel = channelOf(command[0], "pPQ"); channel >= 0 && command.size() == 1) {
        board.reply += std::to_string(board.channel[channel]);
        return true;
    }
    if (int channel = channelOf(command[0], "sST"); channel >= 0)
        return scanAfterLetter(command, board.channel[channel]);
    if (int channel = channelOf(command[0], "aAb"); channel >= 0)
        return scanAfterLetter(command, board.channelRate[channel]);
    if (scan(command, "D %d %d", first, second)) return digitalWrite(first, second);
    if (scan(command, "G %d %d", first, second)) return analogWrite(first, second);
    if (scan(command, "R%d %d", first, second)) return analogRead(first, second);
    return false;
}

void boardReceive(const void* bytes, size_t count) {
    LabLock lock;
    if (!labBoardPresent()) return;
    for (size_t i = 0; i < count; ++i) {
        char byte = static_cast<const char*>(bytes)[i];
        if (byte != '\0') {
            if (lab.board.input.size() <= longestCommand) lab.board.input += byte;
            continue;
        }
        logEntry(lab.boardCommands, lab.board.input);
        if (lab.board.input.size() > longestCommand || !execute(lab.board.input))
            ++lab.counters.boardErrors;
        lab.board.input.clear();
    }
}

std::string takeBoardReply() {
    LabLock lock;
    std::string reply;
    reply.swap(lab.board.reply);
    return labBoardPresent() ? reply : std::string();
}

int labLaserPwm() {
    LabLock lock;
    return lab.board.laserPwm;
}

bool labIlluminated() {
    LabLock lock;
    return lab.board.illuminated;
}
