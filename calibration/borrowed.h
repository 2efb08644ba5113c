// What a calibration takes of the set-up for a while, and gives back.
#pragma once

#include "calibration/phase_correlation.h"
#include "camera/adjustment.h"
#include "session/outcome.h"

#include <functional>
#include <string>

// Is called between the steps of a calibration: what it does, and how many steps of that are done.
using CalibrationProgress = std::function<void(const std::string& words, int done, int of)>;

enum class Lights { Lamp, Laser, Dark };

// The lights, the camera's exposure and, where it moves, the stage's place. giveBack, which is to
// be called whatever comes, says in the outcome what could not be given back. The laser stays off
// where it was stopped, or where somebody else has switched it meanwhile (the operator, the board's
// interlock); where the computer sleeps the lamp stays off, too, and the stage where it is.
class BorrowedSetUp {
public:
    explicit BorrowedSetUp(CalibrationProgress tellProgress);

    void light(Lights lights);
    // Lets an automatic exposure come to rest on the picture, and holds it from then on. False when
    // a stop was asked for.
    bool letExposureSettle() const;
    // What the stage has moved from is where it goes back to, coming from below by `runInUm`.
    void stageWillMove(double runInUm);
    bool goBack();
    void tell(const std::string& words, int done, int of) const;

    void giveBack(Outcome& outcome);

private:
    bool laserIsOthers() const;

    const CalibrationProgress progress;
    const bool laserWasOn, lampWasOn;
    const CameraAdjustment adjustment;
    double x = 0.0, y = 0.0; // um
    double runIn = 0.0;
    bool stageMoves = false;
    bool ranIn = true;
    bool laserByUs = laserWasOn; // as last switched here
};

// Waits; false when a stop was asked for.
bool waitUnlessStopped(uint32_t ms);

// Runs it as a process (session/process.h) with the live view off, which comes back as it was.
// Where another one or a move of the stage is under way it is refused, and says so:
// ProcessEnd::Declined.
Outcome runCalibration(const char* name, const std::function<Outcome()>& work);

// Ends by what came: that the operator stopped it, or `endedBy`.
Outcome calibrationOutcome(const std::string& name, const std::string& endedBy);

// A fresh picture, which the window shows; nothing when the camera gave none.
GreyPicture takePicture();

// Of the display picture, what the camera sees.
PicturePart seenPart();
