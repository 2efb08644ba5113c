// In which laboratory a day is: one day in three in another than the microscope as built, with a
// Setup.ini that says the truth of it. Drawn apart from the day, whose history stays as it is.
#pragma once

#include "tests/simulation/day/dice.h"
#include "virtual_lab/lab.h"

#include <array>
#include <cmath>
#include <map>
#include <string>
#include <vector>

struct Laboratory {
    explicit Laboratory(uint32_t seed);

    // Of the revolver.
    struct Lens {
        double umPerPixel = labUmPerPixel, degrees = 0;
        bool mirrored = false;
        LabPixel spot = {640, 500};
        LabPoint acts; // its light, from there, um
        double focusUm = 0;
    };
    struct Drive {
        double umPerTurn = 250;
        int stepsPerTurn = 200, microstepMode = 9; // 1/2^(mode - 1)
        bool reversed = false;
        double playUm = 2;
        int speed = 500; // full steps/s, for Setup.ini
        double stepUm() const { return umPerTurn / stepsPerTurn; }
        double microstepUm() const { return std::ldexp(stepUm(), 1 - microstepMode); }
    };
    struct Amplifier {
        double voltsPerAmpere = 0, offsetVolts = 0; // negative where it inverts
    };

    Dice dice;
    bool isOther = false;
    std::vector<Lens> lenses{{}};
    size_t lens = 0; // in use
    std::array<Drive, 3> drives;
    Amplifier board, scope;
    double inputVolts = 5, laserFullScaleVolts = 5;
    int inputBits = 10, deadCounts = 10;
    int laserPin = 5, lampPin = 6, lampOnLevel = 5;
    double lockInVoltsPerAmpere = 0; // as Setup.ini has it; 0: not
    int sensorWidth = 2464, sensorHeight = 2056;
    std::string pixelFormat = "BayerRG8";
    bool centred = false, hasInterlock = false;
    bool amplifiersAreTold = false; // in Setup.ini, from the start or since they were typed

    const Lens& inUse() const { return lenses[lens]; }
    double adcStepVolts() const { return std::ldexp(inputVolts, -inputBits); }
    // The area of a map lies so far from where the light acts in truth: the microscope as built has
    // light that acts where it is seen, and Setup.ini's defaults do not say that.
    LabPoint wronglyToldUm() const { return isOther ? LabPoint{} : LabPoint{3, 2}; }
    // What the picture shows, display pixels, rows from the bottom.
    struct Part {
        int left, bottom, width, height;
    };
    Part seen() const;

    // Puts it in force with what is broken, or with what was broken last; false for no such fault.
    bool apply(const std::string& faults);
    bool apply() { return apply(faultLines); }
    std::map<std::string, std::string> amplifierFields() const; // of the set-up, for who types them
    std::string setUpFile() const;                              // Setup.ini

private:
    void draw();
    void drawLens();
    void drawDrive(int axis);
    void drawBoard();
    std::string lines() const; // of the laboratory's text file; each ends

    std::string faultLines;
};
