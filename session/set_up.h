// KST_Data/Setup.ini: what is so of this laboratory's set-up, one "name = value" a line. It is read
// at the start; what does not stand there is as it has always been.
#pragma once

#include "session/picture_scale.h"

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// How far an axis may go, um by its controller's own count: neither "Set Zero" nor a restart of the
// program moves these places.
struct AxisRange {
    double lowest = -std::numeric_limits<double>::infinity();
    double highest = std::numeric_limits<double>::infinity();

    bool operator==(const AxisRange&) const = default;
};

// What the microscope makes of the sample with one of its objectives.
struct Objective : PictureScale {
    std::string name;
    // Where the laser spot lies on the picture, display pixels, rows from the bottom; -1: wherever
    // Config.txt or the operator says.
    int32_t spotColumn = -1, spotRow = -1;
    // From the laser spot that is seen to where the light acts, um along the stage's axes.
    double correctionXUm = 3.0, correctionYUm = 2.0;
    double focusUm = 0.0; // Z at which it is in focus, against the other objectives

    bool hasSpot() const { return spotColumn >= 0 && spotRow >= 0; }
};

// How an axis is driven.
struct AxisDrive {
    double umPerTurn = 250.0; // pitch of the lead screw
    int32_t fullStepsPerTurn = 200;
    int32_t microsteps = 256; // to a full step: 1, 2, 4, ..., 256
    bool reversed = false;    // its controller counts down where the program counts up
    int32_t speed = 500;      // full steps per second, 10 to 800

    bool operator==(const AxisDrive&) const = default;
};

// An amplifier that makes volts of the photocurrent, before an instrument that measures volts.
struct CurrentAmplifier {
    double voltsPerAmpere = 0.0; // 0: none, or not known
    bool inverts = false;
    double offsetVolts = 0.0; // at its output without a current

    bool operator==(const CurrentAmplifier&) const = default;
    bool isKnown() const { return voltsPerAmpere > 0.0; }
    double amperesOf(double volts) const {
        return (volts - offsetVolts) / (inverts ? -voltsPerAmpere : voltsPerAmpere);
    }
};

// Of the laser: its intensity as the window shows it, uA, and the light's power at the sample, uW,
// as somebody has read it from a power meter. Intensities ascend. Empty: not measured.
using PowerTable = std::vector<std::pair<double, double>>;

// On the line between the two entries beside it, uW; nothing beyond the table's ends.
std::optional<double> powerUwAt(const PowerTable& table, double uA);

struct SetUp {
    std::vector<Objective> objectives{Objective()}; // 1 to 8
    int32_t objectiveInUse = 1;                     // counted from 1

    std::array<AxisDrive, 3> drives; // of X, Y, Z
    int32_t focusSpeed = 300;        // full steps per second of Z's typed moves and the autofocus
    std::array<AxisRange, 3> ranges; // of X, Y, Z

    double laserUaPerVolt = 4.0; // of drive level
    PowerTable laserPower;
    int32_t laserPin = 5, lampPin = 6; // of the board; one digit: its commands are short
    int32_t lampOnLevel = 5;           // what the board takes for "on"
    double laserFullScaleVolts = 5.0;  // drive level at the board's level 255
    double inputFullScaleVolts = 5.0;  // of the board's analog input
    int32_t inputBits = 10;            // of its converter
    int32_t inputDeadCounts = 10;      // fewer counts are 0 V
    CurrentAmplifier boardAmplifier, scopeAmplifier;
    int32_t gpibBoard = 0; // of the driver, where the computer has several
    // Of the amplifier before a lock-in amplifier's voltage input, V/A; 0: not known.
    double amplifierVoltsPerAmpere = 0.0;
    // What a lock-in amplifier tells of its current input; otherwise it is volts behind its own
    // resistor, as the manual has it.
    bool lockInCurrentInAmperes = false;
    bool lockInCurrentTried = false; // the line is there: somebody has tried it
    std::string sourcemeterResource = "USB0::0x05E6::0x2450::04437886::INSTR"; // of VISA
    // The laser board's answer to "I" is asked for while the laser is to shine.
    bool boardHasInterlock = false;
    // s without a command after which the board switches the laser off; 0 never.
    int32_t boardKeepAliveS = 0;

    std::string cameraSerial; // empty: the first camera that is found

    // What the operator may set of the laser, uA.
    double highestLaserUa() const { return laserUaPerVolt * laserFullScaleVolts; }
    double lowestLaserUa() const { return highestLaserUa() / 20.0; }
    bool asksTheBoard() const { return boardHasInterlock || boardKeepAliveS > 0; }
    const Objective& objective() const {
        return objectives[static_cast<size_t>(objectiveInUse - 1)];
    }
    Objective& objective() { return objectives[static_cast<size_t>(objectiveInUse - 1)]; }
};
constexpr size_t mostObjectives = 8;

extern SetUp setUp;

// The objective in use, for what was measured with it: its name, or its number from 1 without one.
std::string presentObjective();

enum class SetUpPage { Optics, Stage, LaserAndAmplifier, Camera };

// One of the file's lines, and of the dialog's fields.
struct SetUpField {
    using Value = std::variant<double*, int32_t*, bool*, std::string*, PowerTable*>;

    SetUpPage page = SetUpPage::Optics;
    std::string name; // with its unit
    std::function<Value(SetUp&)> of;
    double lowest = 0.0, highest = 0.0; // of a number
    // The number that stands for "none", which is an empty text.
    std::optional<double> none;
    std::pair<const char*, const char*> choices{"yes", "no"}; // of a bool: true, false
    bool shapesMaps = false; // where it differs a scan does not go on
    int objective = 0;       // whose it is, counted from 1; 0: of none
};

// All of a set-up's fields, in the order of the dialog.
std::vector<SetUpField> setUpFields(const SetUp& of);

// Takes the value; false, and nothing is changed, when the field does not allow it.
bool takeField(const SetUpField& field, SetUp& into, const std::string& value);
std::string textOf(const SetUpField& field, const SetUp& of);

// "10 to 800": what a field may be.
std::string allowedFor(const SetUpField& field);

// What is wrong between the fields ("lowest X (um) is not below highest X (um)"), and a field that
// it is about; empty when nothing is.
struct SetUpFault {
    std::string words, field;
};
SetUpFault faultIn(const SetUp& of);

// The fields that are otherwise than they have always been and that shape a map, as
// "name = value; name = value"; of the objectives only the one in use. "default" when there is
// none.
std::string setUpWords(const SetUp& of);

// Of two such texts where they differ, as "X um per turn: 250 became 500"; empty when nowhere.
std::string setUpDifference(const std::string& before, const std::string& now);

// Reads the file where there is one, over the defaults. What cannot be taken is left out and
// returned: its line, and what it may be.
std::vector<std::string> readSetUp();

// False while there is a file that could not be read, also not now: then nothing of the laboratory
// is known, and what moves or shines is not to be opened.
bool setUpIsThere();

// Makes it the set-up in force and writes what of it is otherwise than before; the lines of
// objectives that are no more go. False when that was not written: it holds for this run then.
bool keepSetUp(const SetUp& changed);

// Keeps the highest place of Z, um, for this run and in the file; false when that was not written.
// It must lie above the lowest one: the caller looks.
bool keepHighestZ(double um);
