// A whole map with each kind of instrument: value, unit and scale, the bias before and after.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>

namespace {

struct Instrument {
    int kind;
    LabInstrument who;
    int gpibAddress;
    double scale; // of the map's values to amperes or volts
    bool source;
};

const Instrument instruments[] = {
    {2, labMultimeter, 18, 1e6, false},    {3, labSourcemeter, 24, 1, true},
    {4, labUsbSourcemeter, 18, 1e6, true}, {5, labScope, 18, 1, false},
    {6, labAnalyzer, 18, 1, true},         {7, labAnalyzer, 17, 1, true}};

constexpr double bias = 0.5; // V

class InstrumentRun : public WholeRunTest {
protected:
    // A run with an instrument and a bias is to come.
    void choose(int kind, double step) {
        instrument = instruments[kind - kindGpibMultimeter];
        writeDesktopFile(
            "KST_Data/Config.txt",
            formatted("step:%.1f, laser:4.00, laser correct:(640,500), Ammeter:%d, GPIB:%d, "
                      "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                      step, kind, instrument.gpibAddress));
        if (kind == kindOscilloscope) applyLabFaults("k2450 absent");
        instrumentLink.biasVoltage = static_cast<float>(bias);
        if (kind != kindAnalyzerGpib) return;
        // At start-up it is opened over the network whatever its kind; the operator reconnects it.
        when([] { return timerRuns(); },
             [] { postCall([] { connectInstrument(kindAnalyzerGpib); }); });
        answer("Parameter Analyzer 4200 connected via GPIB", BoxAnswer::Ok);
    }

    // What the map should hold at a place, before scaling.
    double truthAt(double x, double y) const {
        if (instrument.kind == kindOscilloscope)
            return expectedVolts(x, y, laserLink.laserLevel, labStageUm(labZ));
        return expectedCurrent(x, y, laserLink.laserLevel, labStageUm(labZ),
                               instrument.source ? bias : 0.0);
    }

    bool agrees(double value, LabPoint place) const {
        // Six times the noise: that of the scope, or of a range of 10 uA.
        const double noise =
            instrument.kind == kindOscilloscope ? labScopeNoiseVolts : labRangeNoise * 1e-5;
        return isNear(value, 6 * noise, place,
                      [this](double x, double y) { return truthAt(x, y); });
    }

    // Cells whose value is not the landscape's, of those that `chosen` wants.
    template <class Chosen> int wrongCells(Chosen chosen) const {
        int wrong = 0;
        for (int column = 0; column < scanArea.cols; ++column)
            for (int row = 0; row < scanArea.rows; ++row) {
                const double value = static_cast<double>(cell(column, row)) / instrument.scale;
                const LabPoint place = placeOfCell(column, row);
                if (chosen(column, row) && !agrees(value, place) && ++wrong < 5)
                    ADD_FAILURE() << column << "," << row << " holds " << value << ", truth "
                                  << truthAt(place.x, place.y);
            }
        return wrong;
    }

    static float cell(int column, int row) {
        return scanMap
            .maps[planePhotocurrent][static_cast<size_t>(column)][static_cast<size_t>(row)];
    }

    Instrument instrument{};
};

class InstrumentMapTest : public InstrumentRun, public testing::WithParamInterface<Instrument> {};

TEST_P(InstrumentMapTest, HoldsTheLandscape) {
    choose(GetParam().kind, 2.5);
    double biasInScan = -1;
    when([] { return textIn(Field::Progress) == "Mapping: 50% done"; },
         [&] { biasInScan = labBiasVolts(); });
    runProgramOver(20, 15);

    EXPECT_EQ(wrongCells([](int, int) { return true; }), 0);
    const bool volts = instrument.kind == kindOscilloscope;
    const SavedMap saved;
    EXPECT_EQ(saved.channels, 1);
    EXPECT_EQ(saved.unit(0), volts ? "V" : "A");
    EXPECT_EQ(saved.maskedCells(0), 0);
    saved.expectCells(0, [this](double value, LabPoint place) { return agrees(value, place); });
    EXPECT_EQ(saved.condition("Unit of the text file"), volts                   ? "V"
                                                        : instrument.scale == 1 ? "A"
                                                                                : "uA");
    EXPECT_EQ(saved.condition("Bias").starts_with("0.5 V in"), !instrument.source);
    EXPECT_EQ(saved.condition("Instrument's answer to *IDN?").find("2450") != std::string::npos,
              instrument.kind == kindUsbSourcemeter);
    EXPECT_EQ(biasInScan, instrument.source ? bias : 0.0);
    EXPECT_EQ(labBiasVolts(), 0.0);
    EXPECT_EQ(labInstrumentErrors(instrument.who), std::vector<std::string>{});
    // What stays open at exit: the end of the process closes it.
    EXPECT_EQ(labCounters().networkLinks, instrument.kind == kindAnalyzerGpib ? 1u : 0u);
    EXPECT_EQ(labCounters().gpibDescriptors, instrument.kind == kindGpibMultimeter ? 1u : 0u);
    EXPECT_EQ(labCounters().visaSessions, instrument.kind == kindUsbSourcemeter ? 2u : 0u);

    const std::vector<std::string>& labels = historyOf(Field::UnitLabel);
    ASSERT_FALSE(labels.empty());
    EXPECT_EQ(labels.back(), instrument.kind == kindOscilloscope ? "V_ph (V)" : "I_ph (uA)");
    EXPECT_NE(sessionFile("Kestrel").find("Bias0.5V.txt"), std::string::npos);
    EXPECT_FALSE(labOutputOn() && instrument.kind == kindGpibSourcemeter); // the 2450's stays on
}

// A quick instrument and a slow one; the way back to a row counts too.
TEST_F(InstrumentRun, SaysWhenTheScanWillBeDone) {
    for (const auto& [kind, step] :
         {std::pair{kindGpibMultimeter, 0.5}, {kindAnalyzerEthernet, 2.0}}) {
        SCOPED_TRACE(kind);
        prepareWorld();
        choose(kind, step);
        std::vector<std::pair<double, double>> said;
        for (const int percent : {55, 65, 75, 85, 95})
            when(
                [=] { return textIn(Field::Progress) == formatted("Mapping: %d%% done", percent); },
                [&] { said.emplace_back(testTimeMs(), remainingScanMs()); });
        double endMs = 0;
        when([] { return textIn(Field::Remaining).starts_with("took"); },
             [&] { endMs = testTimeMs(); });
        std::string title;
        when([] { return textIn(Field::Progress) == "Mapping: 70% done"; },
             [&] { title = windows.main->text; });
        runProgramOver(step * 20, step * 5);
        ASSERT_EQ(said.size(), 5u);
        for (const auto& [whenMs, leftMs] : said)
            EXPECT_NEAR(leftMs, endMs - whenMs, 0.1 * leftMs + 80); // and a point under way
        EXPECT_TRUE(title.starts_with("Lumascan - 69%, ends ")) << title;
        EXPECT_EQ(taskbarProgress, -1);
    }
}

// The program was set to the board meanwhile, and to another axis order.
TEST_F(InstrumentRun, AScanGoesOnWithItsOwnInstrumentOrNotAtAll) {
    const std::string file = "KST_Data/Journal/journal0.txt";
    choose(kindUsbSourcemeter, 2.5);
    std::string onDisk;
    when([] { return textIn(Field::Progress) == "Mapping: 50% done"; },
         [&] { onDisk = contentOf(file); });
    runProgramOver(20, 15);
    std::filesystem::remove_all(pathOnDesktop("KST_Data/260307_14-05"));

    writeDesktopFile(file, onDisk);
    writeSettings(5.0, false);
    instrumentLink.biasVoltage = 0.0f;
    scanMap = {};
    const auto goOn = [] {
        postCommand(idContinueScan);
        when([] { return !toolWindows.empty(); },
             [] { postCall([] { onToolCommand(toolWindows.back(), idContinueConfirm); }); });
    };
    const auto refused = [](const char* why) {
        return textIn(Field::Information) == std::string("Not continued: ") + why;
    };
    when([] { return timerRuns(); },
         [=] {
             applyLabFaults("k2450 absent");
             goOn();
         });
    for (int i = 0; i < 3; ++i) answer("There are no two pictures to compare. ", BoxAnswer::Yes);
    answer("No SourceMeter devices found via USB", BoxAnswer::Ok);
    when([=] { return refused("the scan's instrument does not answer: USB Sourcemeter"); },
         [=] {
             EXPECT_EQ(scanArea.scanStep, 5.0);
             applyLabFaults("");
             controllers.axisOrder = 3;
             goOn();
         });
    when([=] { return refused("the axis order is not that of the scan (Configuration)"); },
         [=] {
             controllers.axisOrder = 2;
             goOn();
         });
    answer("SourceMeter device connected", BoxAnswer::Ok);
    double biasInScan = -1;
    when([] { return textIn(Field::Progress) == "Mapping: 75% done"; },
         [&] { biasInScan = labBiasVolts(); });
    answer("Hysteresis compensated. Is it okay?", BoxAnswer::Yes, [] {
        when([] { return textIn(Field::Information) == "Mapping finished"; },
             [] { in(1000, [] { post(messageClose); }); });
    });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(wrongCells([](int, int) { return true; }), 0);
    EXPECT_EQ(biasInScan, bias);
    EXPECT_EQ(labBiasVolts(), 0.0);
    EXPECT_EQ(contentOf(file), "");
}

// A kind that is only selected is no instrument that measures: its zeros would take the journal's
// place.
TEST_F(InstrumentRun, AScanDoesNotGoOnWithAnInstrumentThatIsOff) {
    const std::string file = "KST_Data/Journal/journal0.txt";
    choose(kindGpibMultimeter, 2.5);
    std::string onDisk;
    when([] { return textIn(Field::Progress) == "Mapping: 50% done"; },
         [&] { onDisk = contentOf(file); });
    runProgramOver(20, 15);
    writeDesktopFile(file, onDisk);
    applyLabFaults("multimeter absent");
    scanMap = {};
    answerOthers = [](const ShownBox& box) {
        return box.text.starts_with("There are no two") ? BoxAnswer::Yes : BoxAnswer::Ok;
    };
    when([] { return timerRuns(); },
         [] {
             postCommand(idContinueScan);
             when([] { return !toolWindows.empty(); },
                  [] { postCall([] { onToolCommand(toolWindows.back(), idContinueConfirm); }); });
         });
    when([] { return textIn(Field::Information).starts_with("Not continued"); },
         [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(contentOf(file), onDisk);
}

INSTANTIATE_TEST_SUITE_P(Kinds, InstrumentMapTest, testing::ValuesIn(instruments),
                         [](const testing::TestParamInfo<Instrument>& info) {
                             return "Kind" + std::to_string(info.param.kind);
                         });

struct Fault {
    const char* name;
    int kind;
    const char* fault;
    double biasLeft; // V: no command reaches a source that does not hear
    bool parsed;     // what comes after the fault is still a number
};

class InstrumentFaultTest : public InstrumentRun, public testing::WithParamInterface<Fault> {};

TEST_P(InstrumentFaultTest, EndsAndSaves) {
    choose(GetParam().kind, 2.0);
    const std::string also = instrument.kind == kindOscilloscope ? "k2450 absent\n" : "";
    std::vector<std::vector<float>> before; // the map as the fault struck
    when([] { return labMeasurements().size() >= 20; },
         [&] {
             ASSERT_TRUE(applyLabFaults(also + GetParam().fault));
             before = scanMap.maps[planePhotocurrent];
         });
    bool saidAtEnd = false;
    answerOthers = [&](const ShownBox& box) {
        saidAtEnd |= box.text == "instrument lost: the bias may be on";
        return BoxAnswer::Ok;
    };
    testing::internal::CaptureStdout();
    runProgramOver(14, 10);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(saidAtEnd || labBiasVolts() == 0.0);
    ASSERT_FALSE(before.empty()) << "the fault never struck";
    EXPECT_LT(testTimeMs(), 300e3); // a time-out of up to 10 s a cell, and the moves

    const auto known = [&](int column, int row) {
        return before[static_cast<size_t>(column)][static_cast<size_t>(row)] != 0.0f;
    };
    EXPECT_EQ(
        wrongCells([&](int column, int row) { return GetParam().parsed || known(column, row); }),
        0);
    const auto saved = numbersOf(contentOf(sessionFile("Kestrel")));
    ASSERT_EQ(saved.size(), static_cast<size_t>(scanArea.rows));
    int kept = 0, later = 0;
    for (int column = 0; column < scanArea.cols; ++column)
        for (int row = 0; row < scanArea.rows; ++row) {
            EXPECT_NEAR(saved[static_cast<size_t>(row)].at(static_cast<size_t>(column)),
                        static_cast<double>(cell(column, row)), 1e-6);
            kept += known(column, row);
            later += !known(column, row) && cell(column, row) != 0.0f;
        }
    EXPECT_GE(kept, 4);
    const int lost = scanArea.totalPoints - kept;
    EXPECT_GE(lost, 4);
    EXPECT_GE(later, GetParam().parsed ? lost : 0);
    EXPECT_LE(later, GetParam().parsed ? lost : 1); // the reading that was under way
    EXPECT_EQ(labBiasVolts(), GetParam().biasLeft);
    EXPECT_EQ(labLaserPwm(), 0);
}

// Nothing is sent to it between the rows, and a dark sample is no zero of the sample.
TEST_F(InstrumentRun, ABoardThatIsGoneSpoilsTheMapOfAnotherInstrument) {
    choose(kindGpibMultimeter, 2.0);
    size_t before = 0;
    when([] { return labMeasurements().size() >= 20; },
         [&] {
             applyLabFaults("board unplugged");
             before = labMeasurements().size();
         });
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    runProgramOver(14, 10);
    int silent = 0;
    for (const auto& column : scanMap.marks)
        silent += static_cast<int>(std::count(column.begin(), column.end(), PointMark::Silent));
    EXPECT_NEAR(silent, static_cast<double>(labMeasurements().size() - before), 3.0);
    EXPECT_TRUE(historyOf(Field::Information)
                    .back()
                    .starts_with(formatted("Mapping finished. No laser board: %d from", silent)));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, InstrumentFaultTest,
    testing::Values(Fault{"PulledBoard", 2, "gpib absent", 0.0, false},
                    Fault{"Stuck", 3, "sourcemeter stuck", bias, false},
                    Fault{"Garbage", 3, "sourcemeter garbage", 0.0, false},
                    Fault{"Unterminated", 3, "sourcemeter unterminated", 0.0, true},
                    Fault{"StuckOnUsb", 4, "k2450 stuck", bias, false},
                    Fault{"Silent", 5, "scope silent", 0.0, false},
                    Fault{"SwitchedOff", 6, "analyzer absent", 0.0, false},
                    Fault{"BusError", 7, "gpib error", bias, false}),
    [](const testing::TestParamInfo<Fault>& info) { return std::string(info.param.name); });

using InstrumentDeathTest = InstrumentRun;

// The one reply that ends the program by design: not before the set-up is safe and the map saved.
TEST_F(InstrumentDeathTest, NumberThatIsNoneEndsAScanSafely) {
    choose(kindGpibSourcemeter, 2.0);
    const auto say = [] {
        std::fprintf(stderr, "laser at %d, bias %.1f V\n", labLaserPwm(), labBiasVolts());
    };
    when([] { return labMeasurements().size() >= 20; },
         [say] {
             say();
             applyLabFaults("sourcemeter long");
             when([] { return labLaserPwm() == 0 && labBiasVolts() == 0.0; }, say);
         });
    EXPECT_EXIT(runProgramOver(14, 10), testing::KilledBySignal(SIGABRT),
                "laser at 204, bias 0.5 V\n.*laser at 0, bias 0.0 V\n.*too long\n");
    const std::string saved = contentOf(sessionFile("Kestrel"));        // by what died
    EXPECT_GE(std::count(saved.begin(), saved.end(), '1'), 5) << saved; // of 1e-6 A
    EXPECT_EQ(SavedMap().condition("Outcome"), "forced end");
}

} // namespace
