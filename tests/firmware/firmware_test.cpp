// The laser board's program, the very file that is flashed: at its pins and on its line.
#include "tests/doubles/doubles.h"
#include "tests/firmware/simulated_board.h"

#include <cmath>
#include <random>

namespace {

using namespace std::string_literals;

constexpr uint64_t bootMs = 5;

class FirmwareTest : public testing::Test {
protected:
    SimulatedBoard board;

    void SetUp() override { board.runMs(bootMs); }

    void tell(const std::string& command) { board.ask(command, 2); }
    int reason() { // why the laser is dark, the last number of the reply
        const std::string lights = board.ask("I");
        return std::stoi(lights.substr(lights.rfind(' ')));
    }
};

int of4096(int level) {
    return static_cast<int>(std::lround(level * 4096 / 255.0));
}

TEST(FirmwareStart, OutputsAreLowFromTheFirstInstruction) {
    constexpr int ddrD = 0x2A, portD = 0x2B, ucsr0b = 0xC1, outputs = 1 << 5 | 1 << 6;
    SimulatedBoard board;
    bool lit = false;
    board.lightChanged = [&] { lit = true; };
    for (int start = 0; start < 2; ++start) {
        board.runUntil(board.cycle + 15); // the jump and the four instructions
        EXPECT_EQ(board.peek(ddrD) & outputs, outputs);
        EXPECT_EQ(board.peek(portD) & outputs, 0);
        EXPECT_EQ(board.peek(ucsr0b) & 1 << 4, 0) << "the port listens already";
        board.runMs(200);
        EXPECT_FALSE(lit);
        board.order("reset 0");
    }
}

// simavr has no pulse of a single clock, up or down: the levels 1 and 254 are left out.
TEST_F(FirmwareTest, DutyAtThePinIsTheLevel) {
    for (int level : {2, 3, 64, 126, 127, 128, 129, 204, 253, 255, 17, 0, 255, 0, 204}) {
        tell("G 5 " + std::to_string(level));
        EXPECT_NEAR(board.laser, of4096(level), level % 255 ? 10 : 0) << level; // half a step is 8
    }
    tell("D 6 5");
    EXPECT_TRUE(board.lamp);
    tell("D 6 0");
    EXPECT_FALSE(board.lamp);
}

TEST_F(FirmwareTest, RepliesAsTheProgramReadsThem) {
    for (const int counts : {0, 7, 93, 512, 1023})
        for (const int readings : {1, 100}) {
            board.counts = [=] { return counts; };
            const uint64_t asked = board.send("R0 " + std::to_string(readings) + '\0');
            board.runUntil(asked + 100 * cyclesPerMs);
            ASSERT_GE(board.replies.size(), 2u) << "one character reads as 0";
            EXPECT_LT(board.replies[0].arrives - lineByteCycles,
                      asked + (readings == 1 ? 2 : 20) * cyclesPerMs);
            for (size_t i = 1; i < board.replies.size(); ++i)
                EXPECT_LT(board.replies[i].arrives - board.replies[i - 1].arrives, 3 * cyclesPerMs);
            EXPECT_EQ(std::stoi(board.takeReply()), counts);
        }
    // A question while the last one is not answered takes its place.
    board.counts = [n = 0]() mutable { return ++n <= 3 ? 1000 : 500; };
    board.send("R0 100\0R0 1\0"s);
    EXPECT_EQ(board.ask("E"), "50000");
    EXPECT_EQ(board.ask("V"), "Lumascan board 1.0, PWM, 5000 mV, start 01");
    EXPECT_LT(board.ask("V\0V\0V\0V"s, 200).size(), 150u) << "what finds no room is dropped whole";
    EXPECT_EQ(board.ask("P"), "00");
    EXPECT_EQ(board.ask("R3 1"), "00") << "another input";
}

// Each byte of each command replaced by every value, beside the laboratory's board.
TEST_F(FirmwareTest, AnswersAsTheLaboratorysBoard) {
    resetLab(1);
    for (const std::string command : {"z", "G 5 204", "G 5 0", "D 6 5", "D 6 0", "R0 1", "p", "P",
                                      "Q", "s-6400", "S12", "T0", "a-44800", "A7", "b0"})
        for (size_t place = 0; place < command.size(); ++place)
            for (int byte = 0; byte < 256; ++byte) {
                std::string line = command;
                line[place] = static_cast<char>(byte);
                if (line == "V" || line == "E" || line == "I" || line[0] == 'K') continue;
                const std::string reply = board.ask(line, 6);
                boardReceive(line.c_str(), line.size() + 1);
                std::string expected = takeBoardReply();
                if (expected.size() == 1) expected.insert(0, "0");
                ASSERT_EQ(reply, expected) << testing::PrintToString(line);
                ASSERT_NEAR(board.laser, of4096(labLaserPwm()), 20) << testing::PrintToString(line);
                ASSERT_EQ(board.lamp, labIlluminated()) << testing::PrintToString(line);
            }
    EXPECT_EQ(std::stoull(board.ask("E")), labCounters().boardErrors);
}

TEST_F(FirmwareTest, HearsOffBehindAnyRubbish) {
    std::mt19937 random(28);
    const auto rubbish = [&](size_t count) {
        std::string bytes;
        for (size_t i = 0; i < count; ++i) bytes += static_cast<char>(random());
        return bytes;
    };
    for (int burst = 0; burst < 40; ++burst) {
        tell("\0G 5 204"s);
        ASSERT_GT(board.laser, 0);
        board.send(rubbish(random() % 200));
        const uint64_t off = board.send("G 5 0\0"s);
        board.runUntil(board.send(rubbish(random() % 200)));
        board.runMs(10);
        ASSERT_EQ(board.laser, 0);
        ASSERT_LT(board.dark, off + 10 * cyclesPerMs);
    }
    const int dropped = std::stoi(board.ask("\0E"s));
    for (const std::string& line :
         {std::string(10'000, 'G'), "xG 5 204"s, "G 5 204 G 5 204"s, "D 6 5D 6 5"s}) {
        tell(line);
        EXPECT_EQ(board.laser, 0);
        EXPECT_FALSE(board.lamp);
    }
    board.order("damage");
    tell("G 5 204");
    EXPECT_EQ(board.laser, 0);
    EXPECT_EQ(std::stoi(board.ask("E")), dropped + 5);
    tell("G 5 204");
    EXPECT_GT(board.laser, 0);
}

TEST_F(FirmwareTest, InterlockKeepsTheLaserDarkUntilItIsToldOffAndOn) {
    const auto open = [&](bool isOpen) {
        board.order(isOpen ? "interlock 0" : "interlock 1");
        board.runMs(2);
    };
    const auto expectLight = [&](bool on, const char* when) {
        board.runMs(5);
        EXPECT_EQ(board.laser > 0, on) << when;
    };
    tell("z");
    tell("D 6 5");
    open(true);
    open(false);
    tell("G 5 204");
    expectLight(true, "opened and closed while it was dark");

    const uint64_t opened = board.cycle;
    open(true);
    EXPECT_LT(board.dark, opened + cyclesPerMs / 10);
    EXPECT_TRUE(board.lamp);
    EXPECT_EQ(board.ask("I"), "00 05 03");
    open(false);
    expectLight(false, "closed");
    EXPECT_EQ(reason(), 2);
    tell("G 5 204");
    expectLight(false, "on, without off");
    tell("G 5 0");
    tell("G 5 204");
    expectLight(true, "off and on");
    EXPECT_EQ(board.ask("I"), "204 05 00");

    for (uint64_t moment = 20; moment < 180; moment += 2) { // cycles
        board.order("interlock 0");
        board.runUntil(board.cycle + moment);
        open(false);
        EXPECT_EQ(reason(), board.laser > 0 ? 0 : 2) << moment;
        EXPECT_TRUE(board.laser == 0 || moment < 120) << moment;
        tell("G 5 0");
        tell("G 5 204");
    }
    tell("G 5 0");
    open(true);
    tell("G 5 204");
    open(false);
    expectLight(false, "told on while it was open, then closed");
    tell("G 5 204");
    expectLight(false, "that was not off and on either");
}

TEST_F(FirmwareTest, KeepAliveIsOffUntilItIsAskedFor) {
    tell("z");
    tell("G 5 204");
    board.runMs(20'000);
    EXPECT_GT(board.laser, 0);

    tell("K2");
    for (int i = 0; i < 5; ++i) {
        board.runMs(1900);
        EXPECT_EQ(reason(), 0) << "a question is a sign of life";
    }
    const uint64_t rubbish = board.cycle + 1000 * cyclesPerMs, last = board.cycle;
    board.runUntil(rubbish);
    board.send("x\0"s);
    board.runMs(1500);
    EXPECT_EQ(board.laser, 0);
    EXPECT_NEAR(static_cast<double>(board.dark - last) / cyclesPerMs, 1940, 10);
    EXPECT_EQ(reason(), 4);
    tell("G 5 204");
    EXPECT_EQ(reason(), 0);
    tell("z");
    board.runMs(5000);
    EXPECT_GT(board.laser, 0) << "a new session";
}

TEST_F(FirmwareTest, WatchdogEndsWhatIsCaught) {
    tell("z");
    tell("G 5 204");
    tell("D 6 5");
    const uint64_t caught = board.cycle;
    board.order("hang");
    board.runMs(200);
    EXPECT_EQ(board.laser, 0);
    EXPECT_FALSE(board.lamp);
    EXPECT_LT(board.dark, caught + 150 * cyclesPerMs);
    EXPECT_EQ(board.ask("I"), "00 00 08");
    EXPECT_EQ(board.ask("V"), "Lumascan board 1.0, PWM, 5000 mV, start 08");
    tell("G 5 204");
    EXPECT_NEAR(board.laser, of4096(204), 20);
}

TEST(FirmwareConverter, GivesTheLevelAndStartsDark) {
    SimulatedBoard board("laser_board_mcp4725.hex", "--mcp4725");
    board.runMs(100);
    EXPECT_EQ(board.ask("z\0I"s), "00 00 00");
    for (int level : {1, 128, 255, 204, 0, 204}) {
        board.ask("G 5 " + std::to_string(level), 5);
        EXPECT_NEAR(board.laser, of4096(level), 2) << level;
    }
    board.order("converter 0");
    board.order("converter 1");
    board.runMs(2);
    EXPECT_EQ(board.laser, 0) << "powered on, it does not give what was stored at the start";

    // The converter keeps its value over a reset, and when nobody reaches it; the gate does not.
    board.ask("G 5 255", 5);
    board.order("reset 0");
    board.runMs(100);
    EXPECT_EQ(board.laser, 0);
    board.ask("G 5 204", 5);
    board.order("interlock 0");
    board.runMs(2);
    constexpr int portD = 0x2B;
    EXPECT_EQ(board.peek(portD) & 1 << 5, 0);
    board.order("interlock 1");
    board.order("converter 0");
    board.ask("G 5 0", 20);
    board.ask("G 5 204", 20);
    EXPECT_EQ(board.peek(portD) & 1 << 5, 0);
    EXPECT_EQ(board.ask("I"), "00 00 24") << "the output failed; no session since the start";
    board.order("converter 1");
    board.ask("G 5 204", 20);
    EXPECT_NEAR(board.laser, of4096(204), 2);
}

} // namespace
