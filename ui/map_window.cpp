// Reads the map under the cursor and steers on it.
#include "ui/map_window.h"

#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/picture.h"
#include "mapping/click_positioning.h"
#include "mapping/map_place.h"
#include "mapping/map_rendering.h"
#include "platform/truncate.h"
#include "screen/screen.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "ui/area_choice.h"
#include "ui/commands.h"
#include "ui/profile_window.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace {

// What the mouse is in the middle of on a map.
struct MapHand {
    WindowHandle over = nullptr; // the window that the cursor is in; null: none
    std::string plainTitle;      // of that window
    std::string title;           // that stands there instead
    MapPoint at;                 // in the map
    bool hasCross = false;
    std::optional<MapButton> drag; // under way, with that button
    PixelPoint from, to;
};
MapHand hand;

int channelIn(WindowHandle window) {
    if (window != windows.map) return scanMap.views.confocalChannel;
    return shownMapChannel();
}

// While a file's map is shown, the other window shows another one: nothing is read or chosen there.
bool isReadable(WindowHandle window) {
    return window == windows.map || !shownFileMap();
}

constexpr int longestTitle = 300;

void drawCross(ContextHandle picture) {
    if (!whyNoPlace().empty()) return; // the map that it was on may be gone
    constexpr int arm = 8, gap = 2;    // pixels; what it is about stays free
    const PicturePlace at = onPicture(placeOf(hand.at));
    const int x = truncated(at.x), y = truncated(at.y);
    if (!(std::fabs(at.x) < 1e6 && std::fabs(at.y) < 1e6) || !inPicture(x, y)) return;
    for (const auto& [colour, shift] : {std::pair<Colour, int>(0, 1), {markGreen, 0}}) {
        drawLine(picture, x - arm, y + shift, x - gap, y + shift, colour);
        drawLine(picture, x + gap + 1, y + shift, x + arm + 1, y + shift, colour);
        drawLine(picture, x + shift, y - arm, x + shift, y - gap, colour);
        drawLine(picture, x + shift, y + gap + 1, x + shift, y + arm + 1, colour);
    }
}

// The live view's next frame comes by itself.
void refreshPicture() {
    if (!liveViewIsOn() && windows.main) onPaint();
}

void showCross(bool shown) {
    if (!shown && !hand.hasCross) return;
    hand.hasCross = shown;
    display.pointer = shown ? drawCross : nullptr;
    refreshPicture();
}

void read(WindowHandle window, int x, int y) {
    if (window != hand.over) {
        leaveMap();
        hand.over = window;
        session.atProcessBegin = leaveMap; // a key or a script may begin it
        hand.title.clear();
        hand.plainTitle.clear();
    }
    // Another map may be shown there by now.
    if (const std::string title = windowText(window, longestTitle); title != hand.title)
        hand.plainTitle = title;
    const std::optional<MapPoint> point = isReadable(window) ? mapPointAt(x, y) : std::nullopt;
    if (!point) {
        setWindowText(window, (hand.title = hand.plainTitle).c_str());
        return showCross(false);
    }
    hand.at = *point;
    hand.title = cellText(cellAt(*point), channelIn(window));
    setWindowText(window, hand.title.c_str());
    showCross(whyNoPlace().empty());
}

void invertDrag() {
    if (hand.over != windows.map && hand.over != windows.confocal) return; // gone
    const WindowContext map(hand.over);
    if (!map.context) return;
    if (hand.drag == MapButton::Right)
        return invertLine(map.context, hand.from.x, hand.from.y, hand.to.x, hand.to.y);
    invertRectangle(map.context, std::min(hand.from.x, hand.to.x), std::min(hand.from.y, hand.to.y),
                    std::max(hand.from.x, hand.to.x), std::max(hand.from.y, hand.to.y));
}

void endDrag() {
    if (hand.drag) invertDrag();
    hand.drag.reset();
}

// The part of the map between two of its points, with the step as it stands.
void askForPart(MapPoint a, MapPoint b) {
    const std::string why = whyNoPlace();
    if (!why.empty()) return showInformation(why.c_str());
    const double step = shownArea().scanStep;
    const MapPoint lowerLeft{std::min(a.column, b.column), std::max(a.row, b.row)};
    const SamplePart part{placeOf(lowerLeft), std::fabs(a.column - b.column) * step,
                          std::fabs(a.row - b.row) * step};
    if (const std::string lost = whyLost(part); !lost.empty())
        return showInformation(("The map's place: " + lost).c_str());
    if (!areaConfirmed(part.widthUm, part.heightUm) || !windows.main) return;
    if (processUnderWay()) return refuseForProcess();
    switchLiveView(LiveView::Off); // what is shown of the area stays
    ScanArea area{
        .scanStep = scanArea.scanStep, .placed = true, .part = part, .mapMaxPx = scanArea.mapMaxPx};
    takeScanArea(area);
}

// The operator is there; a notice that he has not read stays.
void noteOperator() {
    const bool noticeStands = liveViewState.noticeStands;
    resetIdle();
    liveViewState.noticeStands = noticeStands;
}

} // namespace

void leaveMap() {
    endDrag();
    if (WindowHandle left = std::exchange(hand.over, nullptr))
        if ((left == windows.map || left == windows.confocal) &&
            windowText(left, longestTitle) == hand.title)
            setWindowText(left, hand.plainTitle.c_str());
    showCross(false);
}

void onMapMouseMove(WindowHandle window, int x, int y, bool leftHeld, bool rightHeld) {
    if (processUnderWay()) return leaveMap();
    noteOperator();
    read(window, x, y);
    if (!hand.drag) return;
    // It went up where this window did not hear of it.
    if (!(hand.drag == MapButton::Left ? leftHeld : rightHeld)) return endDrag();
    invertDrag();
    hand.to = {x, y};
    invertDrag();
}

void onMapLeave(WindowHandle window) {
    if (window == hand.over && !hand.drag) leaveMap(); // a drag may go past the edge
}

void onMapButtonDown(WindowHandle window, MapButton button, int x, int y) {
    if (processUnderWay()) return leaveMap();
    resetIdle();
    read(window, x, y);
    endDrag();
    if (!isReadable(window) || !mapPointAt(x, y)) return;
    hand.drag = button;
    hand.from = hand.to = {x, y};
    invertDrag();
}

void onMapButtonUp(WindowHandle window, MapButton button, int x, int y) {
    if (hand.drag != button || window != hand.over) return;
    endDrag();
    if (processUnderWay()) return leaveMap();
    const int size = std::max(std::abs(x - hand.from.x), std::abs(y - hand.from.y));
    const std::optional<MapPoint> a = clampedMapPointAt(hand.from.x, hand.from.y);
    const std::optional<MapPoint> b = clampedMapPointAt(x, y);
    if (size <= largestClickPx || !a || !b) return;
    leaveMap(); // a window comes over it
    if (button == MapButton::Left)
        askForPart(*a, *b);
    else
        showProfile(profileAlong(*a, *b, channelIn(window)));
}

void onMapDoubleClick(WindowHandle window, int x, int y) {
    if (processUnderWay()) return leaveMap();
    resetIdle();
    endDrag();
    const std::optional<MapPoint> point = mapPointAt(x, y);
    if (!point || !isReadable(window)) return;
    if (window != windows.map && window != windows.confocal) return;
    leaveMap();
    if (stageIsMoving()) return showInformation("Not while the stage moves");
    const std::string why = whyNoPlace();
    if (!why.empty()) return showInformation(why.c_str());
    moveToPlace(placeOf(*point));
}

void onMapPainted(WindowHandle window) {
    if (hand.drag && window == hand.over) invertDrag();
}
