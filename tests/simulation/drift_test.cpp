// A sample that drifts on the stage in a night: what is said of it, and what the maps show.
#include "tests/simulation/saved_map.h"

#include "camera/camera.h"
#include "camera/live_view.h"
#include "instruments/ammeter.h"
#include "instruments/kinds.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "lists/drift.h"
#include "lists/list_run.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

namespace {

class DriftTest : public ConnectedTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ConnectedTest::SetUp());
        cameraState.laserOffset = {labSpotPixel().column, labSpotPixel().row};
        answer("", BoxAnswer::Ok); // that it is connected
        connectInstrument(kindUsbSourcemeter);
        setLaserOutput(1);
        switchLiveView(LiveView::On);
    }

    static ListPlace placeHere() {
        ListPlace place{.list = {.rows = {ListRow()}},
                        .done = {0},
                        .homeX = ofController(stageX, stageX.positionUm),
                        .homeY = ofController(stageY, stageY.positionUm),
                        .homeZ = ofController(stageZ, stageZ.positionUm)};
        EXPECT_TRUE(beginListRecord(place));
        return place;
    }

    static std::string look(DriftWatch& watch, const ListPlace& place) {
        Outcome outcome;
        runProcess("Scan list", [&] {
            watch.look(place, outcome);
            return outcome;
        });
        EXPECT_TRUE(outcome.isSound()) << outcome.words();
        return watch.words();
    }

    // As the laboratory has drifted since; the stage and the sample's own drift were 0 then.
    static void expectSeen(const DriftWatch& watch) {
        ASSERT_TRUE(watch.drift()) << watch.words();
        EXPECT_NEAR(watch.drift()->x, labDriftUm().x, 0.2);
        EXPECT_NEAR(watch.drift()->y, labDriftUm().y, 0.2);
    }

    // Four repeats of a map over three hours, in which the sample drifts by some um.
    static void runNight(bool follows, const std::string& knock = "", double besideUm = -8.0) {
        const std::string drifts = "sample drifts 1.5 -0.7\n";
        ASSERT_TRUE(applyLabFaults(drifts));
        ScanList list{.name = "night", .followsDrift = follows};
        ListRow& row = list.rows.emplace_back();
        row.xUm = ofController(stageX, stageX.positionUm + besideUm);
        row.yUm = ofController(stageY, stageY.positionUm - 6);
        row.columns = 6;
        row.rows = 4;
        row.stepUm = 3.0;
        row.biasVolts = 0.4;
        row.limitAmperes = 1e-3;
        row.repeats = 4;
        row.everyMinutes = 60;
        if (!knock.empty()) in(100 * 60000.0, [=] { ASSERT_TRUE(applyLabFaults(drifts + knock)); });
        deadlineMs *= 3;
        answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes);
        runProcess("Scan list", [&] { return startScanList(list); });
        EXPECT_NE(record().find("Scan list finished"), std::string::npos) << record();
    }

    static std::string record() {
        for (const std::string& name : filesOnDesktop())
            if (name.find("Scan lists/night-") != std::string::npos && name.ends_with(".txt"))
                return contentOf(name);
        return {};
    }

    static std::vector<SavedMap> maps() {
        std::vector<SavedMap> all;
        std::istringstream lines(record());
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with("1\t")) all.emplace_back(line.substr(line.rfind('\t') + 1) + "/");
        EXPECT_EQ(all.size(), 4u) << record();
        return all;
    }

    // Behind a point of the first map.
    static void pauseOnce(const char* at, double minutes) {
        when([=] { return textIn(Field::Progress).starts_with(at); },
             [=] {
                 askForPause(PauseBehind::Point);
                 in(minutes * 60000.0, [] { askForPause(PauseBehind::Nothing); });
             });
    }

    // Cells that are not what the sample has within 0.3 um of where they lay in the first map,
    // moved by `by`; of those from one to another in the order of the scan.
    static int wrongCells(const SavedMap& map, const SavedMap& first, LabPoint by = {},
                          int from = 0, int to = 24) {
        int wrong = 0;
        for (int row = 0; row < map.rows; ++row)
            for (int column = 0; column < map.columns; ++column) {
                const int order = (map.rows - 1 - row) * map.columns + column;
                if (order < from || order >= to) continue;
                const LabPoint at = first.placeOf(column, row);
                double lowest = 1e9, highest = -1e9;
                for (const double dx : {-0.3, 0.0, 0.3})
                    for (const double dy : {-0.3, 0.0, 0.3}) {
                        const double amperes =
                            expectedCurrent(at.x + by.x + dx, at.y + by.y + dy,
                                            laserLink.laserLevel, labStageUm(labZ), 0.4);
                        lowest = std::min(lowest, amperes);
                        highest = std::max(highest, amperes);
                    }
                const double value = map.value(0, column, row);
                const double tolerance = 2e-9 + 0.005 * std::fabs(highest);
                const bool right = value > lowest - tolerance && value < highest + tolerance;
                wrong += map.masked(0, column, row) || !right;
            }
        return wrong;
    }
};

TEST_F(DriftTest, WithoutFollowingTheLaterMapsAreOfAnotherPlaceAndSaySo) {
    runNight(false);
    const std::vector<SavedMap> all = maps();
    for (const size_t hour : {0, 1, 2, 3}) {
        double x = 9, y = 9;
        EXPECT_EQ(std::sscanf(all[hour].condition("Drift").c_str(), "X %lf, Y %lf", &x, &y), 2);
        const auto hours = static_cast<double>(hour);
        EXPECT_NEAR(x, 1.5 * hours, 0.3) << all[hour].condition("Drift");
        EXPECT_NEAR(y, -0.7 * hours, 0.3);
        EXPECT_EQ(wrongCells(all[hour], all[0], {-x, -y}), 0);
    }
    EXPECT_GT(wrongCells(all[3], all[0]), 12);
    EXPECT_NE(record().find("row 1, repeat 4: drift X +4."), std::string::npos) << record();
    EXPECT_EQ(record().find("not followed"), std::string::npos);
}

TEST_F(DriftTest, WithFollowingEachMapIsOfTheSamePlaceUntilSomebodyKnocksTheSample) {
    runNight(true, "sample shifted 15 0\n");
    const std::vector<SavedMap> all = maps();
    EXPECT_EQ(wrongCells(all[0], all[0]), 0);
    EXPECT_EQ(wrongCells(all[1], all[0]), 0) << all[1].condition("Drift");
    EXPECT_NEAR(all[1].placeOf(0, 0).x - all[0].placeOf(0, 0).x, 1.5, 0.25);
    for (const size_t hour : {2, 3}) {
        const std::string drift = all[hour].condition("Drift");
        EXPECT_NE(drift.find(", followed by X +1."), std::string::npos) << drift;
        EXPECT_GT(wrongCells(all[hour], all[0]), 12) << "it stays where it had followed to";
    }
    EXPECT_NE(record().find("Drift of 16."), std::string::npos) << record();
    EXPECT_NE(record().find("Drift not followed: 2"), std::string::npos);
}

// For two hours in the middle of a row: the look goes to where the list began, from which the row
// is come to from above, and back without a trace of the play.
TEST_F(DriftTest, TheRestOfAMapBehindAPauseIsOfWhereTheSampleLiesThen) {
    for (const bool follows : {true, false}) {
        pauseOnce("Mapping: 37%", 120);
        runNight(follows);
        const std::vector<SavedMap> all = maps();
        const std::string paused = all[0].condition("Paused");
        EXPECT_NE(paused.find("behind row 2, point 3, 120."), std::string::npos) << paused;
        EXPECT_NE(paused.find(" min, drift X +3."), std::string::npos) << paused;
        if (follows) {
            EXPECT_NE(paused.find(", followed by X +3."), std::string::npos) << paused;
            EXPECT_EQ(wrongCells(all[0], all[0]), 0) << paused;
            EXPECT_EQ(wrongCells(all[1], all[0]), 0) << all[1].condition("Drift");
            // All of it, before and behind: three steps of the sample.
            const auto [least, most] = std::minmax_element(
                labMeasurements().begin(), labMeasurements().end(),
                [](const auto& a, const auto& b) { return a.sampleY < b.sampleY; });
            EXPECT_NEAR(most->sampleY - least->sampleY, 9.0, 0.5);
        } else {
            EXPECT_EQ(wrongCells(all[0], all[0], {}, 0, 9), 0);
            EXPECT_EQ(wrongCells(all[0], all[0], {-3.0, 1.4}, 12, 24), 0) << paused;
            EXPECT_GT(wrongCells(all[0], all[0], {}, 9, 24), 3);
        }
        ASSERT_NO_FATAL_FAILURE(TearDown());
        ASSERT_NO_FATAL_FAILURE(SetUp());
    }
}

TEST_F(DriftTest, WithoutStructureItIsUnknownAndNothingFollows) {
    moveXYTo(900, 900, motorSpeed);
    runNight(true);
    const std::vector<SavedMap> all = maps();
    for (const SavedMap& map : all) {
        EXPECT_EQ(map.placeOf(0, 0).x, all[0].placeOf(0, 0).x);
        EXPECT_TRUE(map.condition("Drift").starts_with("unknown: The picture"))
            << map.condition("Drift");
    }
    EXPECT_NE(record().find("Drift not followed: 4"), std::string::npos) << record();
}

// It is not measured where the sample lay at the begin.
TEST_F(DriftTest, ARowThatHasDriftedBeyondALimitIsDeclined) {
    setUp.ranges[0].highest = ofController(stageX, stageX.positionUm + 47.0);
    runNight(true, "", 30.0); // to 45 um
    std::vector<std::string> hows;
    std::istringstream lines(record());
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("1\t")) hows.push_back(line);
    ASSERT_EQ(hows.size(), 4u) << record();
    EXPECT_NE(hows[1].find("\tfinished, "), std::string::npos) << "with a swing beyond it";
    for (const size_t hour : {2, 3})
        EXPECT_NE(hows[hour].find("\tdeclined, Stage X: "), std::string::npos) << hows[hour];
}

// Turned and mirrored, from either side, in the laser's light too, and after a restart.
TEST_F(DriftTest, SeesItThroughAnyObjective) {
    const double um = 0.2, degrees = 4, turn = degrees * std::numbers::pi / 180;
    const std::string optics = "optics 0.2 4 mirrored\n";
    ASSERT_TRUE(applyLabFaults(optics));
    const ListPlace place = placeHere();
    DriftWatch wrong(place);
    EXPECT_EQ(look(wrong, place),
              "unknown: The picture does not move with the stage as the objective's scale says");
    static_cast<PictureScale&>(setUp.objective()) = {-um * std::cos(turn), -um * std::sin(turn),
                                                     -um * std::sin(turn), um * std::cos(turn)};
    DriftWatch watch(place);
    setLaserLevel(1);
    for (const char* shift : {"0 0", "3 -2", "9.6 9.6", "-9 -20"}) {
        ASSERT_TRUE(applyLabFaults(optics + "sample shifted " + shift));
        moveTo(stageZ, 4);
        moveXYTo(40, -20, motorSpeed); // comes back by the other side of the play
        look(watch, place);
        expectSeen(watch);
        EXPECT_NEAR(stageZ.positionUm, 0, 0.5);
    }
    EXPECT_GT(labLaserPwm(), 0);
    EXPECT_TRUE(labIlluminated());
    EXPECT_TRUE(timerRuns());

    DriftWatch again(place);
    look(again, place);
    expectSeen(again);
    setUp.objective().xPerColumn *= 2;
    EXPECT_EQ(look(again, place),
              "unknown: The objective or its scale is another one than at the list's begin");
    ASSERT_TRUE(applyLabFaults("camera absent"));
    Outcome lost; // by the first picture that does not come
    again.look(place, lost);
    EXPECT_FALSE(lost.isSound());
    EXPECT_FALSE(again.drift());
    const uint64_t moves = labCounters().moves;
    EXPECT_EQ(look(again, place), "unknown: No camera");
    EXPECT_EQ(labCounters().moves, moves);
}

// Out of focus and knocked far away: no other place that looks a little like it is taken for it.
TEST_F(DriftTest, IsUnknownRatherThanWrong) {
    ListPlace place = placeHere();
    DriftWatch watch(place);
    look(watch, place);
    expectSeen(watch);
    int seen = 0;
    for (const double z : {0, 4, 8})
        for (const char* shift : {"6 -4", "45 45", "-100 -100"}) {
            place.homeZ = ofController(stageZ, z);
            ASSERT_TRUE(applyLabFaults(std::string("sample shifted ") + shift));
            DriftWatch other(place);
            look(other, place);
            if (other.drift()) expectSeen(other);
            seen += other.drift().has_value();
        }
    EXPECT_GE(seen, 1);
}

TEST_F(DriftTest, KeepsTheFirstPictureAndTheWayItHasFollowed) {
    FirstPicture first{{70, 64, {}}, {-2310.0625, 0.1}, {0.1, 0.01, -0.01, 0.1}, 131.5};
    for (int i = 0; i < 70 * 64; ++i) first.picture.at.push_back(static_cast<float>(i % 766) / 3);
    const std::string text = textOf(first);
    const std::optional<FirstPicture> read = firstPictureOf(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->picture.at, first.picture.at);
    EXPECT_EQ(read->scale, first.scale);
    EXPECT_EQ(read->stageUm.x, first.stageUm.x);
    for (const std::string& broken :
         {text.substr(0, text.size() - 1), text + "x", std::string(),
          "P5\n# stage 1 nan um, quality 1\n" + text.substr(text.find("# sc"))})
        EXPECT_FALSE(firstPictureOf(broken));

    ListPlace place = placeHere();
    for (const double x : {1.5, -12.25}) {
        place.followed = {x, 0.5};
        ASSERT_TRUE(keepFollowed(place));
    }
    std::string fault;
    EXPECT_EQ(unfinishedList(fault)->followed.x, -12.25);
    const std::string left = "KST_Data/Scan lists/Unfinished.txt";
    writeDesktopFile(left, contentOf(left) + "#followed 3.25 1");
    ASSERT_TRUE(unfinishedList(fault)) << fault;
    EXPECT_EQ(unfinishedList(fault)->followed.x, -12.25) << "cut in the middle of a line";
    DriftWatch lost(place);
    EXPECT_EQ(look(lost, place), "unknown: The list's first picture cannot be read");
    EXPECT_NE(lost.follow(place), "");
    EXPECT_EQ(place.followed.x, -12.25) << "the stage does not go back either";
}

} // namespace
