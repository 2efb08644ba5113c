// Whole runs of the program over the laser board's own program: their maps beside the sample.
#include "tests/firmware/simulated_board.h"
#include "tests/simulation/whole_run.h"

#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "session/responsive_wait.h"
#include "session/set_up.h"
#include "virtual_lab/lab_state.h"

#include <algorithm>
#include <cmath>

namespace {

// The simulator in the virtual laboratory. Whoever looks at the laboratory first lets the board
// catch up with the virtual time; while it does, the laboratory's time is the board's. The light
// side of the pins is the laboratory's own board.
class BoardInTheLab : public WholeRunTest {
protected:
    void SetUp() override {
        WholeRunTest::SetUp();
        applyLabFaults("board quiet");
        here = this;
        beganMs = virtualNowMs();
        board.lightChanged = [this] { showLights(); };
        board.counts = [] { return askLab("R0 1"); };
        setLabClock([] { return here->labMs(); }, advanceVirtualTime);
        labBeforeCall = [] { here->catchUp(); };
        serial.farEnd.receive = [this](const std::string& bytes) { catchUp(), board.send(bytes); };
        serial.farEnd.takeReply = [this] { return catchUp(), board.takeReply(); };
    }

    void TearDown() override {
        labBeforeCall = nullptr;
        setLabClock(virtualNowMs, advanceVirtualTime);
        WholeRunTest::TearDown();
    }

    // Under the laser the cells hold what the sample gives, but for a step of the converter; from
    // some seconds after it went dark on, nothing.
    void expectMap(int lit, int dark) const {
        int wrong = 0;
        for (int order = 0; order < scanArea.totalPoints; ++order) {
            const int column = order % scanArea.cols;
            const int row = scanArea.rows - 1 - order / scanArea.cols;
            const auto c = static_cast<size_t>(column), r = static_cast<size_t>(row);
            const auto volts = static_cast<double>(scanMap.maps[planePhotocurrent][c][r]);
            const LabPoint place = placeOfCell(column, row);
            const auto truth = [&](double x, double y) {
                return order < lit
                           ? std::min(expectedVolts(x, y, laserLink.laserLevel, labStageUm(labZ)),
                                      5.0)
                           : 0.0;
            };
            if (order >= lit && order < dark) continue; // the light decays
            if (!isNear(volts, labAdcStepVolts, place, truth) && ++wrong < 10)
                ADD_FAILURE() << "point " << order << " holds " << volts << " V";
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(labCounters().boardErrors, 0u);
    }

    // Maps 12 x 10 points; `trouble` comes in the third row.
    void mapWith(const std::function<void()>& trouble) {
        writeSettings(2.0, false);
        afterReadings(readingsIn(12, 2) + 5, trouble);
        runProgramOver(24, 20);
        ASSERT_EQ(scanArea.totalPoints, 120);
        expectMap(2 * 12 + 3, 2 * 12 + 40);
    }

    void catchUp() {
        if (catchingUp) return;
        catchingUp = true;
        board.runUntil(static_cast<uint64_t>((virtualNowMs() - beganMs) * cyclesPerMs));
        catchingUp = false;
    }

    SimulatedBoard board;

private:
    static BoardInTheLab* here;
    double beganMs = 0;
    bool catchingUp = false;

    double labMs() const {
        return catchingUp ? beganMs + static_cast<double>(board.cycle) / cyclesPerMs
                          : virtualNowMs();
    }
    static int askLab(const std::string& command) {
        boardReceive(command.c_str(), command.size() + 1);
        const std::string reply = takeBoardReply();
        return reply.empty() ? 0 : std::stoi(reply);
    }
    void showLights() const {
        askLab("G 5 " + std::to_string(std::lround(board.laser * 255 / 4096.0)));
        askLab(board.lamp ? "D 6 5" : "D 6 0");
    }
};

BoardInTheLab* BoardInTheLab::here = nullptr;

TEST_F(BoardInTheLab, MapEqualsTheSampleWithinAStepOfTheConverter) {
    writeSettings(2.0, true);
    runProgramOver(40, 30);
    ASSERT_EQ(scanArea.totalPoints, 300);
    expectMap(300, 300);
    advanceVirtualTime(50); // the last commands are on the line
    EXPECT_EQ(labLaserPwm(), 0);
    EXPECT_FALSE(labIlluminated());
    EXPECT_EQ(board.ask("E"), "00");
}

// Without a Setup.ini the program does not ask: the operator sees that the rest of the map is dark.
TEST_F(BoardInTheLab, InterlockOpenedInAScanLeavesTheRestDark) {
    mapWith([this] {
        board.order("interlock 0");
        in(1500, [this] { board.order("interlock 1"); });
    });
    EXPECT_EQ(board.ask("I"), "00 00 00") << "told off at the end";
}

// Where the set-up says that there is an interlock the points say so themselves.
TEST_F(BoardInTheLab, PointsBehindAnOpenedInterlockCountAsUnlit) {
    writeDesktopFile("KST_Data/Setup.ini", "laser board interlock = yes\n");
    mapWith([this] {
        board.order("interlock 0");
        in(1500, [this] { board.order("interlock 1"); });
    });
    int unlit = 0;
    for (int order = 0; order < scanArea.totalPoints; ++order) {
        const auto c = static_cast<size_t>(order % scanArea.cols);
        const auto r = static_cast<size_t>(scanArea.rows - 1 - order / scanArea.cols);
        const PointMark mark = scanMap.marks[c][r];
        unlit += mark == PointMark::Unlit;
        EXPECT_TRUE(order >= 2 * 12 + 3 || mark == PointMark::Measured) << order;
        EXPECT_TRUE(order < 2 * 12 + 7 || mark == PointMark::Unlit) << order;
    }
    EXPECT_EQ(textIn(Field::Information),
              formatted("Mapping finished. Laser off or lamp on: %d from row 3, column %d "
                        "(interlock open)",
                        unlit, 120 - unlit - 24 + 1));
}

// The program says nothing else to the board for minutes.
TEST_F(BoardInTheLab, KeepAliveIsServedInAScanWithAnotherInstrument) {
    writeSettings(2.0, false);
    std::string settings = contentOf("KST_Data/Config.txt");
    settings.replace(settings.find("Ammeter:0"), 9, "Ammeter:2");
    writeDesktopFile("KST_Data/Config.txt", settings);
    writeDesktopFile("KST_Data/Setup.ini", "laser board keep-alive (s) = 2\n");
    writeDesktopFile("KST_Data/Options.ini", "wait before reading (ms) = 1500\n");
    runProgramOver(8, 6);
    EXPECT_EQ(textIn(Field::Information), "Mapping finished");
    EXPECT_EQ(board.ask("E"), "00");
    board.send(std::string("K2\0G 5 204\0", 11));
    board.runMs(2500);
    EXPECT_EQ(board.ask("I"), "00 00 04") << "it would have gone dark";
}

// The boot loader does not hear what is said when the port opens, and a reset ends a keep-alive.
TEST_F(BoardInTheLab, KeepAliveReachesABoardThatStartedAnew) {
    setUp.boardKeepAliveS = 2;
    const auto reset = [this] {
        catchUp();
        board.order("reset " + std::to_string(1500 * cyclesPerMs));
    };
    serial.farEnd.opened = reset;
    ASSERT_EQ(connectLaserBoard(nullptr), 1);
    serial.farEnd.opened = {};
    for (int start = 0; start < 2; ++start) {
        advanceVirtualTime(1600);
        watchLaserBoard();
        setLaserLevel(1);
        advanceVirtualTime(500);
        EXPECT_EQ(labLaserPwm(), 204) << start;
        advanceVirtualTime(2500); // as if the computer stood still
        EXPECT_EQ(labLaserPwm(), 0) << start;
        EXPECT_EQ(board.ask("I"), "00 00 04") << start;
        reset();
    }
}

TEST_F(BoardInTheLab, WatchdogInAScanLeavesTheRestDark) {
    mapWith([this] { board.order("hang"); });
    EXPECT_EQ(board.ask("I"), "00 00 08");
}

// With the boot loader and with the capacitor that keeps an opening of the port from the board.
TEST_F(BoardInTheLab, IsDarkAndHearsAgainWhenItsPortIsOpenedAgain) {
    for (const int deafMs : {1500, 0}) {
        if (deafMs > 0)
            serial.farEnd.opened = [=, this] {
                catchUp();
                board.order("reset " + std::to_string(deafMs * cyclesPerMs));
            };
        for (int opening = 0; opening < 2; ++opening) {
            ASSERT_EQ(connectLaserBoard(nullptr), 1);
            setLaserOutput(1);
            advanceVirtualTime(200);
            EXPECT_EQ(labLaserPwm(), 0);
            EXPECT_TRUE(labIlluminated());
            setLaserLevel(1);
            advanceVirtualTime(200);
            EXPECT_EQ(labLaserPwm(), 204);
        }
        serial.farEnd.opened = {};
        board.order("interlock 0");
        advanceVirtualTime(200);
        board.order("interlock 1");
    }
    EXPECT_LE(std::stoi(board.ask("E")), 2) << "what was cut off by the deafness";
}

} // namespace
