// Asks about a scan area and takes it.
#include "ui/area_choice.h"

#include "mapping/scan_area_view.h"
#include "mapping/scan_map.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/message_box.h"
#include "ui/commands.h"

bool areaConfirmed(double widthUm, double heightUm) {
    const std::string caption = formatted("Area: %.1f um x %.1f um", widthUm, heightUm);
    return showMessageBox(windows.main, "Do you want to set it for next scan area", caption.c_str(),
                          BoxButtons::YesNo) == BoxAnswer::Yes;
}

void takeScanArea(const ScanArea& area) {
    scanArea = area;
    const int32_t minutes = computeScanArea(scanArea);
    logEvent(formatted("Scan area: %d x %d points, step %.1f um", scanArea.cols, scanArea.rows,
                       scanArea.scanStep));
    allocateMaps();
    showInformation(scanArea.isTooLarge ? "More than 36 million points: take a larger step"
                                        : formatted("%d min. expected", minutes).c_str());
    showProgress("New scan area was selected.");
    showScanArea();
    saveShownPicture("optics");
}
