// Makes the wide view and keeps it, so that it survives what covers the window.
#include "camera/wide_view.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "motion/stage.h"
#include "platform/surface_owners.h"
#include "screen/screen.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"

#include <cmath>
#include <string>

namespace {

constexpr int tilesAcross = 3;
// From one field to the next above it, in the picture's widths: about its height.
constexpr double rowStep = 150.0 / 180.0;
constexpr Colour unseen = 0;

struct Centre {
    double x = 0.0, y = 0.0; // um
};

// The last wide view, and from where it was taken.
struct {
    MemoryBitmap mosaic;
    Centre seenFrom;
} last;

// From the edge of one tile to that of the next, so that tiles meet also where the picture's size
// is no multiple of their number.
int edge(int tile, int size, int factor) {
    return tile * size / factor;
}

bool shrinkIntoTile(ContextHandle target, const MemoryBitmap& picture, int column, int row,
                    int factor) {
    const PictureArea& seen = cameraImage.seen;
    const int left = seen.left + edge(column, seen.width, factor);
    const int bottom = seen.bottom + edge(row, seen.height, factor);
    const int right = seen.left + edge(column + 1, seen.width, factor);
    const int top = seen.bottom + edge(row + 1, seen.height, factor);
    return target &&
           shrinkArea(target, left, imageHeight - top, right - left, top - bottom, picture.context,
                      seen.left, imageHeight - seen.bottom - seen.height, seen.width, seen.height);
}

void clearMosaic() {
    const WindowContext window(windows.main);
    last.mosaic.make(window.context, imageWidth, imageHeight);
    for (const ContextHandle target : {last.mosaic.context, window.context})
        if (target) fillArea(target, imageWidth, imageHeight, unseen);
}

std::string notBack() {
    std::string text = "The stage did not come back to the wide view's centre";
    for (const StageAxis* axis : {&stageX, &stageY})
        if (axis->missed != Miss::Nothing) text += ", " + missedText(*axis);
    return text;
}

bool goToField(Centre centre, int column, int row) {
    const Objective& objective = setUp.objective();
    const PictureArea& seen = cameraImage.seen;
    StageVector way;
    if (objective.isStraight() && seen == PictureArea()) { // without a matrix's rounding
        const double fieldUm = objective.xPerColumn * imageWidth;
        way = {fieldUm * column, -(fieldUm * 150.0 / 180.0 * row)};
    } else {
        const double up = seen.height == imageHeight ? imageWidth * rowStep : seen.height;
        way = objective.umOf({double{1} * seen.width * column, -up * row});
    }
    return moveXYTo(centre.x + way.x, centre.y + way.y, motorSpeed);
}

// One field; row -1 is the upper one. False when a stop was asked for.
bool takeField(Centre centre, int column, int row, bool settle) {
    const bool there = goToField(centre, column, row);
    if (settle) waitResponsive(200);
    grabFrames(cameraState, 1);
    // A camera without a fresh frame would show another field's again.
    if (there && (cameraState.fresh || !cameraState.connected))
        drawWideTile(windows.main, cameraImage.pixels.get(), column + 1, 1 - row,
                     display.wideFactor);
    if (!there) showProgress("Motor range limited");
    refreshPositions();
    waitResponsive(1);
    return !session.stopRequested;
}

void takeFields(Centre centre) {
    for (int row = -1; row <= 1; ++row) {
        // The middle row runs back, the shorter way; only the outer rows wait for the stage to
        // settle.
        const int direction = row == 0 ? -1 : 1;
        for (int i = -1; i <= 1; ++i)
            if (!takeField(centre, direction * i, row, row != 0)) return;
    }
}

} // namespace

int drawWideTile(WindowHandle window, const uint8_t* pixels, int column, int row, int factor) {
    const WindowContext target(window);
    MemoryBitmap picture;
    if (!target.context || !pixels || !makeCameraPicture(target.context, pixels, picture) ||
        !picture.select())
        return 0;
    shrinkIntoTile(last.mosaic.context, picture, column, row, factor);
    return shrinkIntoTile(target.context, picture, column, row, factor) ? 1 : 0;
}

Outcome imageWideView() {
    const Centre centre{stageX.positionUm, stageY.positionUm};
    Outcome outcome{.lastWords = "Wide view imaging"};
    showInformation(outcome.lastWords.c_str());
    session.stopRequested = 0;
    const RunningProcess running;
    display.wideView = 1; // the scan area stays what it was on the view that it was drawn on
    display.wideFactor = tilesAcross;
    clearMosaic();
    last.seenFrom = centre;
    goToField(centre, -1, -1);
    waitResponsive(200);
    // Nine fields in one light: a bright one must not darken its neighbours.
    const bool held = holdAutomatic(cameraState);
    if (!session.stopRequested) takeFields(centre);
    if (held) resumeAutomatic(cameraState);
    display.wideView = 1; // a key that moved the stage meanwhile has shown the camera's picture
    drawWideView();
    const bool back = moveXYTo(centre.x, centre.y, motorSpeed);
    refreshPositions();
    waitResponsive(10);
    if (!back) outcome.lastWords = notBack();
    if (!back) showInformation(outcome.lastWords.c_str());
    outcome.end = processEnd();
    return outcome;
}

int wideViewImaging() {
    imageWideView();
    return 1;
}

void drawWideView() {
    const WindowContext window(windows.main);
    if (!window.context || !last.mosaic.context) return;
    copyArea(window.context, imageWidth, imageHeight, last.mosaic.context);
    drawScaleBar(window.context, imageWidth, imageHeight);
    display.drawOver(window.context);
}

bool wideViewIsElsewhere() {
    const double umPerPixel = setUp.objective().umPerColumn() * tilesAcross; // less is not seen
    return std::fabs(stageX.positionUm - last.seenFrom.x) > umPerPixel ||
           std::fabs(stageY.positionUm - last.seenFrom.y) > umPerPixel;
}

void leaveWideView() {
    display.wideView = 0;
}

void releaseWideView() {
    last.mosaic.release();
}
