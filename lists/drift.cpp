// Looks at the sample where the list began, and compares.
#include "lists/drift.h"

#include "calibration/stage_pictures.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/document.h"
#include "session/live_view_timer.h"
#include "session/process.h"
#include "session/set_up.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double runInUm = 10.0; // takes up the play, as in the calibrations

// Later pictures are taken so far beside the first one that what stands still in the picture (dust
// on the sensor) is not taken for a sample that does not drift.
constexpr double asidePx = 50.0, leastAsideUm = 1.0, mostAsideUm = 20.0;

constexpr int greyLevels = 3 * 255;

double lengthOf(StageVector um) {
    return std::hypot(um.x, um.y);
}

StageVector difference(StageVector a, StageVector b) {
    return {a.x - b.x, a.y - b.y};
}

StageVector byControllers(StageVector um) {
    return {ofController(stageX, um.x), ofController(stageY, um.y)};
}

// Z goes to where the list began, on the same road as to a row: down before X and Y, or up behind
// them. Says which axis did not come.
std::string goToHeight(const ListPlace& place, StageVector home) {
    constexpr double sameUm = 0.5;
    const double z = byProgram(stageZ, place.homeZ);
    if (stageZ.axisNumber == 0 || std::fabs(z - stageZ.positionUm) <= sameUm) return {};
    if (z > stageZ.positionUm && !moveXYTo(home.x, home.y, motorSpeed)) return missedXyText();
    return moveTo(stageZ, z) ? "" : missedText(stageZ);
}

// Where one looks beside the first place: to where the sample does not drift, or the two ways would
// cancel out.
StageVector asideOf(const PictureScale& scale, StageVector drift) {
    const double um = std::clamp(asidePx * std::max(scale.umPerColumn(), scale.umPerRow()),
                                 leastAsideUm, mostAsideUm);
    return {drift.x > 0.0 ? -um : um, drift.y > 0.0 ? -um : um};
}

// Where the first picture lies in another one, looked for about where it is expected first, and
// then everywhere. What is found has to agree with it nearly as well as two pictures of the begin
// did: out of focus, or beyond the picture's edge, some other place is always the most alike.
PictureShift shiftOf(const FirstPicture& first, const GreyPicture& now, PixelVector expected) {
    constexpr double worst = 1.0 / 8.0; // of the begin's quality: 4 um out of focus has a third
    // What stands still in the picture is not near there.
    const double within =
        0.6 * std::min(std::hypot(expected.columns, expected.rows), asidePx * 1.4);
    PictureShift near = shiftBetween(first.picture, now, {.expected = expected, .within = within});
    const double least = worst * first.quality;
    if (near.isFound() && near.quality >= least) return near;
    PictureShift far = shiftBetween(first.picture, now, {.expected = expected, .hasMoved = true});
    if (!far.isFound()) return far;
    PictureShift sure = shiftBetween(first.picture, now, {.expected = far.px, .within = 8.0});
    if (sure.isFound() && sure.quality < least)
        sure.refusal = "The picture is too unlike the list's first one";
    return sure;
}

} // namespace

std::string textOf(const FirstPicture& first) {
    const GreyPicture& picture = first.picture;
    const PictureScale& scale = first.scale;
    std::string text =
        formatted("P5\n# stage %.17g %.17g um, quality %.17g\n# scale %.17g %.17g %.17g %.17g um\n",
                  first.stageUm.x, first.stageUm.y, first.quality, scale.xPerColumn, scale.xPerRow,
                  scale.yPerColumn, scale.yPerRow) +
        formatted("%d %d\n%d\n", picture.width, picture.height, greyLevels);
    for (int32_t row = picture.height - 1; row >= 0; --row) // from the top
        for (int32_t column = 0; column < picture.width; ++column) {
            const float grey =
                picture.at[static_cast<size_t>(row) * static_cast<size_t>(picture.width) +
                           static_cast<size_t>(column)];
            const auto sum = static_cast<unsigned>(std::lround(grey * 3.0f));
            text += static_cast<char>(sum >> 8);
            text += static_cast<char>(sum & 0xFF);
        }
    return text;
}

std::optional<FirstPicture> firstPictureOf(const std::string& file) {
    keepDecimalPoint();
    FirstPicture first;
    PictureScale& scale = first.scale;
    int32_t width = 0, height = 0, levels = 0;
    int begins = 0;
    std::sscanf(
        file.c_str(), "P5 # stage %lf %lf um, quality %lf # scale %lf %lf %lf %lf um %d %d %d%n",
        &first.stageUm.x, &first.stageUm.y, &first.quality, &scale.xPerColumn, &scale.xPerRow,
        &scale.yPerColumn, &scale.yPerRow, &width, &height, &levels, &begins);
    constexpr int32_t largest = 4096; // pixels on a side
    const bool isSound = begins > 0 && levels == greyLevels && std::min(width, height) > 0 &&
                         std::max(width, height) <= largest &&
                         std::isfinite(first.stageUm.x + first.stageUm.y + first.quality);
    if (!isSound) return {};
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    const auto from = static_cast<size_t>(begins) + 1;
    if (file.size() != from + 2 * pixels) return {};
    first.picture = {width, height, std::vector<float>(pixels)};
    for (size_t i = 0; i < pixels; ++i) {
        const auto byte = [&](size_t at) { return static_cast<unsigned char>(file[at]); };
        const size_t at = from + 2 * i, across = static_cast<size_t>(width);
        const size_t row = static_cast<size_t>(height) - 1 - i / across;
        first.picture.at[row * across + i % across] =
            static_cast<float>(byte(at) * 256 + byte(at + 1)) / 3.0f;
    }
    return first;
}

DriftWatch::DriftWatch(const ListPlace& place) : lastSeen(place.followed) {
    const std::wstring path = firstPicturePath(place);
    if (const auto file = contentOfFile(path)) first = firstPictureOf(*file);
    if (!first && (fileExists(path) || lengthOf(place.followed) > 0.0))
        whyNoFirst = "The list's first picture cannot be read";
}

std::string DriftWatch::whyNotCompared(const ListPlace& place, Outcome& outcome) {
    if (std::string out = whyStageIsOut(); !out.empty()) return out;
    const StageVector home{byProgram(stageX, place.homeX), byProgram(stageY, place.homeY)};
    if (std::string missed = goToHeight(place, home); !missed.empty()) return missed;

    StagePictures pictures(runInUm);
    const auto take = [&](StageVector aside, StagePicture& into) {
        const StageVector to = difference(home, pictures.middle());
        return pictures.take({to.x + aside.x, to.y + aside.y}, into);
    };
    const auto whyNone = [&] { return pictures.failure.empty() ? "Stopped" : pictures.failure; };
    StagePicture picture;
    std::optional<FirstPicture> taken;
    if (!first) {
        if (!take({}, picture)) return whyNone();
        if (std::string plain = whyNothingToFollow(); !plain.empty()) return plain;
        taken = {picture.picture, byControllers(picture.stageUm), setUp.objective()};
    }
    const FirstPicture& before = taken ? *taken : *first;
    const PictureScale& scale = setUp.objective();
    if (before.scale != scale)
        return "The objective or its scale is another one than at the list's begin";
    const StageVector aside = asideOf(scale, lastSeen);
    if (!take(aside, picture)) return whyNone();
    // The swing of a scan starts from there, and the limits were looked at with that in mind.
    if (!moveXYTo(home.x, home.y, motorSpeed))
        return session.stopRequested ? "Stopped" : missedXyText();
    if (before.picture.width != picture.picture.width ||
        before.picture.height != picture.picture.height)
        return "The camera's picture has another size than at the list's begin";
    const StageVector way = difference(byControllers(picture.stageUm), before.stageUm);
    const PictureShift shift =
        shiftOf(before, picture.picture, scale.pixelsOf(difference(lastSeen, way)));
    if (!shift.isFound()) return shift.refusal;
    const StageVector um = scale.umOf(shift.px), drift{um.x + way.x, um.y + way.y};
    if (taken) {
        // Nothing has drifted between the two.
        if (lengthOf(drift) > 0.2 * lengthOf(aside))
            return "The picture does not move with the stage as the objective's scale says";
        taken->quality = shift.quality;
        first = std::move(taken);
        if (!writeDocument(firstPicturePath(place), textOf(*first), L"wb"))
            outcome.troubles.emplace_back("The list's first picture is not written");
    }
    seen = drift;
    lastSeen = drift;
    return {};
}

std::string DriftWatch::whyNotSeen(const ListPlace& place, Outcome& outcome) {
    BorrowedSetUp borrowed({});
    borrowed.light(Lights::Lamp);
    std::string reason = borrowed.letExposureSettle() ? whyNotCompared(place, outcome) : "Stopped";
    Outcome given{.end = processEnd()};
    borrowed.giveBack(given);
    outcome.troubles.insert(outcome.troubles.end(), given.troubles.begin(), given.troubles.end());
    return reason;
}

void DriftWatch::look(const ListPlace& place, Outcome& outcome) {
    showInformation("Comparing the sample's place with the list's first picture");
    seen.reset();
    const bool wasLive = liveViewIsOn();
    switchLiveView(LiveView::Off);
    {
        std::optional<RunningProcess> running; // unless a map holds the program
        if (session.processRunning == 0) running.emplace();
        if (running) setField(Field::StartButton, "Stop");
        connectMissingCamera();
        why = !whyNoFirst.empty()          ? whyNoFirst
              : cameraState.connected == 0 ? "No camera"
                                           : whyNotSeen(place, outcome);
        if (running) setField(Field::StartButton, "Start");
        refreshPositions();
    }
    if (windows.main && wasLive) switchLiveView(LiveView::On);
    showInformation(("Drift " + words()).c_str());
}

std::string DriftWatch::follow(ListPlace& place) const {
    if (!seen) return "Drift " + words() + ", not followed";
    const double way = lengthOf(difference(*seen, place.followed));
    if (way > mostAtOnceUm) return formatted("Drift of %.1f um at once, not followed", way);
    place.followed = *seen;
    return {};
}

std::string DriftWatch::words() const {
    return seen ? formatted("X %+.2f, Y %+.2f um since the list's first picture", seen->x, seen->y)
                : "unknown: " + why;
}
