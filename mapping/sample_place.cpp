// Finds points of the sample again.
#include "mapping/sample_place.h"

#include "camera/camera.h"
#include "camera/display.h"
#include "mapping/gwy_reading.h"
#include "platform/text_format.h"
#include "session/set_up.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr double middleColumn = imageWidth / 2.0, middleRow = imageHeight / 2.0;

constexpr char countOfX[] = "Stage X by its controller", countOfY[] = "Stage Y by its controller",
               lightOfThen[] = "Light from the picture's middle";
constexpr char lightWords[] = "X %.6f, Y %.6f um, objective ";

bool isOfPresentObjective(const SamplePlace& place) {
    return place.objective == presentObjective();
}

// As far as one knows today.
StageVector lightOf(const SamplePlace& place) {
    return isOfPresentObjective(place) ? presentLightPlace() : place.light;
}

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

std::string whyLost(const SamplePlace& place) {
    std::string why = whyLost(stageX, place.x);
    if (why.empty()) why = whyLost(stageY, place.y);
    if (!why.empty() || isOfPresentObjective(place) || setUp.objectives.size() == 1) return why;
    return setUp.objective().hasSpot() ? "" : "the laser spot of this objective is not known yet";
}

void addPlace(Conditions& lines, const SamplePlace& home) {
    if (!home.isKnown()) return;
    lines.emplace_back(countOfX, textOf(home.x));
    lines.emplace_back(countOfY, textOf(home.y));
    lines.emplace_back(lightOfThen,
                       formatted(lightWords, home.light.x, home.light.y) + home.objective);
}

SamplePlace placeIn(const Conditions& lines) {
    SamplePlace home{axisCountIn(valueIn(lines, countOfX)), axisCountIn(valueIn(lines, countOfY))};
    const std::string light = valueIn(lines, lightOfThen);
    int objectiveAt = 0;
    const int taken = std::sscanf(light.c_str(), "X %lf, Y %lf um, objective %n", &home.light.x,
                                  &home.light.y, &objectiveAt);
    if (objectiveAt > 0) home.objective = light.substr(static_cast<size_t>(objectiveAt));
    return taken == 2 && std::isfinite(home.light.x + home.light.y) ? home : SamplePlace();
}

StageVector stageFor(const SamplePlace& place) {
    const StageVector then = lightOf(place), now = presentLightPlace();
    return {umOf(stageX, place.x) + (then.x - now.x), umOf(stageY, place.y) + (then.y - now.y)};
}

PicturePlace onPicture(const SamplePlace& place) {
    const StageVector light = lightOf(place);
    const StageVector fromMiddle = {umOf(stageX, place.x) + light.x - stageX.positionUm,
                                    umOf(stageY, place.y) + light.y - stageY.positionUm};
    const PixelVector px = setUp.objective().pixelsOf(fromMiddle);
    const double shrunk = display.wideView ? display.wideFactor : 1;
    return {middleColumn + px.columns / shrunk, middleRow - px.rows / shrunk};
}
