// Follows a change of the set-up.
#include "ui/set_up_change.h"

#include "actions/settings.h"
#include "camera/camera.h"
#include "instruments/kinds.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "ui/commands.h"
#include "ui/objective.h"

#include <algorithm>
#include <utility>

namespace {

void append(std::string& words, const std::string& more) {
    if (!words.empty()) words += "; ";
    words += more;
}

// Every field that differs, as "X um per turn: 250 became 500".
std::string differenceOf(const SetUp& before, const SetUp& now) {
    const size_t most = std::max(before.objectives.size(), now.objectives.size());
    SetUp was = before, is = now;
    was.objectives.resize(most);
    is.objectives.resize(most);
    std::string words;
    if (before.objectives.size() != now.objectives.size())
        words = "objectives: " + std::to_string(before.objectives.size()) + " became " +
                std::to_string(now.objectives.size());
    for (const SetUpField& field : setUpFields(is)) {
        const std::string from = textOf(field, was), to = textOf(field, is);
        if (from == to || field.objective > static_cast<int>(now.objectives.size())) continue;
        append(words, field.name);
        words += ": ";
        words += from.empty() ? "none" : from;
        words += " became ";
        words += to.empty() ? "none" : to;
    }
    return words;
}

// What follows of other drives for the axes.
std::string followDrives(const SetUp& before) {
    std::string words;
    for (StageAxis* axis : {&stageX, &stageY, &stageZ}) {
        const size_t i = indexOf(*axis);
        if (before.drives[i] == setUp.drives[i]) continue;
        if (!followDrive(*axis)) return "\"Reconnect Stages\" is necessary";
    }
    return words;
}

// The board gives no more than that: nothing may say otherwise.
std::string followFullScale() {
    if (laserLink.laserLevel <= setUp.laserFullScaleVolts) return {};
    laserLink.laserLevel = setUp.laserFullScaleVolts;
    return "the laser intensity is now " + laserIntensityWords();
}

// Lights that are on shine as the set-up now has them; false when one stays at its old pin.
bool followLights(const SetUp& before) {
    const bool told = prepareOffCommands();
    if (before.lampOnLevel != setUp.lampOnLevel && illuminationIsOn()) setLaserOutput(1);
    if (before.laserFullScaleVolts != setUp.laserFullScaleVolts && laserIsOn()) setLaserLevel(1);
    return told;
}

void takeSpot(const SetUp& before) {
    const Objective &was = before.objective(), &is = setUp.objective();
    if (is.hasSpot() && (is.spotColumn != was.spotColumn || is.spotRow != was.spotRow))
        cameraState.laserOffset = {is.spotColumn, is.spotRow};
    computeScanArea(scanArea); // from the spot
}

// The limits that nobody has changed stay where they are on the stage: by the controller's count.
void keepLimitsInPlace(const SetUp& before, SetUp& taken) {
    const auto umPerCount = [](const AxisDrive& drive) {
        return drive.umPerTurn / drive.fullStepsPerTurn * (drive.reversed ? -1.0 : 1.0);
    };
    for (size_t i = 0; i < taken.drives.size(); ++i) {
        const double ratio = umPerCount(taken.drives[i]) / umPerCount(before.drives[i]);
        AxisRange& range = taken.ranges[i];
        if (ratio == 1.0 || !(range == before.ranges[i])) continue;
        range = {range.lowest * ratio, range.highest * ratio};
        if (ratio < 0.0) std::swap(range.lowest, range.highest);
    }
}

} // namespace

std::string setUpChanged(const SetUp& before) {
    std::string words;
    takeSpot(before);
    if (before.laserFullScaleVolts != setUp.laserFullScaleVolts)
        if (const std::string follows = followFullScale(); !follows.empty()) append(words, follows);
    if (!followLights(before)) append(words, "a light did not go off: its old pin stays in use");
    if (setUpWords(before) != setUpWords(setUp)) {
        takeScanAreaAway();
        append(words, "the scan area is taken away");
    }
    if (const std::string follows = followDrives(before); !follows.empty()) append(words, follows);
    if (before.cameraSerial != setUp.cameraSerial)
        append(words, "the camera needs \"Connect\" in the Configuration");
    if (before.sourcemeterResource != setUp.sourcemeterResource)
        append(words, "the sourcemeter needs \"initialize\" in the Configuration");
    if (before.gpibBoard != setUp.gpibBoard)
        append(words, "an instrument on GPIB needs \"initialize\" in the Configuration");
    if (before.lockInCurrentInAmperes != setUp.lockInCurrentInAmperes ||
        before.amplifierVoltsPerAmpere != setUp.amplifierVoltsPerAmpere)
        append(words, "a lock-in amplifier needs \"initialize\" in the Configuration");
    if (before.boardKeepAliveS != setUp.boardKeepAliveS) followKeepAlive();
    if (before.boardHasInterlock != setUp.boardHasInterlock) followLaserBoard();
    showScanSettings();
    setField(Field::UnitLabel, unitLabel());
    return words;
}

void tellSetUpTaken(const SetUp& before, const std::string& trouble) {
    const std::string difference = differenceOf(before, setUp);
    std::string words = "Set-up as before", follows;
    if (!difference.empty()) {
        logEvent("Set-up: " + difference);
        words = "Set-up taken";
        follows = setUpChanged(before);
    }
    if (!trouble.empty()) append(follows, trouble);
    if (!follows.empty()) words += ": " + follows;
    logEvent(words);
    showInformation(words.c_str());
}

void takeSetUp(const SetUp& changed) {
    const SetUp before = setUp;
    SetUp taken = changed;
    keepLimitsInPlace(before, taken);
    if (before.lockInCurrentInAmperes != taken.lockInCurrentInAmperes)
        taken.lockInCurrentTried = true;
    if (differenceOf(before, taken).empty()) return;
    const bool written = keepSetUp(taken);
    tellSetUpTaken(before, written ? "" : "Setup.ini was not written, it holds for this run");
}
