// A tilted sample, mapped with Z along its plane and without.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "lists/list_run.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_continuation.h"
#include "mapping/scan_map.h"
#include "motion/places.h"
#include "motion/stage.h"
#include "motion/travel.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "session/set_up.h"
#include "ui/commands.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>

namespace {

// A scan that begins 150 um beside the flake, and ends on it.
struct Road {
    const char* faults;
    double homeX, homeY;
    int cols, rows;
};
constexpr Road alongRows = {"sample tilted -1 0.2\nboard quiet", -150, 0, 85, 2};
constexpr Road acrossRows = {"sample tilted 0.1 1\nboard quiet", 0, -150, 2, 80};

class FocusPlaneTest : public WholeRunTest {
protected:
    static double heightAt(double x, double y) {
        return surfaceHeightAt(x, y) - surfaceHeightAt(0, 0);
    }

    // An operator who has found the focus beside the scan's start and on the flake.
    static void followPlane(const Road& road) {
        const double dx = road.homeX == 0 ? 12 : 0, dy = road.homeY == 0 ? 12 : 0;
        for (const auto& [x, y] : {std::pair(road.homeX - dx, road.homeY - dy),
                                   {road.homeX + dx, road.homeY + dy},
                                   {0.0, 0.0}}) {
            std::string fault;
            Place place = presentPlace(fault).value_or(Place());
            place.counts = {countOf(stageX, ofController(stageX, x)),
                            countOf(stageY, ofController(stageY, y)),
                            countOf(stageZ, ofController(stageZ, heightAt(x, y)))};
            place.isFocus = true;
            EXPECT_TRUE(writePlace(place));
        }
        onCommand(idPlaces);
        onToolCommand(toolWindows.back(), idPlacesMakePlane);
        onCommand(idFollowFocus);
    }

    static ScanPlan planOf(const Road& road, double step = 2.0) {
        EXPECT_EQ(travelTo({road.homeX, road.homeY, heightAt(road.homeX, road.homeY)}), "");
        ScanPlan plan = presentPlan();
        plan.consent = Consent::GivenBefore;
        plan.area = {.scanStep = step, .placed = true, .cols = road.cols, .rows = road.rows};
        computeScanArea(plan.area, plan.laserSpot, plan.confocal);
        return plan;
    }

    static Outcome scan(const ScanPlan& plan) {
        const RunningProcess running;
        return runScan(plan);
    }

    void run(const Road& road, const std::function<void()>& work) {
        ASSERT_TRUE(applyLabFaults(road.faults));
        writeSettings(2.0, false);
        when([] { return timerRuns(); },
             [work] {
                 postCall([work] {
                     work();
                     post(messageClose);
                 });
             });
        EXPECT_EQ(runProgram(1), 0);
    }

    // What the flake's cells have of the current in focus: lowest and highest. `beside` is how far
    // from the surface the play of Z lets it be, um.
    static std::pair<double, double> partsOnFlake(double beside) {
        std::pair<double, double> parts(9, 0);
        const ScanConditions& scan = *scanMap.conditions;
        for (int column = 0; column < scan.area.cols; ++column)
            for (int row = 0; row < scan.area.rows; ++row) {
                const auto c = static_cast<size_t>(column), r = static_cast<size_t>(row);
                const LabPoint at = placeOn(scan, column, row);
                if (!isFlake(at) || scanMap.marks[c][r] != PointMark::Measured) continue;
                const double part = static_cast<double>(scanMap.maps[planePhotocurrent][c][r]) /
                                    expectedVolts(at.x, at.y, scan.laserLevel,
                                                  surfaceHeightAt(at.x, at.y) + beside);
                parts = {std::min(parts.first, part), std::max(parts.second, part)};
            }
        return parts;
    }
    static LabPoint placeOn(const ScanConditions& scan, int column, int row) {
        const int scanned = scan.area.rows - 1 - row;
        return {scan.firstXUm() + column * scan.area.scanStep +
                    (labSpotPixel().column - labCentreColumn) * labUmPerPixel,
                scan.firstYUm() + scanned * scan.area.scanStep +
                    (labSpotPixel().row - labCentreRow) * labUmPerPixel};
    }
    // Bright, and no edge near it.
    static bool isFlake(LabPoint at) {
        const double here = landscapeAt(at.x, at.y);
        for (const double dx : {-0.1, 0.1})
            for (const double dy : {-0.1, 0.1})
                if (std::fabs(landscapeAt(at.x + dx, at.y + dy) - here) > 0.02) return false;
        return here > 0.25 && here < 0.95;
    }

    static void expectInFocus() {
        const auto [least, most] = partsOnFlake(0.8); // as the swing leaves Z
        EXPECT_GT(least, 0.95);
        EXPECT_GT(most, 0.95) << "no cell lies on the flake";
        EXPECT_LT(most, 1.05);
    }
};

TEST_F(FocusPlaneTest, KeepsTheCurrentOfATiltedSample) {
    run(alongRows, [] {
        EXPECT_EQ(scan(planOf(alongRows, 1.9)).words(), "Mapping finished");
        EXPECT_LT(partsOnFlake(0.0).first, 0.5) << "without it most is lost";
        EXPECT_EQ(SavedMap().condition("Focus plane"), "");
        followPlane(alongRows);
        const double z = heightAt(alongRows.homeX, alongRows.homeY);
        EXPECT_EQ(scan(planOf(alongRows)).words(), "Mapping finished");
        expectInFocus();
        EXPECT_NEAR(stageZ.positionUm, z, 0.01) << "back";
        EXPECT_TRUE(scanMap.conditions->focus.follows);
    });
}

// The power goes in the middle; the next start knows of no plane. A key moves the focus meanwhile.
TEST_F(FocusPlaneTest, AContinuedScanFollowsThePlaneOfItsJournal) {
    std::string disk;
    const auto atRow = [](int row) { return labCounters().analogReads > size_t(3 * row); };
    when([&] { return atRow(10); }, [] { postKey(keyPageUp); });
    when([&] { return atRow(20); },
         [] {
             const LabPoint at = labLaserSpotSample();
             EXPECT_NEAR(labStageUm(labZ) - surfaceHeightAt(at.x, at.y), 1.8, 0.2);
         });
    when([&] { return atRow(30); }, [] { postKey(keyPageDown); });
    when([&] { return atRow(50); }, [&] { disk = copyDesktop(); });
    run(acrossRows, [] {
        followPlane(acrossRows);
        const Outcome outcome = scan(planOf(acrossRows));
        EXPECT_EQ(outcome.words(), "Mapping finished");
        expectInFocus();
    });
    prepareWorld();
    useAsDesktop(disk);
    run(acrossRows, [] {
        EXPECT_FALSE(slopesToFollow().follows) << "off after a start";
        planOf(acrossRows); // the operator brings the stage there
        const LeftJournal left = leftJournals().at(0);
        std::optional<JournaledScan> cut = readScanJournal(left);
        ASSERT_TRUE(cut);
        cut->map.conditions->consent = Consent::GivenBefore;
        ASSERT_TRUE(takeOverScan(std::move(*cut)));
        const RunningProcess running;
        EXPECT_EQ(continueScan(left).words(), "Mapping finished");
        expectInFocus();
        EXPECT_NE(SavedMap().condition("Focus plane").find("Z +0.007"), std::string::npos)
            << SavedMap().condition("Focus plane");
    });
}

TEST_F(FocusPlaneTest, ACurveOfAListIsMeasuredOnIt) {
    const auto outOfFocus = [] {
        const LabPoint at = labLaserSpotSample();
        return labStageUm(labZ) - surfaceHeightAt(at.x, at.y);
    };
    double atHome = 9, onFlake = 9;
    when([] { return labCounters().analogReads > 3; }, [&] { onFlake = outOfFocus(); });
    run(acrossRows, [&] {
        followPlane(acrossRows);
        planOf(acrossRows); // the operator brings the stage there
        atHome = outOfFocus();
        ListRow row{.kind = ListKind::Series};
        row.xUm = ofController(stageX, 0.0);
        row.yUm = ofController(stageY, 0.0); // where the plane is 2.6 um higher
        ScanList list{.rows = {row, row}};
        list.rows[1].yUm += 3000.0;
        runProcess("Scan list", [&] { return startScanList(list, Consent::GivenBefore); });
    });
    EXPECT_NEAR(onFlake, atHome, 0.8);
    EXPECT_NE(listProgress.howOf(1).find("the focus plane leads Z 59."), std::string::npos)
        << listProgress.howOf(1);
}

TEST_F(FocusPlaneTest, GoesNowhereBeyondALimit) {
    run(acrossRows, [] {
        followPlane(acrossRows);
        ScanPlan plan = planOf(acrossRows);
        setUp.ranges[2].highest = ofController(stageZ, stageZ.positionUm + 4.0); // it rises by 2.8
        EXPECT_NE(scan(plan).words().find("along the focus plane Stage Z: "), std::string::npos);
        setUp.ranges[2] = {};
        plan = planOf(acrossRows, 40.0);
        EXPECT_NE(scan(plan).words().find("leads Z 59."), std::string::npos) << scan(plan).words();
        setUp.drives[2].umPerTurn = 500;
        EXPECT_NE(scan(plan).words().find("other drives"), std::string::npos);
        setUp.drives[2] = {};
        EXPECT_EQ(labCounters().analogReads, 0u);
    });
}

TEST_F(FocusPlaneTest, PointsWithoutTheirZAreMaskedAndCounted) {
    when([] { return labCounters().analogReads > 90; },
         [] { applyLabFaults(std::string(acrossRows.faults) + "\naxis z stalled"); });
    run(acrossRows, [] {
        followPlane(acrossRows);
        const Outcome outcome = scan(planOf(acrossRows));
        EXPECT_NE(outcome.words().find("Z stalled: "), std::string::npos) << outcome.words();
        EXPECT_NE(outcome.words().find("The stage did not come back"), std::string::npos);
        const SavedMap map;
        EXPECT_EQ(map.condition("Points not reached"), std::to_string(map.maskedCells(0)));
        EXPECT_GT(map.maskedCells(0), 80);
    });
}

} // namespace
