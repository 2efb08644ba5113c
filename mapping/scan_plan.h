// A scan as a value: what it is to do, and what it was taken with.
#pragma once

#include "camera/spot.h"
#include "instruments/reading.h"
#include "mapping/occasion.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "motion/focus_plane.h"
#include "platform/clock.h"
#include "session/set_up.h"

#include <cstddef>
#include <cstdint>
#include <string>

enum class Consent {
    OfTheOperator, // is asked for before the first point
    GivenBefore,
};

// All that a scan needs to know.
struct ScanPlan {
    ScanArea area;                                      // its points, from where the stage stands
    double homeXUm = 0.0, homeYUm = 0.0, homeZUm = 0.0; // where that is
    bool zeroKnown = false; // what the controllers count where the program says 0 um:
    double zeroXUm = 0.0, zeroYUm = 0.0;
    double laserLevel = 0.0;                                // V
    double laserUaPerVolt = 4.0, laserFullScaleVolts = 5.0; // as the set-up has the laser
    double laserPowerUw = -1.0;                             // at the sample; negative: not known
    float biasVoltage = 0.0f;                               // V
    float currentLimit = 0.0f;                              // A
    int32_t ammeterKind = 0;                                // EquipmentKind, which has the unit
    bool inVolts = false;        // the instrument's values are, for want of an amplifier's V/A
    CurrentAmplifier amplifier;  // before the instrument, whose volts it made; none where not known
    InstrumentSettings settings; // what somebody has set at it; empty where it is not asked
    bool confocal = false;       // whether the colour maps are taken
    int32_t gain = 0;            // of the camera in a confocal scan, dB
    double exposureUs = 0.0;
    int32_t aperturePx = 0; // half the side of the square around the spot
    PicturePoint laserSpot; // picture pixels
    ScanOptions options;
    FocusSlopes focus;
    int32_t axisOrder = 0;                // of the controllers
    uint32_t rowSettleMs = 0;             // before a row; those of a point are in the options
    std::string setUpInForce = "default"; // its words
    Occasion occasion;
    Consent consent = Consent::OfTheOperator;

    double laserUa() const { return laserLevel * laserUaPerVolt; } // as the window shows it
    double firstXUm() const { return homeXUm + area.offsetXUm; }
    double firstYUm() const { return homeYUm + area.offsetYUm; }
    double runInUm() const { return runInOf(options, area.scanStep); }
    uint32_t beforeReadingMs() const; // as long as the instrument's filter needs
    bool hasSeveralReadings() const { return options.readingsPerPoint > 1; }
};

// The scan that "Start" starts now.
ScanPlan presentPlan();

// How long a point waits for its reading, ms.
uint32_t readingDelayMs(const ScanOptions& options, const InstrumentSettings& settings);

// Takes over what somebody has set at the instrument by now; false when it does not say.
bool askSettings(ScanPlan& plan);

// Makes the plan's settings those of the program, as if the operator had chosen them: the light,
// the bias, the camera, the options and the area. The instrument is connected by its caller.
void putInForce(const ScanPlan& plan);

// A plan that was carried out, with what is known of it.
struct ScanConditions : ScanPlan {
    std::string program; // name and version
    LocalTime started;
    std::string instrumentIdentity;                // empty when it was not asked
    double takenGain = 0.0, takenExposureUs = 0.0; // what the camera made of the plan's; 0 unknown
    bool blueOnly = false;                         // of the camera's picture
    std::string continued; // when, and behind which row, it went on; empty of a scan in one go
    std::string paused;    // when, how long and behind which point; empty without a pause
    SamplePlace home;      // where the stage stood, as homeXUm and homeYUm
};

// How the light lies over the sample in it.
StageVector lightOf(const ScanPlan& plan);

// Where the stage stands in a scan that starts or goes on now; not known of an axis that nothing
// but the program counts.
void noteHome(ScanConditions& conditions);

// Those of a measurement by this plan that starts now.
ScanConditions conditionsOf(const ScanPlan& plan);
