// Operators who press anything at any time while anything breaks: the program ends when it is
// closed, with the laser off and nothing leaked.
#include "app/program.h"
#include "app/responsive_wait.h"
#include "mapping/scan_area.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/control_ids.h"

#include <random>

namespace {

class RandomOperatorTest : public LabTest, public testing::WithParamInterface<uint32_t> {
protected:
    int below(int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); }

    template <class T, size_t count> T oneOf(const T (&choices)[count]) {
        return choices[below(static_cast<int>(count))];
    }

    void typeSomething() {
        const struct {
            Field field;
            void (*enter)();
        } edits[] = {
            {Field::ScanStep, enterScanStep},   {Field::LaserIntensity, enterLaserIntensity},
            {Field::Gain, enterGain},           {Field::Exposure, enterExposure},
            {Field::PositionX, enterPositionX}, {Field::PositionY, enterPositionY},
            {Field::PositionZ, enterPositionZ}};
        const char* const texts[] = {"5", "-30", "", "nan", "1e30", "9999999999", "100", "x"};
        const auto edit = oneOf(edits);
        typeInto(edit.field, oneOf(texts));
        postCall([enter = edit.enter] { enter(); });
    }

    void breakOrMend() {
        const char* const faults[] = {"",
                                      "",
                                      "camera lost",
                                      "camera absent",
                                      "stage absent",
                                      "axis x stalled",
                                      "limit x right at 15",
                                      "board unplugged"};
        const std::string fault = oneOf(faults);
        EXPECT_TRUE(applyLabFaults(fault));
        boardBroken |= fault.starts_with("board");
        const char* const files[] = {"", "Confocal", "KST_Data"};
        refusedFile = oneOf(files);
        foldersRefused = below(4) == 0;
        drawingFailures[static_cast<Drawing>(below(8))] = below(25);
    }

    void doSomething() {
        // Numbers of commands lie in these ranges; some belong to none.
        const int firstCommands[] = {idStart, 2100, idLaserOn, idFocus, idSaveWindowImage};
        const uintptr_t keys[] = {keyPageUp, keyPageDown, keyLeft, keyUp, keyRight, keyDown, 'A'};
        const int x = below(1446), y = below(1069);
        switch (below(9)) {
        case 0:
            return postKey(oneOf(keys));
        case 1:
            return postClick(x, y);
        case 2:
            return postDrag(x, y, x + below(120) - 60, y + below(120) - 60);
        case 3:
            return typeSomething();
        case 4:
            return breakOrMend();
        case 5:
            return postCommand(idStart);
        default:
            return postCommand(oneOf(firstCommands) + below(39));
        }
    }

    std::mt19937 random{GetParam()};
    bool boardBroken = false; // nobody can switch a board off that does not hear
};

TEST_P(RandomOperatorTest, EndsWithTheLaserOff) {
    answerOthers = [this](const ShownBox& box) {
        const BoxAnswer replies[] = {BoxAnswer::No, BoxAnswer::Cancel, BoxAnswer::None};
        const bool stops = box.text.starts_with("Do you want to stop");
        return below(5) == 0 ? oneOf(replies) : stops ? BoxAnswer::No : BoxAnswer::Yes;
    };
    double time = 2000;
    at(time, [] {
        postDrag(560, 470, 670, 560);
        typeInto(Field::ScanStep, "4");
        postCall(enterScanStep);
        postCommand(idStart);
    });
    for (int i = 0; i < 60; ++i) at(time += below(1000), [this] { doSomething(); });
    at(time + 1, [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
    EXPECT_EQ(processRunning, 0);
    EXPECT_EQ(imagingStarts, 0);
    if (!boardBroken) {
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_FALSE(labIlluminated());
    }
    EXPECT_EQ(labCounters().cameraDevices, 0u);
    EXPECT_EQ(serial.openPorts, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomOperatorTest, testing::Range(0u, 20u));

} // namespace
