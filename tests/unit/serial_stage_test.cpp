// The older stepper stage behind the serial link: its commands, its replies, its limits.
#include "motion/serial_stage.h"
#include "tests/doubles/doubles.h"

namespace {

using SerialStageTest = WindowTest;

TEST_F(SerialStageTest, RepliesEndTheWay) {
    openScriptedLink();
    const struct {
        int axis;
        std::vector<const char*> replies;
        const char *sent, *progress, *information;
        double maximum, minimum;
    } cases[] = {
        {0, {"p-320", "p-639"}, "m-640|", "arrived(1) : 30/200", "Rece.(0):p-639", 1e4, -1e4},
        {1, {"p-640", "Y"}, "M-640|", "", "Rece.(0):Y", 1e4, -1e4}, // another axis's report
        {1, {"YL"}, "M-640|", "", "Limited: YL", 50, -1e4},
        {2, {"ZR"}, "L-640|", "", "Limited: ZR", 1e4, 50},
    };
    for (const auto& each : cases) {
        const int axis = each.axis;
        laserLink.channelValue[axis] = axis == 0 ? 0.0 : 50.0;
        laserLink.channelSetting[axis] = axis == 0 ? 1000 : 500; // um/s: 100 ms to go
        laserLink.channelMaximum[axis] = 1e4;
        serial.replies.assign(each.replies.begin(), each.replies.end());
        historyOf(Field::Progress).clear();
        EXPECT_TRUE(moveSerialAxisTo(laserLink, axis, 100.0));
        EXPECT_EQ(wire(), each.sent);
        EXPECT_EQ(textIn(Field::Progress), each.progress);
        EXPECT_EQ(textIn(Field::Information), each.information);
        EXPECT_EQ(laserLink.channelValue[axis], 100.0);
        EXPECT_EQ(laserLink.channelMaximum[axis], each.maximum);
        EXPECT_EQ(laserLink.channelMinimum[axis], each.minimum);
    }
    serial.replies = {"X", "", "-64"}; // the wrong axis, silence, the answer to the question
    EXPECT_TRUE(waitForSerialArrival(laserLink, 2, 100.0, 200));
    EXPECT_EQ(wire(), "Q|");
    EXPECT_EQ(laserLink.channelValue[2], 10.0);
    EXPECT_FALSE(moveSerialAxisTo(laserLink, 0, 10001.0));
    EXPECT_EQ(textIn(Field::Information), "Error: Out of Motor range");
    laserLink.disconnected = 1;
    EXPECT_FALSE(moveSerialAxisTo(laserLink, 0, 20.0));
    EXPECT_EQ(laserLink.channelValue[0], 20.0) << "offline the cached position moves";
    EXPECT_EQ(wire(), "");
}

} // namespace
