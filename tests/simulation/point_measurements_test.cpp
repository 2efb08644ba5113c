// I-V sweeps and time series against the sample's laws, and everything that can come between.
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "app/recovery.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "mapping/scan_area.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/data_folders.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "spectroscopy/iv_sweep.h"
#include "spectroscopy/sweep_record.h"
#include "spectroscopy/time_evolution.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

namespace {

constexpr double levelVolts = 4.0; // of the laser
constexpr float limit = 1e-4f;     // A

class PointMeasurementTest : public WholeRunTest {
protected:
    // The program runs with an instrument and `command` opens a tool; then `work` happens, and a
    // while after the last process has ended the window is closed.
    void run(int kind, int command, const std::function<void(NativeWindow& tool)>& work) {
        writeDesktopFile("KST_Data/Config.txt",
                         formatted("step:4.0, laser:4.00, laser correct:(640,500), Ammeter:%d, "
                                   "GPIB:24, IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                                   kind));
        when([] { return timerRuns(); },
             [command] {
                 postCommand(idLaserOn);
                 postCommand(command);
             });
        when([] { return !toolWindows.empty(); },
             [this, work] {
                 work(*toolWindows.back());
                 when([this] { return saves() > 0 && session.processRunning == 0; },
                      [] { in(500, [] { post(messageClose); }); });
             });
        EXPECT_EQ(runProgram(1), 0);
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_EQ(labBiasVolts(), 0.0);
    }

    static void press(const NativeWindow& tool, int id) {
        NativeWindow* window = const_cast<NativeWindow*>(&tool);
        postCall([window, id] { onToolCommand(window, id); });
    }

    static long saves() {
        const std::vector<std::string> files = filesOnDesktop();
        return std::count_if(files.begin(), files.end(), [](const std::string& name) {
            return !name.ends_with(".meta.txt") && (name.find("/I-V(") != std::string::npos ||
                                                    name.find("/TimeEvo(") != std::string::npos);
        });
    }

    // The two columns of a saved curve, whose first line must be `heading`.
    static std::vector<std::pair<double, double>> curve(const std::string& prefix,
                                                        const std::string& heading) {
        std::istringstream lines(contentOf(sessionFile(prefix)));
        std::string line;
        std::getline(lines, line);
        EXPECT_EQ(line, heading);
        std::vector<std::pair<double, double>> points;
        for (double x = 0, y = 0; std::getline(lines, line); points.emplace_back(x, y)) {
            EXPECT_EQ(std::sscanf(line.c_str(), "%lf,%lf", &x, &y), 2) << line;
            EXPECT_EQ(line, formatted("%f,%f", x, y));
        }
        return points;
    }
};

// What stands in the conditions beside a curve.
void expectConditions(const std::string& textFile, const std::vector<std::string>& lines) {
    const std::string stem = textFile.substr(0, textFile.rfind('.'));
    const std::string conditions = contentOf(stem + ".meta.txt");
    for (const std::string& line : lines)
        EXPECT_NE(conditions.find("\n" + line + "\n"), std::string::npos) << line << " in\n"
                                                                          << conditions;
}

TEST_F(PointMeasurementTest, IvCurveFollowsTheDiodesInOrder) {
    instrumentLink.currentLimit = limit;
    run(kindUsbSourcemeter, idIvMeasurement, [](NativeWindow& tool) {
        EXPECT_EQ(tool.text, "IV Curve");
        EXPECT_EQ(tool.edits[0]->text, "0.50");
        tool.edits[0]->text = "0.8 V";
        in(3000, [&tool] { press(tool, idSweepStart); }); // the carriers are there by then
        when([] { return session.processRunning == 1; },
             [&tool] { EXPECT_EQ(tool.edits[0]->text, "0.80"); });
    });
    // The loop, written out: up, down through 0, up again.
    std::vector<double> volts;
    for (int i = 0; i < 50; ++i) volts.push_back(0.016 * i);
    for (int i = 0; i < 100; ++i) volts.push_back(0.8 - 0.016 * i);
    for (int i = 0; i < 50; ++i) volts.push_back(-0.8 + 0.016 * i);

    const auto points = curve("I-V(", "V(V), I(uA)");
    const std::vector<LabMeasurement>& taken = labMeasurements();
    ASSERT_EQ(points.size(), volts.size());
    ASSERT_EQ(taken.size(), volts.size());
    const LabPoint place{24 * labUmPerPixel, -14 * labUmPerPixel};
    for (size_t i = 0; i < volts.size(); ++i) {
        EXPECT_NEAR(points[i].first, volts[i], 2e-6);
        EXPECT_NEAR(taken[i].biasVolts, volts[i], 2e-6);
        const double truth = expectedCurrent(place.x, place.y, levelVolts, 0.0, volts[i]);
        // Six times the noise, in a range of 1 uA.
        EXPECT_NEAR(points[i].second, truth * 1e6, 6 * labRangeNoise * 1.0 + 1e-6) << volts[i];
    }
    EXPECT_TRUE(labInstrumentErrors(labUsbSourcemeter).empty());
    // A voltage, a wait and a reading each; what is set once comes to a few lines.
    EXPECT_LE(labInstrumentCommands(labUsbSourcemeter).size(), 3 * volts.size() + 50);
    expectConditions(sessionFile("I-V("),
                     {"Instrument: USB Sourcemeter", "Voltage step: 0.0160000008 V",
                      "Points measured: 200, the first lines", "Outcome: finished"});
    EXPECT_EQ(historyOf(Field::Information).back().substr(0, 12), "V=-0.016000,");
}

// The program was started again within a minute: its session folder is the one before's.
TEST_F(PointMeasurementTest, NoCurveIsWrittenOverAnother) {
    ensureSessionFolder(dataFolders);
    for (const auto save : {saveIvCurve, saveTimeEvolution}) {
        for (int start = 0; start < 2; ++start) {
            sweepRecord = {};
            allocateSweep(sweepRecord);
            save(true);
        }
    }
    EXPECT_EQ(saves(), 4);
}

TEST_F(PointMeasurementTest, ASweepSaysWhatCutItAndWhoWasSilent) {
    instrumentLink.currentLimit = 4e-8f; // less than the light gives beyond a few tenths of a volt
    run(kindUsbSourcemeter, idIvMeasurement, [](NativeWindow& tool) {
        press(tool, idSweepStart);
        when([] { return labMeasurements().size() >= 150; },
             [] {
                 applyLabFaults("k2450 garbage");
                 when([] { return sweepRecord.currentIndex >= 160; }, [] { applyLabFaults(""); });
             });
    });
    const std::string& text = historyOf(Field::Information).back();
    EXPECT_EQ(text.find("I-V curve measurement finished. No reading: "), 0u) << text;
    EXPECT_NE(text.find(" of 200. Current limit reached"), std::string::npos) << text;
}

TEST_F(PointMeasurementTest, ASeriesReadsAtTheStoredBias) {
    instrumentLink.currentLimit = limit;
    instrumentLink.biasVoltage = 0.5f;
    run(kindUsbSourcemeter, idTimeEvolution, [](NativeWindow& tool) {
        const char* const typed[] = {"1", "1", "1"};
        for (size_t i = 0; i < 3; ++i) tool.edits[i]->text = typed[i];
        press(tool, idSeriesStart);
    });
    ASSERT_GT(labMeasurements().size(), 20u);
    for (const LabMeasurement& each : labMeasurements()) EXPECT_EQ(each.biasVolts, 0.5);
}

TEST_F(PointMeasurementTest, ASeriesSaysThatNobodySwitchedTheLaser) {
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    run(kindUsbSourcemeter, idTimeEvolution, [](NativeWindow& tool) {
        const char* const typed[] = {"1", "1", "1"};
        for (size_t i = 0; i < 3; ++i) tool.edits[i]->text = typed[i];
        press(tool, idSeriesStart);
        when([] { return labMeasurements().size() >= 10; },
             [] {
                 applyLabFaults("board unplugged");
                 when([] { return labMeasurements().size() >= 15; }, [] { applyLabFaults(""); });
             });
    });
    const auto& texts = historyOf(Field::Information);
    EXPECT_TRUE(std::any_of(texts.begin(), texts.end(), [](const std::string& text) {
        return text.starts_with("Time Evolution Measurement has completed. No laser board: ");
    }));
    std::string conditions = sessionFile("TimeEvo(");
    conditions =
        contentOf(conditions.replace(conditions.rfind('.'), std::string::npos, ".meta.txt"));
    EXPECT_NE(conditions.find("Trouble: No laser board: "), std::string::npos) << conditions;
}

// What a series must show at a time of its own, from the light's history.
double lightAt(double seconds, double onSeconds, double offSeconds) {
    double q = 0.0;
    for (double start = 0.0;; start += onSeconds + offSeconds) {
        const double on = std::min(seconds - start, onSeconds) * 1000;
        q = 1 - (1 - q) * std::exp(-on / labRiseMs);
        if (seconds < start + onSeconds) return q;
        const double off = std::min(seconds - start - onSeconds, offSeconds) * 1000;
        q *= std::exp(-off / labDecayMs);
        if (seconds < start + onSeconds + offSeconds) return q;
    }
}

TEST_F(PointMeasurementTest, SeriesFollowsRiseAndDecay) {
    run(kindArduino, idTimeEvolution, [](NativeWindow& tool) {
        EXPECT_EQ(tool.edits[0]->text, "5.0");
        const char* const typed[] = {"2.9", "2", "3"}; // the fraction is not taken
        for (size_t i = 0; i < 3; ++i) tool.edits[i]->text = typed[i];
        postCommand(idLaserOff);
        in(3000, [&tool] { press(tool, idSeriesStart); }); // dark by then
        when([] { return session.processRunning == 1; },
             [&tool] {
                 EXPECT_EQ(tool.edits[0]->text, "2.000000");
                 EXPECT_EQ(tool.edits[2]->text, "3");
             });
    });
    const auto samples = curve("TimeEvo(", "Time(sec), I(uA)");
    // A sample every 30 ms fills arrays that are made for one every 50 ms before the end.
    ASSERT_EQ(samples.size(), 240u);
    EXPECT_EQ(sweepRecord.yValues.size(), 240u);
    expectConditions(sessionFile("TimeEvo("),
                     {"Laser on for: 2 s", "Laser at the start: off", "Samples: 240",
                      "Units of the text file: s, V", "Outcome: finished"});
    const LabPoint place{24 * labUmPerPixel, -14 * labUmPerPixel};
    const double full = expectedVolts(place.x, place.y, levelVolts, 0.0);
    EXPECT_NEAR(samples.back().first, 240 * 0.03, 0.2);
    for (size_t i = 0; i < samples.size(); ++i) {
        const auto [seconds, volts] = samples[i];
        if (i > 0) {
            EXPECT_GT(seconds, samples[i - 1].first);
        }
        // Read up to 25 ms before its time was taken, which a step of the light may lie between.
        double lowest = 9, highest = 0;
        for (double ms = -30; ms <= 5; ms += 1) {
            const double truth = full * lightAt(std::max(seconds + ms / 1000, 0.0), 2, 2);
            lowest = std::min(lowest, truth);
            highest = std::max(highest, truth);
        }
        const double leastReading = 10 * labAdcStepVolts; // one digit counts as 0
        EXPECT_GT(volts, lowest - (volts == 0.0 ? leastReading : 0) - 4 * labAdcStepVolts)
            << seconds;
        EXPECT_LT(volts, highest + 4 * labAdcStepVolts) << seconds;
    }
}

TEST_F(PointMeasurementTest, APhaseThatIsCutShortDoesNotCount) {
    run(kindArduino, idTimeEvolution, [](NativeWindow& tool) {
        const char* const typed[] = {"3", "1", "2"};
        for (size_t i = 0; i < 3; ++i) tool.edits[i]->text = typed[i];
        press(tool, idSeriesStart);
    });
    const auto samples = curve("TimeEvo(", "Time(sec), I(uA)");
    ASSERT_EQ(samples.size(), 160u);
    EXPECT_NEAR(samples[79].first, 80 * 0.03, 0.05); // of 3 s
    EXPECT_LT(samples[80].first, 0.05);              // the light goes off
    EXPECT_NEAR(samples[159].first, 1.0 + 46 * 0.03, 0.1);
}

struct Interruption {
    const char* name;
    int kind;
    int command; // of the tool
    int start;   // the tool's button
    std::function<void()> action;
    bool ends; // the measurement
};

class InterruptionTest : public PointMeasurementTest,
                         public testing::WithParamInterface<Interruption> {};

// Each strikes after 30 readings.
TEST_P(InterruptionTest, EndsSensibly) {
    const Interruption& each = GetParam();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Yes; };
    instrumentLink.currentLimit = limit;
    const auto readings = [] { return labMeasurements().size() + labCounters().analogReads; };
    run(each.kind, each.command, [&](NativeWindow& tool) {
        press(tool, each.start);
        when([readings] { return readings() >= 30; }, each.action);
    });
    ASSERT_EQ(saves(), 1);
    const bool sweep = each.start == idSweepStart;
    const auto points = sweep ? curve("I-V", "V(V), I(uA)") : curve("TimeEvo", "Time(sec), I(uA)");
    const size_t measured = static_cast<size_t>(sweepRecord.currentIndex);
    EXPECT_EQ(each.ends, measured < 100);
    EXPECT_GE(measured, 29u);
    EXPECT_EQ(points.size(), sweep ? 200 : measured);
    EXPECT_TRUE(toolWindows.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Operator, InterruptionTest,
    testing::Values(Interruption{"StopInASweep", 4, idIvMeasurement, idSweepStart,
                                 [] { postCommand(idStart); }, true},
                    Interruption{"StopInASeries", 0, idTimeEvolution, idSeriesStart,
                                 [] { postClick(9, 9); }, true},
                    Interruption{"ToolClosed", 0, idTimeEvolution, idSeriesStart,
                                 [] { postCall([] { onToolClose(toolWindows[0]); }); }, true},
                    Interruption{"ProgramClosed", 4, idIvMeasurement, idSweepStart,
                                 [] { post(messageClose); }, true},
                    Interruption{"ToolOpenedAgain", 4, idIvMeasurement, idSweepStart,
                                 [] { postCommand(idIvMeasurement); }, false},
                    Interruption{"OtherToolStarted", 4, idIvMeasurement, idSweepStart,
                                 [] {
                                     postCommand(idTimeEvolution);
                                     postCall(
                                         [] { onToolCommand(toolWindows.back(), idSeriesStart); });
                                 },
                                 false},
                    Interruption{"SourcemeterDead", 4, idIvMeasurement, idSweepStart,
                                 [] { applyLabFaults("k2450 garbage"); }, false}),
    [](const testing::TestParamInfo<Interruption>& info) { return std::string(info.param.name); });

TEST_F(PointMeasurementTest, NoSweepWithoutASource) {
    run(kindUsbSourcemeter, idIvMeasurement, [](NativeWindow& tool) {
        instrumentLink.ammeterKind = kindOscilloscope; // chosen while the tool is open
        answer("Please change the current equipment as a sourcemter or parameter analyzer",
               BoxAnswer::Ok, [&tool] {
                   instrumentLink.ammeterKind = kindUsbSourcemeter;
                   press(tool, idSweepStart);
               });
        press(tool, idSweepStart);
    });
    EXPECT_EQ(saves(), 1);
}

// Of a sweep and of a series: what the journal has at some sample is what recovering it writes.
TEST_F(PointMeasurementTest, JournalsBringBackCutOffCurves) {
    struct Case {
        int kind, command, start;
        const char *prefix, *notice;
    };
    for (const Case& each :
         {Case{kindUsbSourcemeter, idIvMeasurement, idSweepStart, "I-V(",
               "An I-V curve of 2026-03-07 14:05 was cut off or not saved: "},
          Case{kindArduino, idTimeEvolution, idSeriesStart, "TimeEvo(",
               "A time evolution of 2026-03-07 14:05 was cut off or not saved: "}}) {
        SCOPED_TRACE(each.prefix);
        prepareWorld();
        std::string onDisk;
        run(each.kind, each.command, [&](NativeWindow& tool) {
            press(tool, each.start);
            when([] { return sweepRecord.currentIndex >= 160; },
                 [&] { onDisk = contentOf("KST_Data/Journal/journal0.txt"); });
        });
        EXPECT_EQ(contentOf("KST_Data/Journal/journal0.txt"), "") << "saved whole";
        const std::string name = sessionFile(each.prefix), saved = contentOf(name);
        writeDesktopFile("KST_Data/Journal/journal0.txt", onDisk);
        const std::string notice = leftNotice();
        EXPECT_TRUE(notice.starts_with(each.notice)) << notice;
        flushFails = true;
        answer("File saving error", BoxAnswer::Ok);
        recoverLast();
        flushFails = false;
        EXPECT_EQ(contentOf("KST_Data/Journal/journal0.txt"), onDisk);
        const std::vector<std::string> before = filesOnDesktop();
        recoverLast();
        EXPECT_EQ(contentOf("KST_Data/Journal/journal0.txt"), "");
        EXPECT_EQ(contentOf(name), saved) << "nothing is overwritten";
        std::string recovered, conditions;
        for (const std::string& file : filesOnDesktop())
            if (std::find(before.begin(), before.end(), file) == before.end())
                (file.ends_with(".meta.txt") ? conditions : recovered) = contentOf(file);
        EXPECT_NE(conditions.find("Outcome: cut off, recovered from its journal\n"),
                  std::string::npos);
        int count = 0;
        ASSERT_EQ(std::sscanf(notice.c_str() + std::strlen(each.notice), "%d", &count), 1);
        EXPECT_GT(count, 80);
        size_t end = 0; // of the heading and as many lines
        for (int line = 0; line <= count; ++line) end = saved.find('\n', end) + 1;
        EXPECT_EQ(recovered.substr(0, end), saved.substr(0, end));
    }
}

TEST_F(PointMeasurementTest, ASweepAfterAShortSeriesHasItsOwnArrays) {
    run(kindUsbSourcemeter, idTimeEvolution, [](NativeWindow& tool) {
        tool.edits[2]->text = "0";
        press(tool, idSeriesStart);
        postCommand(idIvMeasurement);
        postCall([] { onToolCommand(toolWindows.back(), idSweepStart); });
    });
    EXPECT_EQ(contentOf(sessionFile("TimeEvo(")), "Time(sec), I(uA)\n");
    EXPECT_EQ(curve("I-V(", "V(V), I(uA)").size(), 200u);
}

} // namespace
