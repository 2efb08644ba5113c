// Draws other laboratories, and what their Setup.ini says.
#include "tests/simulation/day/laboratory.h"

#include "platform/text_format.h"

#include <algorithm>
#include <numbers>

Laboratory::Laboratory(uint32_t seed) : dice(seed ^ 0x5E7u), isOther(seed % 3 == 0) {
    drives[labZ].playUm = 0.8;
    if (isOther) draw();
}

void Laboratory::draw() {
    struct Sensor {
        int width, height;
    };
    constexpr Sensor sensors[] = {{2464, 2056}, {1920, 1200}, {640, 480},
                                  {1280, 1024}, {4096, 3000}, {5472, 3648}};
    const auto [width, height] = dice.oneOf(sensors);
    sensorWidth = width;
    sensorHeight = height;
    const char* const formats[] = {"BayerRG8", "BayerGR8", "BayerGB8", "BayerBG8", "Mono8"};
    pixelFormat = dice.oneOf(formats);
    centred = dice.percent(20);
    lenses.clear();
    for (int left = dice.from(1, 3); left > 0; --left) drawLens();
    for (int axis : {labX, labY, labZ}) drawDrive(axis);
    drawBoard();
}

void Laboratory::drawLens() {
    constexpr double scales[] = {labUmPerPixel, 0.05, 0.0987, 0.2347, 0.4};
    constexpr double turns[] = {0.0, 0.0, 1.3, -2.5, 90.0, 180.0, 37.0};
    const Part part = seen();
    Lens drawn;
    drawn.umPerPixel = dice.oneOf(scales);
    drawn.degrees = dice.oneOf(turns);
    drawn.mirrored = dice.percent(40);
    drawn.spot = {part.left + dice.from(part.width / 3, part.width * 2 / 3),
                  part.bottom + dice.from(part.height / 3, part.height * 2 / 3)};
    drawn.acts = {dice.from(-40, 40) / 10.0, dice.from(-40, 40) / 10.0};
    drawn.focusUm = dice.percent(50) ? 0 : dice.from(-20, 20);
    lenses.push_back(drawn);
}

void Laboratory::drawDrive(int axis) {
    constexpr double pitches[] = {250, 250, 500, 200, 1000};
    constexpr int turns[] = {200, 400}, modes[] = {9, 9, 8, 6};
    Drive& drive = drives[static_cast<size_t>(axis)];
    drive.umPerTurn = dice.oneOf(pitches);
    drive.stepsPerTurn = dice.oneOf(turns);
    drive.microstepMode = dice.oneOf(modes);
    drive.reversed = dice.percent(40);
    drive.playUm = axis == labZ ? 0.8 : dice.from(5, 35) / 10.0;
    drive.speed = dice.oneOf({500, 250, 800});
}

void Laboratory::drawBoard() {
    constexpr double gains[] = {1e6, 3e6, -1e6, -3e6};
    for (Amplifier* amplifier : {&board, &scope}) {
        if (dice.percent(30)) continue;
        const double gain = dice.oneOf(gains);
        *amplifier = {gain, gain > 0 ? 0.06 : 3.1};
    }
    constexpr double inputs[] = {5, 5, 3.3}, drivesOfLaser[] = {5, 5, 10, 4.5};
    constexpr int bits[] = {10, 12, 16}, deads[] = {10, 0, 20};
    inputVolts = dice.oneOf(inputs);
    inputBits = dice.oneOf(bits);
    deadCounts = dice.oneOf(deads);
    laserFullScaleVolts = dice.oneOf(drivesOfLaser);
    constexpr int pins[][2] = {{5, 6}, {6, 5}, {3, 9}, {0, 1}};
    const int which = dice.below(4);
    laserPin = pins[which][0];
    lampPin = pins[which][1];
    lampOnLevel = dice.oneOf({5, 1, 255});
    if (dice.percent(50)) lockInVoltsPerAmpere = LabLockInWiring().amplifierVoltsPerAmpere;
    hasInterlock = dice.percent(20);
    amplifiersAreTold = dice.percent(70);
}

Laboratory::Part Laboratory::seen() const {
    const int width = std::min(sensorWidth, 2464) / 2, height = std::min(sensorHeight, 2056) / 2;
    return {(1232 - width) / 2, (1028 - height) / 2, width, height};
}

bool Laboratory::apply(const std::string& faults) {
    faultLines = faults;
    return applyLabFaults(lines() + faults);
}

std::string Laboratory::lines() const {
    if (!isOther) return {};
    const Lens& now = inUse();
    std::string text = formatted("optics %.9g %.9g%s\nspot at %d %d\nspot acts %.9g %.9g\n",
                                 now.umPerPixel, now.degrees, now.mirrored ? " mirrored" : "",
                                 now.spot.column, now.spot.row, now.acts.x, now.acts.y);
    for (int axis : {labX, labY, labZ}) {
        const Drive& drive = drives[static_cast<size_t>(axis)];
        const char name = "xyz"[axis];
        text += formatted("axis %c pitch %.9g\naxis %c turn %d\naxis %c microsteps %d\n"
                          "backlash %c %.9g\n",
                          name, drive.umPerTurn, name, drive.stepsPerTurn, name,
                          drive.microstepMode, name, drive.playUm);
        if (drive.reversed) text += formatted("axis %c reversed\n", name);
    }
    text +=
        formatted("amplifier board %.9g %.9g\namplifier scope %.9g %.9g\n", board.voltsPerAmpere,
                  board.offsetVolts, scope.voltsPerAmpere, scope.offsetVolts);
    text += formatted("board input %.9g %d\nboard laser %d %.9g\nboard lamp %d %d\n", inputVolts,
                      inputBits, laserPin, laserFullScaleVolts, lampPin, lampOnLevel);
    text += formatted("sensor %d %d %s\n", sensorWidth, sensorHeight, pixelFormat.c_str());
    return text + (centred ? "camera centred\n" : "");
}

std::map<std::string, std::string> Laboratory::amplifierFields() const {
    std::map<std::string, std::string> fields;
    for (const auto& [name, of] : {std::pair("board", board), std::pair("oscilloscope", scope)}) {
        const std::string amplifier = std::string(name) + " amplifier ";
        if (of.voltsPerAmpere == 0) continue;
        fields[amplifier + "(V/A)"] = formatted("%.9g", std::fabs(of.voltsPerAmpere));
        fields[amplifier + "inverts"] = of.voltsPerAmpere < 0 ? "yes" : "no";
        fields[amplifier + "offset (V)"] = formatted("%.9g", of.offsetVolts);
    }
    return fields;
}

std::string Laboratory::setUpFile() const {
    std::string text;
    const auto say = [&text](const std::string& name, double number) {
        text += name + formatted(" = %.12g\n", number);
    };
    for (size_t i = 0; i < lenses.size(); ++i) {
        const Lens& lens_ = lenses[i];
        const std::string name = formatted("objective %d", static_cast<int>(i + 1));
        const double turn = lens_.degrees * std::numbers::pi / 180, um = lens_.umPerPixel;
        const double side = lens_.mirrored ? -1 : 1;
        text += name + formatted(" = lens %d\n", static_cast<int>(i + 1));
        say(name + " X per column (um)", side * std::cos(turn) * um);
        say(name + " X per row (um)", -std::sin(turn) * um);
        say(name + " Y per column (um)", side * std::sin(turn) * um);
        say(name + " Y per row (um)", std::cos(turn) * um);
        say(name + " laser spot column", lens_.spot.column);
        say(name + " laser spot row", lens_.spot.row);
        say(name + " spot correction X (um)", -lens_.acts.x);
        say(name + " spot correction Y (um)", -lens_.acts.y);
        say(name + " focus (um)", lens_.focusUm);
    }
    for (int axis : {labX, labY, labZ}) {
        const Drive& drive = drives[static_cast<size_t>(axis)];
        const std::string name(1, "XYZ"[axis]);
        say(name + " um per turn", drive.umPerTurn);
        say(name + " full steps per turn", drive.stepsPerTurn);
        say(name + " microsteps per full step", std::exp2(drive.microstepMode - 1));
        text += name + " counts the other way = " + (drive.reversed ? "yes\n" : "no\n");
        say(name + " speed (full steps/s)", drive.speed);
    }
    say("laser full scale (V)", laserFullScaleVolts);
    say("laser pin", laserPin);
    say("lamp pin", lampPin);
    say("lamp on level", lampOnLevel);
    say("analog input full scale (V)", inputVolts);
    say("analog input bits", inputBits);
    say("analog input dead zone (counts)", deadCounts);
    if (lockInVoltsPerAmpere > 0) say("amplifier (V/A)", lockInVoltsPerAmpere);
    if (hasInterlock) text += "laser board interlock = yes\n";
    if (amplifiersAreTold)
        for (const auto& [name, value] : amplifierFields()) text += name + " = " + value + "\n";
    return text;
}
