// Moves the stage to a clicked point.
#include "mapping/click_positioning.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/message_box.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <algorithm>
#include <utility>

namespace {

// Of a distance on the view that is shown, um.
StageVector wayOf(double dx, double dy) {
    const Objective& objective = setUp.objective();
    const int32_t viewScale = display.wideView ? display.wideFactor : 1;
    if (!objective.isStraight()) return objective.umOf({dx * viewScale, dy * viewScale});
    const float scale = static_cast<float>(objective.xPerColumn) * static_cast<float>(viewScale);
    return {static_cast<double>(static_cast<float>(dx) * scale),
            static_cast<double>(static_cast<float>(dy) * scale)};
}

// Marks the clicked point and asks what it is for.
BoxAnswer askAtPoint(int x, int row, Colour mark, const char* question, BoxButtons buttons) {
    drawCircleMark(windows.main, x, imageHeight - row, 2, mark);
    const std::string caption =
        formatted("Position: (%d,%d), Blue intensity:%u", x, row, pixelBlue(cameraImage, x, row));
    return showMessageBox(windows.main, question, caption.c_str(), buttons);
}

// What comes of a move to a point that was chosen.
void endMove(bool arrived) {
    if (!windows.main) return; // closed meanwhile
    if (!arrived) showMessageBox(windows.main, "Motor limited", "Motor error", BoxButtons::Ok);
    waitResponsive(100);
    switchLiveView(LiveView::On);
    refreshPositions();
}

// One of several objectives has its own.
void keepSpot(int column, int row) {
    if (setUp.objectives.size() == 1 && !setUp.objective().hasSpot()) return;
    SetUp changed = setUp;
    changed.objective().spotColumn = std::min(column, imageWidth - 1);
    changed.objective().spotRow = std::min(row, imageHeight - 1);
    if (!keepSetUp(changed)) showInformation("For this run only: Setup.ini was not written");
}

} // namespace

void pickLaserSpot(int x, int y) {
    const int row = imageHeight - y;
    if (!inPicture(x, row)) return;
    if (display.wideView) return showInformation("The laser spot is set on the live picture");
    const bool seen = cameraImage.sees(x, row);
    if (seen && askAtPoint(x, row, markRed, "Do you want to set the laser beam spot here?",
                           BoxButtons::YesNo) == BoxAnswer::Yes) {
        cameraState.laserOffset = {x, row};
        keepSpot(x, row);
        computeScanArea(scanArea);
    }
    switchLiveView(LiveView::On); // the button has switched it off
    if (!seen) showInformation("The camera does not see that place"); // behind a search's words
}

void moveToClickedPoint(int x, int y) {
    const int row = imageHeight - y;
    if (!inPicture(x, row)) return;
    const BoxAnswer answer =
        askAtPoint(x, row, markGreen,
                   "If you want to move this position, \n to center -> press \"YES\", or\n to "
                   "laser spot -> press \"NO\".",
                   BoxButtons::YesNoCancel);
    if (answer == BoxAnswer::None || !windows.main) return; // nobody answered
    double dx = x;
    double dy = row;
    if (answer == BoxAnswer::Yes) {
        dx -= imageWidth / 2.0;
        dy -= imageHeight / 2.0;
    } else if (answer == BoxAnswer::No) {
        dx -= cameraState.laserOffset.x;
        dy -= cameraState.laserOffset.y;
    } // Cancel moves by the clicked position itself: neither centre nor spot.

    const StageVector way = wayOf(dx, dy);
    endMove(moveXYBy(way.x, way.y, motorSpeed));
}

void moveToPlace(const SamplePlace& place) {
    const StageVector to = stageFor(place);
    for (const auto& [axis, um] :
         {std::pair<const StageAxis&, double>(stageX, to.x), {stageY, to.y}})
        if (const std::string why = beyondLimit(axis, um); !why.empty())
            return showInformation(why.c_str());
    const std::string caption = formatted("Position: X %.1f um, Y %.1f um", to.x, to.y);
    if (showMessageBox(windows.main, "Do you want to move this point under the laser spot?",
                       caption.c_str(), BoxButtons::YesNo) != BoxAnswer::Yes ||
        !windows.main || stageIsBusy())
        return;
    endMove(moveXYTo(to.x, to.y, motorSpeed));
}
