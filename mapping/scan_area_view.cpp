// Draws the scan area on the picture.
#include "mapping/scan_area_view.h"

#include "camera/display.h"
#include "camera/live_view.h"
#include "mapping/scan_area.h"
#include "platform/surface_owners.h"
#include "screen/screen.h"

namespace {

constexpr uint64_t onNoFrame = UINT64_MAX;

uint64_t shownOn = onNoFrame; // number of the frame that it was drawn on

} // namespace

void showScanArea() {
    shownOn = liveViewState.framesShown;
    const WindowContext view(windows.main);
    if (!view.context) return;
    const PixelPoint from = onPresentView(scanArea, scanArea.rectX1, scanArea.rectY1);
    const PixelPoint to = onPresentView(scanArea, scanArea.rectX2, scanArea.rectY2);
    drawRectangle(view.context, from.x, from.y, to.x, to.y, markGreen);
}

void repaintScanArea() {
    if (shownOn == liveViewState.framesShown) showScanArea();
}
