// The laser board's protocol byte by byte, and the two light switches.
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "screen/control_ids.h"
#include "tests/doubles/doubles.h"

namespace {

using LaserLinkTest = WindowTest;
using Numbers = std::vector<uint32_t>;

TEST_F(LaserLinkTest, OpeningSaysExactlyThis) {
    serial.scripted = true;
    serial.replies = {"32", "64", "-8"};
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 1);
    EXPECT_EQ(wire(), "z|p|P|Q|s-6400|S-6400|T-6400|a-44800|A-44800|b-44800|");
    EXPECT_EQ(laserLink.channelValue[0], -5.0);
    EXPECT_EQ(laserLink.channelValue[1], -10.0);
    EXPECT_EQ(laserLink.channelValue[2], 1.25);
    EXPECT_EQ(serial.openedNames, std::vector<std::string>{"\\\\.\\COM10"});
    const SerialLineState& line = serial.line;
    EXPECT_EQ((Numbers{line.baudRate, line.byteSize, line.parity, line.stopBits, line.flags}),
              (Numbers{9600, 8, 0, 0, 0x1011}))
        << "what is not ours stays as it was";
    const SerialTimeouts& wait = serial.timeouts;
    EXPECT_EQ((Numbers{wait.readInterval, wait.readTotalMultiplier, wait.readTotalConstant,
                       wait.writeTotalMultiplier, wait.writeTotalConstant}),
              (Numbers{10, 10, 50, 10, 50}));
    laserChannelSetting(laserLink, 0, 10);
    serial.replies = {"", "", ""};
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 1) << "the port is closed before it is opened";
    EXPECT_EQ(wire(), "s-64|z|p|P|Q|s-64|S-6400|T-6400|a-44800|A-44800|b-44800|");
}

TEST_F(LaserLinkTest, FailedOpenings) {
    answer("Error in  opening serial port", BoxAnswer::Ok);
    serial.refuseOpen = true;
    EXPECT_EQ(openLaserLink(laserLink, windows.main), 0);
    EXPECT_EQ(shownBoxes.back().caption, "Warning");
    EXPECT_EQ(shownBoxes.back().owner, windows.main);
    EXPECT_EQ(laserLink.disconnected, 1);
    EXPECT_EQ(readPhotocurrent(), 0.0f);
    serial.refuseOpen = false;
    serial.failLineState = 1;
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 2);
    serial.failLineState = 2;
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 0);
    serial.failSetLineState = true;
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 0);
    serial.failSetLineState = false;
    serial.failSetTimeouts = true;
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 0);
    EXPECT_EQ(wire(), "");
    laserLink.comPort = 7;
    answer("Error in  opening serial port", BoxAnswer::Ok);
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 0);
    EXPECT_EQ(serial.openedNames.back(), "\\\\.\\COM7");
    EXPECT_EQ(serial.openPorts, 0);
}

TEST_F(LaserLinkTest, RepliesBecomeVolts) {
    openScriptedLink();
    const struct {
        const char* reply;
        float volts;
        const char* shown;
    } cases[] = {
        {"512", 2.5f, "Rece.(0):512"},
        {"1023", 4.9951172f, "Rece.(0):1023"},
        {"7", 0.0f, "Rece.(0):7"}, // one character counts as 0
        {"12 rest", 0.05859375f, "Rece.(0):12 rest"},
        {"x12", 0.0f, "Rece.(0):x12"},
        {"", 0.0f, "Rece.(1):0"}, // nothing within the time-out
    };
    for (const auto& each : cases) {
        serial.replies = {each.reply};
        EXPECT_EQ(readPhotocurrent(), each.volts) << each.reply;
        EXPECT_EQ(textIn(Field::Information), each.shown);
        EXPECT_EQ(wire(), "R0 1|");
    }
    serial.replies = {std::string(60, '1')}; // only 50 bytes are asked for
    EXPECT_EQ(std::string(laserReceive(laserLink)), std::string(50, '1'));
    instrumentLink.ammeterKind = kindNiDaq;
    EXPECT_EQ(readPhotocurrent(), 0.0f);
    EXPECT_EQ(wire(), "");
}

TEST_F(LaserLinkTest, AnotherConverterHasItsOwnStepsEndAndDeadZone) {
    openScriptedLink();
    setUp.inputFullScaleVolts = 3.3;
    setUp.inputBits = 12;
    const struct {
        int32_t dead;
        const char* reply;
        double steps;
        bool overloaded;
    } cases[] = {{0, "7", 7, false},
                 {0, "1023", 1023, false},
                 {0, "4095", 4095, true},
                 {20, "19", 0, false},
                 {20, "20", 20, false}};
    for (const auto& each : cases) {
        setUp.inputDeadCounts = each.dead;
        serial.replies = {each.reply};
        const Reading reading = readPhotocurrent();
        EXPECT_EQ(reading.value(), static_cast<float>(each.steps * 3.3 / 4096)) << each.reply;
        EXPECT_EQ(reading.overloaded, each.overloaded) << each.reply;
    }
}

TEST_F(LaserLinkTest, FailedWriteTakesTheLinkDown) {
    openScriptedLink();
    laserLink.channelValue[1] = 3.5;
    serial.refuseWrite = true;
    EXPECT_EQ(laserWrite(laserLink, "p"), 0);
    EXPECT_EQ(laserLink.disconnected, 1);
    serial.refuseWrite = false;
    laserDigitalWrite(laserLink, 6, 5);
    EXPECT_EQ(wire(), "");
    EXPECT_STREQ(laserReceive(laserLink), "0");
    EXPECT_EQ(laserChannelValue(laserLink, 1), 3.5);
    EXPECT_EQ(readPhotocurrent(), 0.0f);
    EXPECT_EQ(serial.openPorts, 0) << "the port is free for the next opening";
    EXPECT_EQ(openLaserLink(laserLink, nullptr), 1);
}

TEST_F(LaserLinkTest, CommandsKeepTheirLength) {
    openScriptedLink();
    laserChannelSetting(laserLink, 3, 1);
    laserChannelRate(laserLink, -1, 1);
    EXPECT_EQ(wire(), "");
    laserChannelSetting(laserLink, 2, -7);
    EXPECT_EQ(laserLink.channelSetting[2], -7);
    laserAnalogWrite(laserLink, 5, 255);
    EXPECT_EQ(wire(), "T44|G 5 255|");
    EXPECT_DEATH(laserSend(laserLink, "12345678"), "");
}

// The board keeps its lights when its port is opened: what it was not told it does not know.
TEST_F(LaserLinkTest, OffThatDoesNotGoOutIsTriedOnceMoreAndThenSaid) {
    constexpr const char* lost = "Lumascan - laser board lost: the laser may be on";
    const std::string opening = "z|s-6400|S-6400|T-6400|a-44800|A-44800|b-44800|";
    openScriptedLink();
    setLaserOutput(1);
    setLaserLevel(1);
    serial.refuseWrite = true;
    laserWrite(laserLink, "p");
    EXPECT_EQ(textIn(Field::Information), "The laser board takes no commands");
    serial.refuseWrite = false;
    wire();
    setLaserLevel(0);
    EXPECT_EQ(wire(), opening + "G 5 0|D 6 5|");
    EXPECT_EQ(checkedRadio(idLaserOn), idLaserOff);
    EXPECT_EQ(windows.main->text, "");

    setLaserLevel(1);
    serial.refuseWrite = true;
    const size_t openings = serial.openedNames.size();
    setLaserLevel(0);
    EXPECT_EQ(serial.openedNames.size(), openings + 1);
    setLaserLevel(0);
    EXPECT_TRUE(systemKeptAwake);
    EXPECT_EQ(windows.main->text, lost);
    EXPECT_EQ(checkedRadio(idLaserOn), idLaserOn) << "the screen says off of a laser that is on";
    const auto& said = historyOf(Field::Information);
    EXPECT_EQ(std::count(said.begin(), said.end(), "laser board lost: the laser may be on"), 1);

    serial.refuseWrite = false;
    wire();
    serial.failLineState = 1;
    EXPECT_EQ(connectLaserBoard(windows.main), 2);
    EXPECT_EQ(wire(), "G 5 0|D 6 5|");
    EXPECT_EQ(windows.main->text, "Lumascan");
    EXPECT_FALSE(systemKeptAwake);
    EXPECT_EQ(checkedRadio(idLaserOn), idLaserOff);
    serial.replies = {"0", "0", "0"};
    EXPECT_EQ(connectLaserBoard(windows.main), 1);
    EXPECT_TRUE(wire().ends_with("b-44800|G 5 0|D 6 5|"));
}

// Over the new pins nobody could switch off what shines at the old ones.
TEST_F(LaserLinkTest, OtherPinsAreTakenOnceTheOldOnesAreDark) {
    openScriptedLink();
    setLaserOutput(1);
    setLaserLevel(1);
    wire();
    setUp.laserPin = 6;
    setUp.lampPin = 5;
    setUp.lampOnLevel = 255;
    setUp.laserFullScaleVolts = 8.0;
    EXPECT_TRUE(prepareOffCommands());
    EXPECT_EQ(wire(), "G 5 0|D 6 0|D 5 255|");
    EXPECT_FALSE(laserIsOn());
    setLaserLevel(1);
    EXPECT_EQ(wire(), "G 6 127|");

    setUp.laserPin = 9;
    serial.refuseWrite = true;
    EXPECT_FALSE(prepareOffCommands());
    EXPECT_TRUE(
        textIn(Field::Information).starts_with("The laser board does not switch a light off"));
    serial.refuseWrite = false;
    wire();
    setLaserLevel(0);
    darkenAtOnce();
    EXPECT_TRUE(wire().ends_with("G 6 0|D 5 0|"));
    EXPECT_EQ(connectLaserBoard(windows.main), 1);
    wire();
    darkenAtOnce();
    EXPECT_EQ(wire(), "G 9 0|D 5 0|");
}

// What another port takes switches nothing off.
TEST_F(LaserLinkTest, ALightThatMayBeOnIsSoAtItsPort) {
    constexpr const char* lost = "Lumascan - laser board lost: the laser may be on";
    serial.otherDevice = "\\\\.\\COM3";
    ASSERT_EQ(connectLaserBoard(windows.main), 1);
    setLaserLevel(1);
    ASSERT_TRUE(applyLabFaults("board unplugged"));
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    setLaserLevel(0);
    EXPECT_EQ(windows.main->text, lost);
    laserLink.comPort = 3;
    EXPECT_EQ(connectLaserBoard(windows.main), 1);
    EXPECT_EQ(windows.main->text, lost);
    EXPECT_EQ(textIn(Field::Information), "COM3 opens, but no board answers there");
    EXPECT_EQ(checkedRadio(idLaserOn), idLaserOn);
    // It hears at its own port, or answers at the one that it was moved to.
    ASSERT_TRUE(applyLabFaults(""));
    laserLink.comPort = 10;
    EXPECT_EQ(connectLaserBoard(windows.main), 1);
    EXPECT_EQ(windows.main->text, "Lumascan");
    EXPECT_EQ(labLaserPwm(), 0);
    setLaserLevel(1);
    serial.refuseWrite = true;
    setLaserLevel(0);
    EXPECT_EQ(windows.main->text, lost);
    serial.refuseWrite = false;
    serial.otherDevice = "";
    serial.boardPort = "\\\\.\\COM4";
    laserLink.comPort = 4;
    EXPECT_EQ(connectLaserBoard(windows.main), 1);
    EXPECT_EQ(windows.main->text, "Lumascan");
}

// Another program has the port: neither light was told what the screen says.
TEST_F(LaserLinkTest, APortThatIsTakenAtTheStartIsALostBoard) {
    for (const bool there : {true, false}) {
        ASSERT_TRUE(applyLabFaults(there ? "" : "board absent"));
        serial.refuseOpen = there;
        laserLink = {};
        answer("Error in  opening serial port", BoxAnswer::Ok);
        EXPECT_EQ(connectLaserBoard(windows.main), 0);
        setLaserLevel(0);
        setLaserOutput(1);
        EXPECT_EQ(windows.main->text, there ? "Lumascan - laser board lost" : "Lumascan");
        EXPECT_TRUE(!there || textIn(Field::Information) == "laser board lost");
    }
}

TEST_F(LaserLinkTest, LightsRememberOneStateBack) {
    openScriptedLink();
    struct {
        int (*set)(int);
        const char *on, *off;
        int radioOn, radioOff;
    } lights[] = {{setLaserLevel, "G 5 204|", "G 5 0|", idLaserOn, idLaserOff},
                  {setLaserOutput, "D 6 5|", "D 6 0|", idIlluminationOn, idIlluminationOff}};
    for (const auto& light : lights) {
        const struct {
            int mode, previous;
            bool lit;
        } steps[] = {{1, 0, true}, {2, 0, false}, // restored, and the states stay
                     {1, 1, true}, {2, 1, true},  {0, 1, false},
                     {2, 1, true}, {0, 0, false}, {2, 0, false}};
        for (const auto& step : steps) {
            EXPECT_EQ(light.set(step.mode), step.previous);
            EXPECT_EQ(wire(), step.lit ? light.on : light.off);
            EXPECT_EQ(checkedRadio(light.radioOn), step.lit ? light.radioOn : light.radioOff);
        }
    }
    EXPECT_EQ(focusCount, 16);
    laserLink.laserLevel = 1.0; // 51.0 of 255
    setLaserLevel(1);
    EXPECT_EQ(wire(), "G 5 51|");
}

} // namespace
