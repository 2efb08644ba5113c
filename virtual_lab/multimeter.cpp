// The multimeter on the GPIB bus: single letters with a number, carried out at an X; it measures
// all the time and tells its newest reading to whoever reads.
#include "virtual_lab/lab_state.h"

#include <cmath>

constexpr int functionVolts = 0, functionOhms = 2, functionAmps = 3;
constexpr const char* functionNames[] = {"DCV", "ACV", "OHM", "DCA", "ACA"};
constexpr double smallestAmps = 2e-6, largestAmps = 2e-2;
constexpr double smallestVolts = 0.2, largestVolts = 200;
constexpr double stepsOfRange = 200000;
constexpr double conversionMs[] = {1, 3, 20, 100};
constexpr const char* overflowDigits = "+9.99999E+09";

static bool applySetting(LabMultimeter& meter, char letter, int number) {
    switch (letter) {
    case 'F':
        if (number > 4) return false;
        meter.function = number;
        return true;
    case 'R':
        if (number > 5) return false;
        meter.range = number;
        return true;
    case 'S':
        if (number > 3) return false;
        meter.rate = number;
        return true;
    case 'G':
        if (number > 1) return false;
        meter.withPrefix = number == 0;
        return true;
    default:
        return false;
    }
}

// All of them or, if one is not understood, none.
static bool execute(const std::string& commands) {
    LabMultimeter changed = lab.instruments.multimeter;
    for (size_t i = 0; i < commands.size(); i += 2) {
        int number = i + 1 < commands.size() ? commands[i + 1] - '0' : -1;
        if (number < 0 || number > 9 || !applySetting(changed, commands[i], number)) return false;
    }
    lab.instruments.multimeter = changed;
    return true;
}

void multimeterTakes(const std::string& message) {
    LabMultimeter& meter = lab.instruments.multimeter;
    std::string letters;
    for (char byte : message)
        if (byte != '\0' && byte != '\r' && byte != '\n' && byte != ' ') letters += byte;
    if (letters == "REN") {
        meter.remote = true;
        return;
    }
    if (!meter.remote) return noteError(labMultimeter, "no remote", letters);
    lab.instruments.lines[labMultimeter].output.clear();
    for (char letter : letters) {
        if (letter != 'X') {
            meter.pending += letter;
            continue;
        }
        std::string commands;
        commands.swap(meter.pending);
        if (!execute(commands)) noteError(labMultimeter, "IDDC", commands + "X");
    }
}

void clearMultimeter() {
    bool remote = lab.instruments.multimeter.remote; // a line of the bus, not cleared with it
    lab.instruments.multimeter = {};
    lab.instruments.multimeter.remote = remote;
}

void multimeterTalks() {
    const LabMultimeter& meter = lab.instruments.multimeter;
    bool amps = meter.function == functionAmps;
    double value = amps                              ? labPhotoCurrent(0)
                   : meter.function == functionVolts ? labPhotoVoltage()
                                                     : 0; // nothing alternates here
    double smallest = amps ? smallestAmps : smallestVolts;
    double range = meter.range ? smallest * std::pow(10, meter.range - 1)
                               : automaticRange(value, smallest, amps ? largestAmps : largestVolts);
    value = digitizeCurrent(value, range, range / stepsOfRange);
    bool over = std::abs(value) > range * rangeReach || meter.function == functionOhms;
    std::string text = over ? overflowDigits : printed("%+.5E", value);
    if (meter.withPrefix)
        text = printed("%c%s", over ? 'O' : 'N', functionNames[meter.function]) + text;
    noteMeasurement(labMultimeter, 0, value);
    reply(labMultimeter, text, "\r\n", conversionMs[meter.rate]);
}
