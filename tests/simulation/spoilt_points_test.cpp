// Points whose number is none, or was taken in another light, and points that a stop cuts short:
// what the map, the file and the operator are told of them.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"

#include <cmath>

namespace {

class SpoiltPointsTest : public WholeRunTest {
protected:
    void choose(int kind, int readingsPerPoint) {
        writeDesktopFile("KST_Data/Options.ini",
                         formatted("readings per point = %d\n", readingsPerPoint));
        writeDesktopFile("KST_Data/Config.txt",
                         formatted("step:2.0, laser:4.00, laser correct:(640,500), Ammeter:%d, "
                                   "GPIB:%d, IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                                   kind, kind == kindGpibSourcemeter ? 24 : 18));
    }

    static size_t readings() { return labReads().size() + labMeasurements().size(); }
    static void atReading(size_t number, Action action) {
        when([number] { return readings() >= number; }, std::move(action));
    }

    static int marked(PointMark mark) {
        int count = 0;
        for (const auto& column : scanMap.marks)
            count += static_cast<int>(std::count(column.begin(), column.end(), mark));
        return count;
    }
};

TEST_F(SpoiltPointsTest, OverloadsAreMaskedCountedAndSaid) {
    for (const auto& [kind, who] : {std::pair{kindGpibMultimeter, "multimeter"},
                                    {kindUsbSourcemeter, "k2450"},
                                    {kindAnalyzerEthernet, "analyzer"},
                                    {kindArduino, "board"}})
        for (const int each : {1, 10}) {
            SCOPED_TRACE(testing::Message() << who << ", readings of a point: " << each);
            prepareWorld();
            choose(kind, each);
            const std::string fault = std::string(who) + " overload";
            const auto number = [each = static_cast<size_t>(each)](size_t reading) {
                return 1 + (reading - 1) * each; // the first of the first row is thrown away
            };
            // In the middle of the second point, as long as two single readings take.
            atReading(number(2) + 1, [=] {
                applyLabFaults(fault);
                atReading(readings() + 2, [] { applyLabFaults(""); });
            });
            runProgramOver(12, 4);
            const int overloads = marked(PointMark::Overloaded);
            EXPECT_GE(overloads, 1);
            EXPECT_LE(overloads, 3);
            const std::string said = formatted("Overload: %d from row 1, column", overloads);
            EXPECT_TRUE(textIn(Field::Information).starts_with("Mapping finished. " + said))
                << textIn(Field::Information);
            const SavedMap saved;
            EXPECT_EQ(saved.condition("Points out of the instrument's range"),
                      std::to_string(overloads));
            EXPECT_EQ(saved.condition("Points measured"),
                      std::to_string(scanArea.totalPoints - overloads));
            EXPECT_EQ(saved.condition("Trouble").find(said), 0u);
            EXPECT_EQ(saved.maskedCells(0), overloads);
            EXPECT_LT(scanMap.mapMax, kind == kindArduino ? 4.9f : 2.0f);
            for (size_t c = 0; c < scanMap.marks.size(); ++c)
                for (size_t m = 0; m < scanMap.marks[c].size(); ++m) {
                    const float value = scanMap.maps[planePhotocurrent][c][m];
                    EXPECT_TRUE(std::isfinite(value));
                    EXPECT_EQ(value > (kind == kindArduino            ? 4.99f
                                       : kind == kindAnalyzerEthernet ? 0.1f
                                                                      : 1e9f),
                              scanMap.marks[c][m] == PointMark::Overloaded);
                }
        }
}

// The operator looks at his sample in the middle of a row, and forgets it.
TEST_F(SpoiltPointsTest, AnotherLightThanTheLasersSpoilsItsPoints) {
    const struct {
        const char* name;
        int switches, back; // commands; back may be 0
        bool spoils;
    } cases[] = {{"lamp", idIlluminationOn, idIlluminationOff, true},
                 {"laser", idLaserOff, idLaserOn, true},
                 {"sample", idSampleView, idLaserView, true},
                 {"for good", idSampleView, 0, true},
                 {"as it is", idLaserView, 0, false}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        prepareWorld();
        writeSettings(2.0, false);
        size_t atSwitch = 0, atBack = 0;
        afterReadings(10, [&] { // two rows of 6 and what is thrown away before each
            atSwitch = labReads().size();
            postCommand(each.switches);
            if (each.back == 0) return;
            afterReadings(12, [&] {
                atBack = labReads().size();
                postCommand(each.back);
            });
        });
        runProgramOver(12, 6);
        const int spoilt = marked(PointMark::Unlit);
        const auto last = static_cast<int>(labReads().size());
        const int until = each.back ? static_cast<int>(atBack) + 1 : last;
        if (!each.spoils) {
            EXPECT_EQ(spoilt, 0);
            EXPECT_EQ(textIn(Field::Information), "Mapping finished");
            continue;
        }
        EXPECT_GE(spoilt, until - static_cast<int>(atSwitch) - (each.back ? 1 : 2)); // and rows
        EXPECT_LE(spoilt, until - static_cast<int>(atSwitch) + 1);
        EXPECT_EQ(
            textIn(Field::Information),
            formatted("Mapping finished. Laser off or lamp on: %d from row 2, column 3", spoilt));
        EXPECT_EQ(SavedMap().maskedCells(0), spoilt);
        EXPECT_EQ(SavedMap().condition("Points with the laser off or the lamp on"),
                  std::to_string(spoilt));
    }
}

// 5 s each: a thousand would keep the windows waiting for more than an hour.
TEST_F(SpoiltPointsTest, TheFirstSilentReadingEndsItsPoint) {
    choose(kindUsbSourcemeter, 1000);
    double brokenMs = 0;
    atReading(1500, [&] { // the first point and a half
        applyLabFaults("k2450 silent");
        brokenMs = testTimeMs();
        when([] { return marked(PointMark::Silent) == 2; }, [] { post(messageClose); });
    });
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    runProgramOver(4, 4);
    EXPECT_EQ(marked(PointMark::Measured), 1);
    EXPECT_EQ(marked(PointMark::Silent), 2);
    EXPECT_LT(testTimeMs() - brokenMs, 60e3);
    EXPECT_GT(scanMap.maps[planePhotocurrent][1][scanMap.marks[1].size() - 1], 0.0f)
        << "the readings that came";
}

TEST_F(SpoiltPointsTest, AStopInsideAPointLeavesItsCellUnmeasured) {
    choose(kindUsbSourcemeter, 100);
    atReading(1 + 250, [] { postCommand(idStart); });
    answer("Do you want to stop process, now ?", BoxAnswer::Yes);
    runProgramOver(8, 4);
    EXPECT_EQ(marked(PointMark::Measured), 2);
    EXPECT_EQ(marked(PointMark::NotMeasured), scanArea.totalPoints - 2);
    EXPECT_EQ(scanMap.maps[planePhotocurrent][2][scanMap.marks[2].size() - 1], 0.0f);
    EXPECT_EQ(SavedMap().condition("Outcome"), "stopped");
}

} // namespace
