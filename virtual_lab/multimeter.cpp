// The multimeter on the GPIB bus: single letters with a number, carried out at an X; it measures
// all the time and tells its newest reading to whoever reads. From its manual; of its settings only
// the function is known here.
#include "virtual_lab/lab_state.h"

#include <cmath>

constexpr char functionVolts = '0', functionAmps = '3';
constexpr double stepsOfRange = 200000;
constexpr double conversionMs = 20;
constexpr double overflow = 9.99999e9; // with an O instead of the N before it

struct Multimeter {
    bool remote = false; // until then commands are not for it
    char function = functionVolts;
    std::string pending; // commands that wait for their X
};
static Multimeter meter;

static bool execute(const std::string& commands) {
    const bool known =
        commands == std::string{'F', functionVolts} || commands == std::string{'F', functionAmps};
    if (known) meter.function = commands[1];
    return known || commands.empty();
}

void multimeterTakes(LabInstrument who, const std::string& message) {
    std::string letters;
    for (char byte : message)
        if (byte != '\0' && byte != '\r' && byte != '\n' && byte != ' ') letters += byte;
    if (letters == "REN") {
        meter.remote = true;
        return;
    }
    if (!meter.remote) return noteError(who, "no remote", letters);
    lab.instruments.lines[who].output.clear();
    for (char letter : letters) {
        if (letter != 'X') {
            meter.pending += letter;
            continue;
        }
        std::string commands;
        commands.swap(meter.pending);
        if (!execute(commands)) noteError(who, "IDDC", commands + "X");
    }
}

void clearMultimeter() {
    const bool remote = meter.remote; // a line of the bus, not cleared with it
    meter = {};
    meter.remote = remote;
}

void renewMultimeter(LabInstrument) {
    meter = {};
}

void multimeterTalks() {
    const bool amps = meter.function == functionAmps;
    double value = amps ? labPhotoCurrent(0) : labPhotoVoltage();
    const double range = amps ? automaticRange(value, 2e-6, 2e-2) : automaticRange(value, 0.2, 200);
    value = digitizeCurrent(value, range, range / stepsOfRange);
    const bool overload =
        std::abs(value) > range * rangeReach || lab.faults.instruments[labMultimeter].overload;
    if (overload) value = overflow;
    const std::string text = printed("%cDC%c%+.5E", overload ? 'O' : 'N', amps ? 'A' : 'V', value);
    noteMeasurement(labMultimeter, 0, value);
    reply(labMultimeter, text, "\r\n", conversionMs);
}
