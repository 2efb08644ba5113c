// A whole map with each kind of instrument: value, unit and scale, the bias before and after.
#include "tests/simulation/road.h"

#include "instruments/ammeter.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "platform/text_format.h"
#include "ui/control_ids.h"

#include <algorithm>
#include <cmath>

namespace {

struct Instrument {
    int kind;
    LabInstrument who;
    int gpibAddress;
    double scale; // of the map's values to amperes or volts
    bool source;
};

class InstrumentMapTest : public RoadTest, public testing::WithParamInterface<Instrument> {
protected:
    static constexpr double bias = 0.5; // V

    // What the map should hold at a place, before scaling.
    static double truthAt(double x, double y) {
        if (GetParam().kind == kindOscilloscope)
            return expectedVolts(x, y, scanArea.laserLevel, labStageUm(labZ));
        return expectedCurrent(x, y, scanArea.laserLevel, labStageUm(labZ),
                               GetParam().source ? bias : 0.0);
    }

    static bool agrees(double value, LabPoint place) {
        constexpr double placeTolerance = 0.02; // um
        double lowest = 1e9, highest = -1e9;
        for (double dx : {-placeTolerance, 0.0, placeTolerance})
            for (double dy : {-placeTolerance, 0.0, placeTolerance}) {
                lowest = std::min(lowest, truthAt(place.x + dx, place.y + dy));
                highest = std::max(highest, truthAt(place.x + dx, place.y + dy));
            }
        // Six times the noise: that of the scope, or of a range of 10 uA.
        const double tolerance =
            6 * (GetParam().kind == kindOscilloscope ? labScopeNoiseVolts : labRangeNoise * 1e-5);
        return value > lowest - tolerance && value < highest + tolerance;
    }
};

TEST_P(InstrumentMapTest, HoldsTheLandscape) {
    const Instrument& instrument = GetParam();
    writeDesktopFile(
        "KST_Data/Config.txt",
        formatted("step:2.5, laser:4.00, laser correct:(640,500), Ammeter:%d, GPIB:%d, "
                  "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                  instrument.kind, instrument.gpibAddress));
    if (instrument.kind == kindOscilloscope) applyLabFaults("k2450 absent");
    instrumentLink.biasVoltage = static_cast<float>(bias);
    double biasInScan = -1;
    when([] { return textIn(Field::Progress) == "Mapping: 50% done"; },
         [&] { biasInScan = labBiasVolts(); });
    if (instrument.kind == kindAnalyzerGpib) {
        // At start-up it is opened over the network whatever its kind; the operator reconnects it.
        when([] { return timerRuns(); },
             [] { postCall([] { connectInstrument(kindAnalyzerGpib); }); });
        answer("Parameter Analyzer 4200 connected via GPIB", BoxAnswer::Ok);
    }
    runRoad(20, 15);

    int wrong = 0;
    for (int column = 0; column < scanArea.cols; ++column)
        for (int row = 0; row < scanArea.rows; ++row) {
            const double value =
                static_cast<double>(scanMap.maps[planePhotocurrent][static_cast<size_t>(column)]
                                                [static_cast<size_t>(row)]) /
                instrument.scale;
            const LabPoint place = placeOfCell(column, row);
            if (!agrees(value, place) && ++wrong < 5)
                ADD_FAILURE() << column << "," << row << " holds " << value << ", truth "
                              << truthAt(place.x, place.y);
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(biasInScan, instrument.source ? bias : 0.0);
    EXPECT_EQ(labBiasVolts(), 0.0);
    EXPECT_EQ(labInstrumentErrors(instrument.who), std::vector<std::string>{});
    EXPECT_EQ(labCounters().networkLinks, instrument.kind == kindAnalyzerGpib ? 1u : 0u);

    const std::vector<std::string>& labels = historyOf(Field::UnitLabel);
    ASSERT_FALSE(labels.empty());
    EXPECT_EQ(labels.back(), instrument.kind == kindOscilloscope ? "V_ph (V)" : "I_ph (uA)");
    EXPECT_NE(sessionFile("Kestrel").find("Bias0.5V.txt"), std::string::npos);
    if (instrument.kind == kindGpibSourcemeter) {
        EXPECT_EQ(labInstrumentCommands(labSourcemeter).back(), ":OUTP OFF");
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, InstrumentMapTest,
                         testing::Values(Instrument{2, labMultimeter, 18, 1e6, false},
                                         Instrument{3, labSourcemeter, 24, 1, true},
                                         Instrument{4, labUsbSourcemeter, 18, 1e6, true},
                                         Instrument{5, labScope, 18, 1, false},
                                         Instrument{6, labAnalyzer, 18, 1, true},
                                         Instrument{7, labAnalyzer, 17, 1, true}),
                         [](const testing::TestParamInfo<Instrument>& info) {
                             return "Kind" + std::to_string(info.param.kind);
                         });

// Each fault strikes in the middle of a map: it ends, is saved, and the output is at 0 V.
class InstrumentFaultTest : public RoadTest, public testing::WithParamInterface<const char*> {};

TEST_P(InstrumentFaultTest, EndsAndSaves) {
    writeDesktopFile("KST_Data/Config.txt",
                     "step:3.0, laser:4.00, laser correct:(640,500), Ammeter:3, GPIB:24, "
                     "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n");
    when([] { return labMeasurements().size() >= 5; },
         [] { ASSERT_TRUE(applyLabFaults(GetParam())); });
    testing::internal::CaptureStdout();
    runRoad(9, 6);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(numbersOf(contentOf(sessionFile("Kestrel"))).size(),
              static_cast<size_t>(scanArea.rows));
    EXPECT_EQ(labLaserPwm(), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, InstrumentFaultTest,
                         testing::Values("gpib error", "gpib absent", "sourcemeter absent",
                                         "sourcemeter stuck", "sourcemeter silent",
                                         "sourcemeter garbage", "sourcemeter unterminated"));

} // namespace
