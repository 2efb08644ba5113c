// Maps and series of a chopped laser with a lock-in amplifier: settled or not, and what spoils
// them.
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include "app/program.h"
#include "instruments/kinds.h"
#include "instruments/laser_link.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/responsive_wait.h"
#include "spectroscopy/sweep_record.h"
#include "spectroscopy/time_evolution.h"

#include <algorithm>
#include <cmath>

namespace {

class LockInTest : public WholeRunTest {
protected:
    void choose(int kind, const std::string& options = "") {
        who = kind == kindLockInGpib ? labSr830 : labSr860;
        writeDesktopFile("KST_Data/Config.txt",
                         formatted("step:2.5, laser:4.00, laser correct:(640,500), Ammeter:%d, "
                                   "GPIB:8, IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 0\n",
                                   kind));
        writeDesktopFile("KST_Data/Setup.ini", "amplifier (V/A) = 10000\n");
        writeDesktopFile("KST_Data/Options.ini", options);
        setLabLockIn(who, {.sensitivityVolts = 0.05, .timeConstantMs = 30});
    }

    LabLockInReading truthAt(LabPoint at) const {
        return expectedLockIn(who, at.x, at.y, laserLink.laserLevel, labStageUm(labZ));
    }

    static double cell(int column, int row, size_t map = planePhotocurrent) {
        return static_cast<double>(
            scanMap.maps[map][static_cast<size_t>(column)][static_cast<size_t>(row)]);
    }

    static PointMark mark(int column, int row) {
        return scanMap.marks[static_cast<size_t>(column)][static_cast<size_t>(row)];
    }

    double largest() const {
        double most = 0;
        for (int column = 0; column < scanArea.cols; ++column)
            for (int row = 0; row < scanArea.rows; ++row)
                most = std::max(most, truthAt(placeOfCell(column, row)).r);
        return most;
    }

    // Measured cells that are off by more than 1 % of the largest step and the noise.
    int wrongCells() const {
        const double tolerance = 0.01 * largest() + 6 * expectedLockInNoise(who);
        int wrong = 0;
        for (int column = 0; column < scanArea.cols; ++column)
            for (int row = 0; row < scanArea.rows; ++row)
                wrong += mark(column, row) == PointMark::Measured &&
                         !isNear(cell(column, row) * 1e-6, tolerance, placeOfCell(column, row),
                                 [this](double x, double y) {
                                     return truthAt({x, y}).r;
                                 });
        return wrong;
    }

    static int marked(PointMark as) {
        int count = 0;
        for (const auto& column : scanMap.marks)
            count += static_cast<int>(std::count(column.begin(), column.end(), as));
        return count;
    }

    static void atHalf(std::function<void()> action) {
        when([] { return textIn(Field::Progress) == "Mapping: 50% done"; }, std::move(action));
    }

    LabInstrument who = labSr830;
};

class LockInMapTest : public LockInTest, public testing::WithParamInterface<int> {};

TEST_P(LockInMapTest, HoldsTheLandscapeOnceTheFilterHasSettled) {
    choose(GetParam());
    runProgramOver(20, 15);
    EXPECT_EQ(wrongCells(), 0);
    EXPECT_EQ(marked(PointMark::Measured), scanArea.totalPoints);
    EXPECT_EQ(labInstrumentErrors(who), std::vector<std::string>{});

    const SavedMap saved;
    ASSERT_EQ(saved.channels, 4);
    const char* const units[] = {"A", "A", "A", "deg"}; // R, X, Y, theta
    for (int channel = 0; channel < 4; ++channel) {
        EXPECT_EQ(saved.unit(channel), units[channel]);
        saved.expectCells(channel, [&](double value, LabPoint place) {
            const LabLockInReading truth = truthAt(place);
            const double values[] = {truth.r, truth.x, truth.y, truth.theta};
            // Where hardly any current flows the angle is that of the noise.
            if (channel == 3 && truth.r < 0.02 * largest()) return true;
            const double tolerance =
                channel == 3 ? 2.0 : 0.015 * largest() + 6 * expectedLockInNoise(who);
            return std::fabs(value - values[channel]) < tolerance;
        });
    }
    EXPECT_NE(saved.condition("Instrument's answer to *IDN?").find("Stanford"), std::string::npos);
    const std::string settings = saved.condition("Instrument's settings");
    EXPECT_TRUE(settings.starts_with("sensitivity 50 mV, time constant 30 ms, 12 dB per octave, "))
        << settings;
    EXPECT_NE(settings.find("amplifier 10000 V/A, reference external 1013 Hz"), std::string::npos)
        << settings;
    EXPECT_EQ(saved.condition("Settled at a reading"),
              "99 % of a step in 200 ms, automatic for 99 %");
    EXPECT_EQ(saved.condition("Unit of the text file"), "uA");
    for (const char* prefix : {"LockInX", "LockInY", "LockInTheta"})
        EXPECT_EQ(numbersOf(contentOf(sessionFile(prefix))).size(), 6u) << prefix;
    EXPECT_TRUE(saved.condition("Text file").starts_with("Kestrel("));
    EXPECT_TRUE(saved.condition("Text file of X").starts_with("LockInX("));
}

// What an operator gets for a wait of one time constant: each cell holds a part of the one before.
TEST_P(LockInMapTest, AWaitThatIsTooShortSmearsAndSaysSo) {
    choose(GetParam(), "wait before reading (ms) = 100\nlock-in settles to (%) = 0\n");
    setLabLockIn(who, {.sensitivityVolts = 0.05, .timeConstantMs = 100});
    runProgramOver(20, 15);
    EXPECT_GT(wrongCells(), scanArea.totalPoints / 4);
    EXPECT_TRUE(SavedMap().condition("Settled at a reading").ends_with(" in 100 ms, as typed"))
        << SavedMap().condition("Settled at a reading");
}

TEST_P(LockInMapTest, AStoppedChopperIsSaidAndNoCellOfItCounts) {
    choose(GetParam());
    atHalf([] { applyLabFaults("chopper stopped"); });
    runProgramOver(20, 15);
    EXPECT_EQ(wrongCells(), 0);
    EXPECT_GE(marked(PointMark::Unlocked), scanArea.totalPoints / 2 - 1);
    EXPECT_NE(textIn(Field::Information).find(". Reference unlocked: "), std::string::npos)
        << textIn(Field::Information);
    EXPECT_EQ(SavedMap().maskedCells(0), marked(PointMark::Unlocked));
}

TEST_P(LockInMapTest, OverloadsAreMaskedAndToldByTheirCause) {
    choose(GetParam());
    atHalf([] { applyLabFaults("lock-in overload"); });
    when([] { return textIn(Field::Progress).starts_with("Mapping: 79% done"); },
         [] { applyLabFaults("lock-in overload output"); });
    runProgramOver(20, 15);
    EXPECT_EQ(wrongCells(), 0);
    EXPECT_GE(marked(PointMark::Overloaded), scanArea.totalPoints / 2 - 1);
    const std::string told = textIn(Field::Information);
    const char* const input = GetParam() == kindLockInGpib ? "(input or reserve: " : "(input: ";
    EXPECT_NE(told.find(input), std::string::npos) << told;
    EXPECT_NE(told.find(", output: "), std::string::npos) << told;
}

// The row in which it happens counts no longer; the next ones wait for what it is by then.
TEST_P(LockInMapTest, OtherSettingsSpoilTheirRowAndAreWaitedForFromThenOn) {
    choose(GetParam());
    atHalf([this] { setLabLockIn(who, {.sensitivityVolts = 0.05, .timeConstantMs = 100}); });
    runProgramOver(20, 15);
    EXPECT_EQ(wrongCells(), 0);
    EXPECT_EQ(marked(PointMark::Unsettled), scanArea.cols);
    EXPECT_NE(textIn(Field::Information).find("(time constant 30 ms became time constant 100 ms)"),
              std::string::npos)
        << textIn(Field::Information);
    EXPECT_EQ(SavedMap().condition("Points whose filter had changed"),
              std::to_string(scanArea.cols));
}

// It was there while the point's filter settled, and is over when its value comes.
TEST_P(LockInMapTest, AnOverloadInTheWaitSpoilsItsPoint) {
    choose(GetParam());
    atHalf([] {
        in(100, [] { applyLabFaults("lock-in overload"); });
        in(150, [] { applyLabFaults(""); });
    });
    runProgramOver(20, 15);
    EXPECT_EQ(marked(PointMark::Overloaded), 1);
    EXPECT_EQ(wrongCells(), 0);
}

TEST_P(LockInMapTest, ASeriesBeginsAnewAndSaysWhatWasSetMeanwhile) {
    choose(GetParam());
    Outcome first, second;
    when([] { return timerRuns(); },
         [&] {
             postCall([&] {
                 applyLabFaults("chopper stopped");
                 waitResponsive(50);
                 applyLabFaults("");
                 first = runSeries({2.0f, 1.0f, 1});
                 in(500, [this] {
                     setLabLockIn(who, {.sensitivityVolts = 0.05, .timeConstantMs = 100});
                 });
                 second = runSeries({2.0f, 1.0f, 1});
                 post(messageClose);
             });
         });
    runProgram(1);
    EXPECT_TRUE(first.isSound()) << first.words() << ": it was unlocked before";
    EXPECT_NE(second.words().find("time constant 30 ms became time constant 100 ms"),
              std::string::npos)
        << second.words();
}

TEST_P(LockInMapTest, WhatDoesNotAnswerIsNoReading) {
    for (const char* fault : {"absent", "garbage", "silent"}) {
        SCOPED_TRACE(fault);
        prepareWorld();
        choose(GetParam());
        atHalf([fault] { applyLabFaults(formatted("lock-in %s", fault)); });
        runProgramOver(20, 15);
        EXPECT_EQ(wrongCells(), 0);
        EXPECT_GE(marked(PointMark::Silent), 1);
        EXPECT_NE(textIn(Field::Information).find(". No reading: "), std::string::npos)
            << textIn(Field::Information);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, LockInMapTest, testing::Values(kindLockInGpib, kindLockInUsb),
                         [](const auto& test) {
                             return std::string(test.param == kindLockInGpib ? "Sr830" : "Sr860");
                         });

// A photodiode's reflection stands beside the current, cell by cell; the map shows another channel.
TEST_F(LockInTest, AnAuxiliaryInputIsAChannelOfTheSameMoment) {
    choose(kindLockInUsb, "lock-in aux 1 as channel = yes\nlock-in main channel = X\n"
                          "readings per point = 3\n");
    runProgramOver(20, 15);
    const SavedMap saved;
    ASSERT_EQ(saved.channels, 8); // X, R, Y, theta, aux; how X, Y and aux scatter
    EXPECT_EQ(saved.condition("Main channel"), "X");
    EXPECT_EQ(saved.unit(4), "V");
    saved.expectCells(0, [&](double value, LabPoint place) {
        return std::fabs(value - truthAt(place).x) < 0.015 * largest();
    });
    saved.expectCells(1, [&](double value, LabPoint place) {
        return std::fabs(value - truthAt(place).r) < 0.015 * largest();
    });
    saved.expectCells(4, [&](double value, LabPoint place) {
        return isNear(value, 6 * labPhotodiodeNoiseVolts, place, [](double x, double y) {
            return expectedReflectionVolts(x, y, laserLink.laserLevel);
        });
    });
    EXPECT_EQ(numbersOf(contentOf(sessionFile("LockInAux1"))).size(), 6u);
}

TEST_F(LockInTest, AnAuxiliaryInputAtItsEndIsAnOverloadWhereItIsAChannel) {
    for (const bool isChannel : {true, false}) {
        prepareWorld();
        choose(kindLockInGpib, isChannel ? "lock-in aux 1 as channel = yes\n" : "");
        atHalf([] { wireLabLockIns({.photodiodeOffsetVolts = 12}); });
        runProgramOver(20, 15);
        EXPECT_EQ(marked(PointMark::Overloaded) >= scanArea.totalPoints / 2 - 1, isChannel);
        EXPECT_EQ(textIn(Field::Information).find("aux input: ") != std::string::npos, isChannel)
            << textIn(Field::Information);
        wireLabLockIns({});
    }
}

// The chopper slows down: the SR830 has another range there, and says so once.
// On the way to a point or while it waits.
TEST_F(LockInTest, AFilterThatChangesByItselfSpoilsItsPoint) {
    for (double ms = 0; ms < 300; ms += 60) {
        SCOPED_TRACE(ms);
        prepareWorld();
        choose(kindLockInGpib);
        when([] { return textIn(Field::Progress) == "Mapping: 56% done"; },
             [ms] { in(ms, [] { wireLabLockIns({.chopperHz = 150}); }); });
        runProgramOver(20, 15);
        EXPECT_EQ(marked(PointMark::Unsettled), 1);
        EXPECT_EQ(wrongCells(), 0);
        EXPECT_NE(textIn(Field::Information).find("its filter changed by itself"),
                  std::string::npos)
            << textIn(Field::Information);
    }
}

TEST_F(LockInTest, WithoutAnAmplifierTheValuesStayVoltsAndSaySo) {
    choose(kindLockInGpib);
    writeDesktopFile("KST_Data/Setup.ini", "");
    setLabLockIn(who,
                 {.sensitivityVolts = 0.05, .timeConstantMs = 10000, .offsetPercent = {0, 10, 0}});
    runProgramOver(20, 15);
    EXPECT_NE(textIn(Field::Information).find("An offset is set at the lock-in"),
              std::string::npos); // of Y; the map shows R
    EXPECT_TRUE(textIn(Field::Time).ends_with("M/55M ")) << "2, and 48 points of 66.4 s";
    EXPECT_EQ(marked(PointMark::Measured), scanArea.totalPoints) << "nobody is idle";
    const SavedMap saved;
    EXPECT_EQ(saved.unit(0), "V");
    EXPECT_EQ(saved.condition("Unit of the text file"), "uV");
    saved.expectCells(0, [&](double value, LabPoint place) {
        return std::fabs(value / 1e4 - truthAt(place).r) < 0.015 * largest();
    });
}

// Somebody turns the input from volts to a current: the rest would be in another unit.
TEST_F(LockInTest, AMapWhoseUnitChangesEndsAndDoubtsTheRow) {
    choose(kindLockInGpib);
    writeDesktopFile("KST_Data/Setup.ini", "");
    atHalf([this] {
        setLabLockIn(
            who,
            {.sensitivityVolts = 1, .timeConstantMs = 30, .input = LabLockInInput::Current1MOhm});
    });
    runProgramOver(20, 15);
    EXPECT_NE(textIn(Field::Information).find("in another unit by now"), std::string::npos)
        << textIn(Field::Information);
    EXPECT_NE(textIn(Field::Information).find("input A became input I 1 MOhm"), std::string::npos);
    EXPECT_EQ(marked(PointMark::Measured), 2 * scanArea.cols);
    EXPECT_EQ(marked(PointMark::Unsettled) + marked(PointMark::Overloaded), scanArea.cols);
    EXPECT_EQ(SavedMap().condition("Outcome"), "stopped");
    EXPECT_EQ(labLaserPwm(), 0);
}

TEST_F(LockInTest, ASeriesHasAllChannels) {
    choose(kindLockInUsb);
    when([] { return timerRuns(); },
         [] {
             postCall([] {
                 runSeries({2.0f, 1.0f, 2});
                 saveTimeEvolution(false);
                 post(messageClose);
             });
         });
    runProgram(1);
    const std::string text = contentOf(sessionFile("TimeEvo"));
    EXPECT_TRUE(text.starts_with("Time(sec), X(uA), Y(uA), R(uA), theta(deg)\n")) << text;
    const auto rows = numbersOf(text.substr(text.find('\n') + 1));
    ASSERT_GT(rows.size(), 50u);
    double most = 0;
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 5u);
        EXPECT_NEAR(row[3], std::hypot(row[1], row[2]), 2e-6);
        most = std::max(most, row[3]);
    }
    EXPECT_GT(most, 1e-4);
}

} // namespace
