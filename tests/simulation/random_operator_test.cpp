// Operators who press anything at any time while anything breaks: the program ends when it is
// closed, with the laser off and nothing leaked.
#include "app/program.h"
#include "app/responsive_wait.h"
#include "instruments/ammeter.h"
#include "mapping/scan_area.h"
#include "platform/text_format.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/control_ids.h"

#include <random>

namespace {

const char* const faults[] = {"",
                              "",
                              "camera lost",
                              "camera absent",
                              "stage absent",
                              "axis x stalled",
                              "limit x right at 15",
                              "board unplugged",
                              "gpib error",
                              "gpib absent",
                              "visa absent",
                              "instrument absent",
                              "instrument stuck",
                              "instrument silent",
                              "instrument garbage"};

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
        const std::string fault = oneOf(faults);
        EXPECT_TRUE(applyLabFaults(fault));
        boardBroken |= fault.starts_with("board");
        busBroken |= fault.starts_with("gpib") || fault.starts_with("instrument");
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
    bool busBroken = false;   // nor a source
};

TEST_P(RandomOperatorTest, EndsWithTheLaserOff) {
    answerOthers = [this](const ShownBox& box) {
        const BoxAnswer replies[] = {BoxAnswer::No, BoxAnswer::Cancel, BoxAnswer::None};
        const bool stops = box.text.starts_with("Do you want to stop");
        return below(5) == 0 ? oneOf(replies) : stops ? BoxAnswer::No : BoxAnswer::Yes;
    };
    const int kind = static_cast<int>(GetParam() % equipmentKindCount);
    writeDesktopFile(
        "KST_Data/Config.txt",
        formatted("step:4.0, laser:4.00, laser correct:(640,500), Ammeter:%d, GPIB:%d, "
                  "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, 1\n",
                  kind, kind == kindGpibSourcemeter ? 24 : 18));
    instrumentLink.biasVoltage = 0.5f;
    testing::internal::CaptureStdout();
    double time = 2000;
    at(time, [] {
        postDrag(560, 470, 670, 560);
        postCommand(idStart);
    });
    for (int i = 0; i < 60; ++i) at(time += below(1000), [this] { doSomething(); });
    at(time + 1, [] { post(messageClose); });
    EXPECT_EQ(runProgram(1), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(processRunning, 0);
    EXPECT_EQ(imagingStarts, 0);
    if (!boardBroken) {
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_FALSE(labIlluminated());
    }
    if (!busBroken) {
        EXPECT_EQ(labBiasVolts(), 0.0);
    }
    // Kind 7 was opened over the network and is closed on the bus; an adapter that was pulled
    // cannot take a device offline.
    EXPECT_EQ(labCounters().visaSessions, kind == kindUsbSourcemeter ? 2u : 0u);
    EXPECT_LE(labCounters().networkLinks, kind == kindAnalyzerGpib ? 1u : 0u);
    EXPECT_LE(labCounters().gpibDescriptors, kind == kindGpibMultimeter || busBroken ? 1u : 0u);
    EXPECT_EQ(labCounters().cameraDevices, 0u);
    EXPECT_EQ(serial.openPorts, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomOperatorTest, testing::Range(0u, 20u));

} // namespace
