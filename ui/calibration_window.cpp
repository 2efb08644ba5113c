// Shows the result of a calibration and has it kept.
#include "ui/calibration_window.h"

#include "camera/display.h"
#include "camera/live_view.h"
#include "camera/picture.h"
#include "platform/surface_owners.h"
#include "screen/control_ids.h"
#include "screen/dialog.h"
#include "session/process.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

CalibrationView shown;

constexpr Colour black = 0, white = colourRgb(255, 255, 255), grey = colourRgb(240, 240, 240);

// Of the picture's pixels in the control, and the other way up.
struct Placement {
    double factor = 1.0;
    int left = 0;
    int x(double column) const { return left + static_cast<int>(std::lround(column * factor)); }
    int y(double row) const {
        return static_cast<int>(std::lround((imageHeight - 1 - row) * factor));
    }
};

void drawMark(ContextHandle context, const Placement& at, const CalibrationMark& mark,
              Colour colour) {
    const int x = at.x(mark.from.columns), y = at.y(mark.from.rows);
    const int toX = at.x(mark.to.columns), toY = at.y(mark.to.rows);
    for (int beside : {0, 1}) // two pixels wide
        if (x != toX || y != toY)
            drawLine(context, x + beside, y + beside, toX + beside, toY + beside, colour);
    const int radius = std::max(2, static_cast<int>(std::lround(mark.radius * at.factor)));
    if (mark.radius > 0.0)
        drawEllipse(context, x - radius, y - radius, x + radius + 1, y + radius + 1, colour);
    if (!mark.text.empty()) drawText(context, toX + 6, toY - 6, mark.text.c_str(), colour, true);
}

void paint(WindowHandle picture) {
    const WindowContext window(picture);
    if (!window.context) return;
    const Extent room = clientExtent(picture);
    const bool plot = shown.picture.empty();
    drawFilledRectangle(window.context, 0, 0, room.width, room.height, plot ? black : grey,
                        plot ? white : grey);
    Placement at;
    at.factor = std::min(room.width / double{imageWidth}, room.height / double{imageHeight});
    const auto width = static_cast<int>(imageWidth * at.factor);
    const auto height = static_cast<int>(imageHeight * at.factor);
    at.left = (room.width - width) / 2;
    MemoryBitmap whole;
    if (!plot && whole.make(window.context, smallPictureWidth, smallPictureHeight)) {
        putPixels(whole.context, 0, 0, smallPictureWidth, smallPictureHeight, shown.picture.data());
        shrinkArea(window.context, at.left, 0, width, height, whole.context, 0, 0,
                   smallPictureWidth, smallPictureHeight);
    }
    for (const CalibrationMark& mark : shown.marks)
        drawMark(window.context, at, mark, plot ? black : markGreen);
}

void opened() {
    std::string text;
    for (const std::string& line : shown.lines) {
        if (!text.empty()) text += "\r\n";
        text += line;
    }
    setDialogText(idCalibrationText, text.c_str());
    setDialogTitle(shown.caption.c_str());
    enableInDialog(idSet, static_cast<bool>(shown.keep));
}

void onCalibrationCommand(int id) {
    resetIdle();
    if (id == idSet && processUnderWay()) return refuseForProcess(); // begun from another window
    if (id != idSet && id != idCloseDialog) return;
    const std::function<void()> keep = id == idSet ? shown.keep : std::function<void()>();
    endDialog();
    if (keep) keep();
}

constexpr DialogFace face{idCalibrationDialog,  opened,
                          onCalibrationCommand, [](int) { onCalibrationCommand(idSet); },
                          [] { return false; }, paint};

} // namespace

void showCalibration(CalibrationView view) {
    shown = std::move(view);
    runDialog(face);
    shown = {};
}

std::vector<CalibrationMark> arrowAlong(const PictureScale& scale, StageVector way,
                                        PixelVector from, double lengthPx,
                                        const std::string& name) {
    const PixelVector px = scale.pixelsOf(way);
    const double length = std::hypot(px.columns, px.rows);
    if (!(length > 0.0)) return {};
    const PixelVector unit{px.columns / length, px.rows / length};
    const PixelVector tip{from.columns + unit.columns * lengthPx, from.rows + unit.rows * lengthPx};
    std::vector<CalibrationMark> marks{{from, tip, 0.0, name}};
    constexpr double barb = 24.0;
    for (const double side : {-0.5, 0.5})
        marks.push_back({tip,
                         {tip.columns - barb * (unit.columns - side * unit.rows),
                          tip.rows - barb * (unit.rows + side * unit.columns)},
                         0.0,
                         {}});
    return marks;
}
