// Changes the objective.
#include "ui/objective.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "session/set_up.h"

#include <cmath>
#include <utility>

namespace {

// As the operator calls it.
std::string nameOf(const Objective& objective, int32_t number) {
    return objective.name.empty() ? formatted("objective %d", number) : objective.name;
}

// Whoever comes back to an objective finds the spot where it was. One that was only taken over from
// another objective is not its own.
void keepSpotOfTheOneBefore(SetUp& of) {
    const PicturePoint spot = cameraState.laserOffset;
    Objective& objective = of.objective();
    for (const Objective& other : of.objectives)
        if (!objective.hasSpot() && other.spotColumn == spot.x && other.spotRow == spot.y) return;
    if (spot.x == 0 && spot.y == 0) return; // nobody has set one
    if (spot.x < 0 || spot.x >= imageWidth || spot.y < 0 || spot.y >= imageHeight) return;
    objective.spotColumn = spot.x;
    objective.spotRow = spot.y;
}

bool wantsToFocus(const std::string& name, double um) {
    return std::fabs(um) > 0.0 && stageZ.axisNumber != 0 &&
           showMessageBox(
               windows.main,
               formatted("Move Z by %+.1f um, to the focus of %s?", um, name.c_str()).c_str(),
               "Objective", BoxButtons::YesNo) == BoxAnswer::Yes;
}

} // namespace

std::vector<std::string> objectiveNames() {
    std::vector<std::string> names;
    for (const Objective& objective : setUp.objectives) {
        const auto number = static_cast<int32_t>(names.size() + 1);
        std::string name = formatted("&%d  ", number);
        for (const char letter : nameOf(objective, number))
            name += letter == '&' ? std::string("&&") : std::string(1, letter);
        names.push_back(std::move(name));
    }
    return names;
}

void takeScanAreaAway() {
    const double step = scanArea.scanStep;
    const int32_t mapMaxPx = scanArea.mapMaxPx;
    scanArea = {.scanStep = step, .mapMaxPx = mapMaxPx};
    display.drawnRectangle = {};
    computeScanArea(scanArea);
    allocateMaps();
}

void chooseObjective(int32_t number) {
    if (number == setUp.objectiveInUse || number < 1 ||
        static_cast<size_t>(number) > setUp.objectives.size())
        return;
    SetUp changed = setUp;
    keepSpotOfTheOneBefore(changed);
    const double wayUm =
        changed.objectives[static_cast<size_t>(number - 1)].focusUm - changed.objective().focusUm;
    changed.objectiveInUse = number;
    const bool written = keepSetUp(changed);
    const Objective& objective = setUp.objective();
    if (objective.hasSpot()) cameraState.laserOffset = {objective.spotColumn, objective.spotRow};
    takeScanAreaAway();
    switchLiveView(LiveView::On); // also ends a wide view through the other one
    const std::string name = nameOf(objective, number);
    const std::string words = "Objective: " + name + ", the scan area is taken away" +
                              (objective.hasSpot() ? "" : ", its laser spot is not known yet") +
                              (std::isfinite(setUp.ranges[2].highest)
                                   ? "; the highest Z is that of the one before, set it again"
                                   : "") +
                              (written ? "" : "; Setup.ini was not written, it holds for this run");
    logEvent(words);
    showInformation(words.c_str());
    if (wantsToFocus(name, wayUm)) {
        moveBy(stageZ, wayUm);
        refreshPositions();
    }
}
