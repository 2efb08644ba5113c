// Draws the scan area on the picture.
#include "mapping/scan_area_view.h"

#include "camera/display.h"
#include "camera/live_view.h"
#include "mapping/scan_area.h"
#include "platform/surface_owners.h"
#include "screen/screen.h"

#include <iterator>

namespace {

constexpr uint64_t onNoFrame = UINT64_MAX;

uint64_t shownOn = onNoFrame; // number of the frame that it was drawn on

// The points' outline, as it lies on the picture.
void outlinePoints(ContextHandle view) {
    const ScanArea area = presentArea();
    const double column = area.cols - 1, row = area.rows - 1;
    const PixelPoint corners[] = {pointOnPresentView(area, 0, 0),
                                  pointOnPresentView(area, column, 0),
                                  pointOnPresentView(area, column, row),
                                  pointOnPresentView(area, 0, row), pointOnPresentView(area, 0, 0)};
    drawLines(view, corners, static_cast<int>(std::size(corners)), markGreen);
}

} // namespace

void showScanArea() {
    shownOn = liveViewState.framesShown;
    scanArea = presentArea();
    const WindowContext view(windows.main);
    if (!view.context) return;
    if (scanArea.placed || !scanArea.picture.isStraight()) return outlinePoints(view.context);
    const PixelPoint from = onPresentView(scanArea, scanArea.rectX1, scanArea.rectY1);
    const PixelPoint to = onPresentView(scanArea, scanArea.rectX2, scanArea.rectY2);
    drawRectangle(view.context, from.x, from.y, to.x, to.y, markGreen);
}

void repaintScanArea() {
    if (shownOn == liveViewState.framesShown) showScanArea();
}
