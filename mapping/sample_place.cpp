// Finds points of the sample again.
#include "mapping/sample_place.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "session/set_up.h"

namespace {

constexpr double middleColumn = imageWidth / 2.0, middleRow = imageHeight / 2.0;

} // namespace

StageVector lightPlace(const PictureScale& picture, double correctionXUm, double correctionYUm,
                       PicturePoint laserSpot) {
    const StageVector spot = picture.umOf({laserSpot.x - middleColumn, laserSpot.y - middleRow});
    return {spot.x - correctionXUm, spot.y - correctionYUm};
}

StageVector presentLightPlace() {
    const Objective& objective = setUp.objective();
    return lightPlace(objective, objective.correctionXUm, objective.correctionYUm,
                      cameraState.laserOffset);
}

StageVector stageFor(const SamplePlace& place) {
    const StageVector now = presentLightPlace();
    return {umOf(stageX, place.x) + (place.light.x - now.x),
            umOf(stageY, place.y) + (place.light.y - now.y)};
}

PicturePlace onPicture(const SamplePlace& place) {
    const StageVector fromMiddle = {umOf(stageX, place.x) + place.light.x - stageX.positionUm,
                                    umOf(stageY, place.y) + place.light.y - stageY.positionUm};
    const PixelVector px = setUp.objective().pixelsOf(fromMiddle);
    const double shrunk = display.wideView ? display.wideFactor : 1;
    return {middleColumn + px.columns / shrunk, middleRow - px.rows / shrunk};
}
