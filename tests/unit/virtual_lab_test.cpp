// The virtual laboratory itself, where no test of the program would notice: the sample the right
// way round in the picture, and wrong calls and commands that are not let pass.
#include "motion/stage.h"
#include "tests/doubles/doubles.h"
#include "virtual_lab/faces.h"

#include <cmath>
#include <sstream>

struct VirtualLab : LabTest {
    void SetUp() override {
        LabTest::SetUp();
        ASSERT_TRUE(openStages(2, motorSpeed));
    }

    std::vector<uint8_t> raw = std::vector<uint8_t>(size_t{labRawWidth} * labRawHeight);
    void* camera = nullptr;

    static std::string ask(const std::string& command) {
        boardReceive(command.c_str(), command.size() + 1);
        return takeBoardReply();
    }

    void openCamera() {
        EXPECT_EQ(PylonInitialize(), 0u);
        EXPECT_EQ(PylonCreateDeviceByIndex(0, &camera), 0u);
        EXPECT_EQ(PylonDeviceOpen(camera, LabPylon::accessControl | LabPylon::accessStream), 0u);
        EXPECT_EQ(PylonDeviceFeatureFromString(camera, "PixelFormat", "BayerRG8"), 0u);
        EXPECT_EQ(PylonDeviceSetFloatFeature(camera, "Gain", 1), 0u);
        EXPECT_EQ(PylonDeviceSetFloatFeature(camera, "ExposureTime", 100), 0u);
    }

    // Grey levels of a picture pixel.
    Rgb pixel(int column, int rowFromBottom) const {
        const uint8_t* cell =
            raw.data() + size_t{2} * size_t(1027 - rowFromBottom) * labRawWidth + 2 * column;
        return {double(cell[0]), (cell[1] + cell[labRawWidth]) / 2.0,
                double(cell[labRawWidth + 1])};
    }
};

TEST_F(VirtualLab, PictureShowsTheSampleTheRightWayRound) {
    openCamera();
    ASSERT_TRUE(moveXYTo(20, -15, motorSpeed));
    EXPECT_NEAR(labStageUm(labX), 20, 0.02);
    EXPECT_NEAR(labStageUm(labY), -13, 0.02) << "the play keeps the carriage higher";
    ask("D 6 5");
    renderLabFrame(raw.data());

    // Upper left, lower left and middle of the letter F, its mirror images, pads, flake, dead spot.
    const LabPoint places[] = {{-44, 42}, {-34, 42},  {-34, 26}, {-44, 26}, {-34, 34},
                               {44, 42},  {-44, -42}, {-60, 0},  {70, 15},  {-2, 60},
                               {10, 5},   {-10, 5},   {-2, -6}};
    for (const LabPoint& place : places) {
        auto column = int(std::lround((place.x - labStageUm(labX)) / labUmPerPixel)) + 616;
        auto row = int(std::lround((place.y - labStageUm(labY)) / labUmPerPixel)) + 514;
        Rgb seen = pixel(column, row), expected = textureAt(place.x, place.y);
        double levels = 120; // at full reflectance, 100 us, 1 dB
        EXPECT_NEAR(seen.red, expected.red * levels, 2.5) << place.x << " " << place.y;
        EXPECT_NEAR(seen.green, expected.green * levels, 2.5) << place.x << " " << place.y;
        EXPECT_NEAR(seen.blue, expected.blue * levels, 2.5) << place.x << " " << place.y;
    }
}

TEST_F(VirtualLab, BoardTakesItsCommandsAndNoOthers) {
    const char* bad[] = {
        "",       "x",    "pp",    "s",      "s1 2",
        "D 6",    "D6 5", "D 6 1", "D 6 5 ", "G 5 256",
        "G 5 -1", "R0",   "R0 0",  "R9 1",   "R0 1 and much more than any command of the set has"};
    for (const char* command : bad) EXPECT_EQ(ask(command), "") << command;
    EXPECT_EQ(labCounters().boardErrors, std::size(bad));
    boardReceive("D 6", 3); // a command may come in pieces, and two at once
    boardReceive(" 5\0G 5 1", 8);
    EXPECT_TRUE(labIlluminated());
    EXPECT_EQ(labLaserPwm(), 0);
    boardReceive("", 1);
    EXPECT_EQ(labLaserPwm(), 1);
    ask("G 5 204");
    advanceVirtualTime(30 * labRiseMs);
    EXPECT_NEAR(std::stoi(ask("R0 100")) * labAdcStepVolts, labPhotoVoltage(), labAdcStepVolts);
}

TEST_F(VirtualLab, InstrumentsTakeNoTypo) {
    const struct {
        int address; // on the bus
        std::vector<std::string> right, wrong;
    } instruments[] = {
        {18, {"REN", "F3X"}, {"F9X", "FX", "E3X", "F3R9X"}},
        {24,
         {":SOUR:VOLT 0.5", ":SENS:CURR:RANG 1E-8", ":READ?", "*CLS"},
         {":SOUR:VLT 1", ":SOUR:VOLT 500", ":SOUR:VOLT", ":SOUR:VOLT 1,2", ":SOUR:VOLT one",
          ":SENS:FUNC \"CURT\"", ":SENS:FUNC CURR", ":OUTP ONN", ":READ", ":SENSE:CURRE:RANG 1"}},
        {17,
         {"US", "IT1 BC DR1", "DV1, 1, 0.500000, 0.00000001"},
         {"DV1, 1, 0.5", "DV3, 1, 0, 1E-4", "DV1, 1, 30, 1E-4", "TI", "XX1", "DV1, 1, 0.5, 0.2"}}};
    for (const auto& [address, right, wrong] : instruments) {
        const int device = ibdev(0, address, 0, 13, 1, 0);
        char reply[100];
        const auto tell = [&](const std::string& command) {
            ibwrt(device, command.data(), command.size());
            if (address != 24 || command.back() == '?') ibrd(device, reply, sizeof reply);
        };
        uint64_t errors = labCounters().instrumentErrors;
        for (const std::string& command : right) tell(command);
        EXPECT_EQ(labCounters().instrumentErrors, errors) << address;
        for (const std::string& command : wrong) {
            tell(command);
            EXPECT_EQ(labCounters().instrumentErrors, ++errors) << command;
        }
        ibonl(device, 0);
    }
}

TEST_F(VirtualLab, CameraInsistsOnTypesRangesAndTheOrderOfCalls) {
    openCamera();
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "Gain", 36.5), 0u);
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "ExposureTime", std::nan("")), 0u);
    EXPECT_NE(PylonDeviceSetIntegerFeature(camera, "Gain", 3), 0u); // of another type
    EXPECT_NE(PylonDeviceFeatureFromString(camera, "GainAuto", "continuous"), 0u);
    void *grabber = nullptr, *buffer = nullptr, *wait = nullptr;
    uint8_t ready = 0;
    LabGrabResult result{};
    ASSERT_EQ(PylonDeviceGetStreamGrabber(camera, 0, &grabber), 0u);
    EXPECT_NE(PylonStreamGrabberPrepareGrab(grabber), 0u); // not open
    ASSERT_EQ(PylonStreamGrabberOpen(grabber), 0u);
    EXPECT_NE(PylonStreamGrabberPrepareGrab(grabber), 0u); // no sizes
    EXPECT_EQ(PylonStreamGrabberSetMaxNumBuffer(grabber, 1), 0u);
    EXPECT_EQ(PylonStreamGrabberSetMaxBufferSize(grabber, raw.size()), 0u);
    EXPECT_NE(PylonStreamGrabberRegisterBuffer(grabber, raw.data(), raw.size(), &buffer), 0u);
    ASSERT_EQ(PylonStreamGrabberPrepareGrab(grabber), 0u);
    EXPECT_FALSE(PylonDeviceFeatureIsWritable(camera, "Width"));
    ASSERT_EQ(PylonStreamGrabberRegisterBuffer(grabber, raw.data(), raw.size(), &buffer), 0u);
    ASSERT_EQ(PylonStreamGrabberQueueBuffer(grabber, buffer, this), 0u);
    EXPECT_NE(PylonStreamGrabberQueueBuffer(grabber, buffer, this), 0u); // twice
    EXPECT_EQ(PylonStreamGrabberStartStreamingIfMandatory(grabber), 0u);
    EXPECT_EQ(PylonStreamGrabberGetWaitObject(grabber, &wait), 0u);
    EXPECT_NE(PylonWaitObjectWait(wait, 0xFFFFFFFF, &ready), 0u); // would never end
    ASSERT_EQ(PylonDeviceExecuteCommandFeature(camera, "AcquisitionStart"), 0u);
    EXPECT_EQ(PylonWaitObjectWait(wait, 5, &ready), 0u);
    EXPECT_FALSE(ready); // exposure and read-out take longer
    EXPECT_EQ(PylonWaitObjectWait(wait, 0xFFFFFFFF, &ready), 0u);
    EXPECT_NE(PylonStreamGrabberDeregisterBuffer(grabber, buffer), 0u); // not retrieved
    EXPECT_EQ(PylonStreamGrabberRetrieveResult(grabber, &result, &ready), 0u);
    applyLabFaults("camera lost");
    applyLabFaults(""); // plugged in again, it must be made and opened anew
    EXPECT_NE(PylonDeviceExecuteCommandFeature(camera, "AcquisitionStop"), 0u);
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "Gain", 1), 0u);
    EXPECT_NE(PylonStreamGrabberFinishGrab(grabber), 0u); // a buffer is still registered
    EXPECT_NE(PylonDeviceClose(camera), 0u);              // the stream grabber is open
}

TEST_F(VirtualLab, FaultsThatAreNotUnderstoodChangeNothing) {
    EXPECT_TRUE(applyLabFaults("# broken today\r\n\r\n  stage count 2\r\nscope absent\n"));
    std::istringstream lines(
        "stage count 4\ncamera\naxis w stalled\naxis x\nboard gone\nlimit x up at 3\n"
        "limit x right 3\nbacklash z -1\ncamera lost today\ncamera lacks Gainauto\ngpib\n"
        "gpib error ibxyz\ngpib error ibwrt 0\ngpib error ibwrt 2 3\ngpib scope at 4\n"
        "gpib multimeter at 31\nscope count 3\nscope lost\nvisa silent\nk2450\n"
        "instrument broken\nanalyzer absent today\n");
    for (std::string bad; std::getline(lines, bad);) EXPECT_FALSE(applyLabFaults(bad)) << bad;
    EXPECT_EQ(open_device("virtual:3"), -1);
}
