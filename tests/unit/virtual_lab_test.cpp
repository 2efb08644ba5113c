// The virtual laboratory itself: other tests are worth what it is worth.
#include "tests/doubles/doubles.h"
#include "virtual_lab/faces.h"

#include <cmath>
#include <numeric>

struct VirtualLab : LabTest {
    std::vector<uint8_t> raw = std::vector<uint8_t>(size_t{labRawWidth} * labRawHeight);
    void* camera = nullptr;

    // A controller open and fast enough for the test; the program's speed.
    static int openAxis(int axis) {
        const char* names[] = {"virtual:2", "virtual:1", "virtual:3"};
        int id = open_device(names[axis]);
        engine_settings_t settings{};
        EXPECT_EQ(get_engine_settings(id, &settings), 0);
        settings.NomSpeed = 500;
        settings.EngineFlags &= ~ENGINE_ACCEL_ON;
        EXPECT_EQ(set_engine_settings(id, &settings), 0);
        return id;
    }

    // Full steps from where the motor stands.
    static void move(int id, int steps, double waitMs = 10000) {
        status_t status{};
        EXPECT_EQ(get_status(id, &status), 0);
        EXPECT_EQ(command_move(id, status.CurPosition + steps, status.uCurPosition), 0);
        advanceVirtualTime(waitMs);
    }

    static std::string ask(const std::string& command) {
        boardReceive(command.c_str(), command.size() + 1);
        return takeBoardReply();
    }

    // The laser at 4.0 V, and all that it makes settled.
    static void lightOn() {
        ask("G 5 204");
        advanceVirtualTime(30 * labRiseMs);
    }

    void openCamera() {
        EXPECT_EQ(PylonInitialize(), 0u);
        EXPECT_EQ(PylonCreateDeviceByIndex(0, &camera), 0u);
        EXPECT_EQ(PylonDeviceOpen(camera, pylonAccessControl | pylonAccessStream), 0u);
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

    void TearDown() override {
        if (camera) {
            EXPECT_EQ(PylonDeviceClose(camera), 0u);
            EXPECT_EQ(PylonDestroyDevice(camera), 0u);
            EXPECT_EQ(PylonTerminate(), 0u);
        }
        for (const char* name : {"virtual:1", "virtual:2", "virtual:3"}) {
            int id = open_device(name); // shows that it was closed
            EXPECT_GE(id, 0);
            close_device(&id);
        }
        LabTest::TearDown();
    }
};

TEST_F(VirtualLab, PictureShowsTheSampleTheRightWayRound) {
    openCamera();
    int x = openAxis(labX), y = openAxis(labY);
    move(x, 16);  // +20 um
    move(y, -12); // -15 um, and the play keeps the carriage 2 um higher
    EXPECT_NEAR(labStageUm(labX), 20, 1e-9);
    EXPECT_NEAR(labStageUm(labY), -13, 1e-9);
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
    close_device(&x);
    close_device(&y);
}

TEST_F(VirtualLab, LaserSpotHasItsPlaceItsColourAndItsFocus) {
    openCamera();
    lightOn();
    renderLabFrame(raw.data());
    LabPixel spot = labSpotPixel();
    LabPoint under = labLaserSpotSample();
    Rgb peak = pixel(spot.column, spot.row), colour = textureAt(under.x, under.y);
    EXPECT_NEAR(peak.red / peak.blue, colour.red / colour.blue, 0.05);
    EXPECT_NEAR(peak.green, 210 * colour.green, 4);
    EXPECT_GT(peak.green, pixel(spot.column, spot.row + 5).green + 20);
    EXPECT_NEAR(pixel(spot.column, spot.row - 5).green, pixel(spot.column, spot.row + 5).green, 2);
    EXPECT_LE(pixel(1232 - spot.column, 1028 - spot.row - 30).green, 2);

    int z = openAxis(labZ);
    double volts = labPhotoVoltage();
    move(z, 8); // 10 um out of focus
    renderLabFrame(raw.data());
    EXPECT_LT(pixel(spot.column, spot.row).green, peak.green / 5);
    EXPECT_LT(labPhotoVoltage(), volts / 5);
    EXPECT_NEAR(labPhotoVoltage(), expectedVolts(under.x, under.y, 4.0, 10), 1e-9);
    close_device(&z);
}

TEST_F(VirtualLab, PictureBlursOnBothSidesOfTheFocus) {
    openCamera();
    ask("D 6 5");
    int z = openAxis(labZ);
    // Steepness of the upright edges of contacts and flake, over rows enough to quiet the noise.
    auto sharpness = [this] {
        renderLabFrame(raw.data());
        std::vector<double> means(labRawWidth);
        for (size_t i = 0; i < raw.size(); ++i)
            if (i / labRawWidth >= 900 && i / labRawWidth < 1100)
                means[i % labRawWidth] += raw[i] / 200.0;
        double sum = 0;
        for (size_t i = 2; i < means.size(); ++i) sum += std::pow(means[i] - means[i - 2], 2);
        return sum;
    };
    double inFocus = sharpness();
    const std::vector<uint8_t> picture = raw;
    for (int direction : {1, -1}) {
        move(z, direction); // within the depth of focus
        renderLabFrame(raw.data());
        EXPECT_EQ(raw, picture);
        double last = inFocus;
        for (int steps : {2, 4, 16, 48}) {
            move(z, direction * steps);
            double now = sharpness();
            EXPECT_LT(now, 0.9 * last) << labStageUm(labZ);
            last = now;
        }
        move(z, -71 * direction);
        EXPECT_NEAR(labStageUm(labZ), 0, 0.81); // back, but for the play
    }
    close_device(&z);
}

TEST_F(VirtualLab, SpotKeepsItsLightOutOfFocus) {
    openCamera();
    auto light = [this] {
        renderLabFrame(raw.data());
        return std::accumulate(raw.begin(), raw.end(), 0.0);
    };
    const double dark = light();
    lightOn();
    const LabPixel spot = labSpotPixel();
    const LabPoint under = labLaserSpotSample();
    const Rgb colour = textureAt(under.x, under.y);
    int z = openAxis(labZ);
    for (int steps : {0, 2, 6, 16, 56, 24}) {
        move(z, steps);
        double sigma =
            6 * std::hypot(1, (labStageUm(labZ) - surfaceHeightAt(under.x, under.y)) / 3);
        auto share = [sigma](int before, int size) { // of what falls on the sensor
            double scale = sigma * std::sqrt(2);
            return (std::erf((size - before - 0.5) / scale) + std::erf((before + 0.5) / scale)) / 2;
        };
        double expected = 210 * 2 * M_PI * 36 * (colour.red + 2 * colour.green + colour.blue) *
                          share(spot.column, labRawWidth / 2) * share(spot.row, labRawHeight / 2);
        EXPECT_NEAR((light() - dark) / expected, 1, 0.02) << labStageUm(labZ);
    }
    close_device(&z);
}

TEST_F(VirtualLab, CarriageLagsBehindTheMotorAfterATurn) {
    int x = openAxis(labX);
    status_t before{}, after{};
    get_status(x, &before);
    move(x, 40);
    EXPECT_NEAR(labStageUm(labX), 50, 1e-9);
    move(x, -1); // 1.25 um are lost in 2 um of play
    EXPECT_NEAR(labStageUm(labX), 50, 1e-9);
    move(x, -39);
    EXPECT_NEAR(labStageUm(labX), 2, 1e-9);
    get_status(x, &after);
    EXPECT_EQ(after.CurPosition, before.CurPosition);
    applyLabFaults("backlash x 0");
    EXPECT_NEAR(labStageUm(labX), 0, 1e-9);

    move(x, 100, 100); // 50 of 100 steps at 500 a second
    EXPECT_NEAR(labStageUm(labX), 62.5, 1e-6);
    get_status(x, &after);
    EXPECT_EQ(after.MoveSts & 1, 1u);
    command_stop(x);
    advanceVirtualTime(1000);
    EXPECT_NEAR(labStageUm(labX), 62.5, 0.005);
    close_device(&x);
}

TEST_F(VirtualLab, LimitSwitchAndStalledMotorStopTheCarriage) {
    int x = openAxis(labX), y = openAxis(labY);
    status_t status{};
    EXPECT_TRUE(applyLabFaults("limit x right at 25\nlimit x left at -30"));
    move(x, 40);
    EXPECT_NEAR(labStageUm(labX), 25, 1e-9);
    get_status(x, &status);
    EXPECT_EQ(status.GPIOFlags, STATE_RIGHT_EDGE);
    move(x, -80);
    EXPECT_NEAR(labStageUm(labX), -30, 1e-9);
    get_status(x, &status);
    EXPECT_EQ(status.GPIOFlags, STATE_LEFT_EDGE);
    move(x, 10);
    get_status(x, &status);
    EXPECT_EQ(status.GPIOFlags, 0u);

    command_move(y, 100000, 0);
    advanceVirtualTime(100);
    applyLabFaults("axis y stalled");
    double stuckAt = labStageUm(labY);
    EXPECT_NEAR(stuckAt, 62.5, 1e-6);
    move(y, 10);
    EXPECT_EQ(labStageUm(labY), stuckAt);
    close_device(&x);
    close_device(&y);
}

TEST_F(VirtualLab, BoardTakesItsCommandsAndNoOthers) {
    uint64_t errors = labCounters().boardErrors;
    for (const char* good : {"z", "s-6400", "S-6400", "T12", "a-44800", "A-44800", "b-44800",
                             "D 6 5", "D 6 0", "D 13 1", "G 5 0", "G 5 255"})
        EXPECT_EQ(ask(good), "") << good;
    EXPECT_EQ(labCounters().boardErrors, errors);
    EXPECT_EQ(ask("p"), "-6400");
    EXPECT_EQ(ask("Q"), "12");
    EXPECT_EQ(ask("R3 1"), "0");
    EXPECT_EQ(labLaserPwm(), 255);
    EXPECT_FALSE(labIlluminated());

    const char* bad[] = {
        "",       "x",    "pp",    "s",      "s1 2",
        "D 6",    "D6 5", "D 6 1", "D 6 5 ", "G 5 256",
        "G 5 -1", "R0",   "R0 0",  "R9 1",   "R0 1 and much more than any command of the set has"};
    for (const char* command : bad) EXPECT_EQ(ask(command), "") << command;
    EXPECT_EQ(labCounters().boardErrors, errors + std::size(bad));
    EXPECT_EQ(labLaserPwm(), 255);

    boardReceive("D 6", 3); // a command may come in pieces, and two at once
    boardReceive(" 5\0G 5 1", 8);
    EXPECT_TRUE(labIlluminated());
    EXPECT_EQ(labLaserPwm(), 255);
    boardReceive("", 1);
    EXPECT_EQ(labLaserPwm(), 1);
    EXPECT_EQ(labBoardCommands().back(), "G 5 1");
}

TEST_F(VirtualLab, AnalogInputReadsTheLandscape) {
    lightOn();
    LabPoint spot = labLaserSpotSample();
    double sum = 0, squares = 0;
    constexpr int reads = 2000;
    for (int i = 0; i < reads; ++i) {
        double volts = std::stoi(ask("R0 1")) * labAdcStepVolts;
        sum += volts;
        squares += volts * volts;
    }
    double mean = sum / reads;
    // Conversion rounds down, half a step on average.
    EXPECT_NEAR(mean + labAdcStepVolts / 2, expectedVolts(spot.x, spot.y, 4.0, 0),
                0.1 * labAdcStepVolts);
    double rms = std::sqrt(squares / reads - mean * mean);
    EXPECT_GT(rms, 0.3 * labAdcStepVolts);
    EXPECT_LT(rms, 0.8 * labAdcStepVolts);
    EXPECT_EQ(labReads().back().sampleX, spot.x);
    EXPECT_GT(landscapeAt(12, 5), landscapeAt(-12, -5));
}

// Through a cycle that is too short to settle: each step begins where the last one ended.
TEST_F(VirtualLab, PhotocurrentRisesAndDecaysWithTheLight) {
    const LabPoint spot = labLaserSpotSample();
    const struct {
        const char* command;
        double afterMs, level, target, timeConstant;
    } steps[] = {{"G 5 0", 100, 0, 0, 250},     {"G 5 204", 0, 4, 1, 150},
                 {"G 5 204", 120, 4, 1, 150},   {"G 5 102", 0, 2, 1, 150}, // acts at once
                 {"G 5 102", 60, 2, 1, 150},    {"G 5 0", 0, 2, 0, 250},
                 {"G 5 0", 200, 2, 0, 250},     {"G 5 204", 30, 4, 1, 150},
                 {"G 5 204", 10000, 4, 1, 150}, {"G 5 0", 250, 4, 0, 250}};
    double population = 0;
    for (const auto& step : steps) {
        ask(step.command);
        advanceVirtualTime(step.afterMs);
        population =
            step.target + (population - step.target) * std::exp(-step.afterMs / step.timeConstant);
        EXPECT_NEAR(labLightResponse(), population, 1e-12) << step.command;
        EXPECT_NEAR(labPhotoVoltage(), population * expectedVolts(spot.x, spot.y, step.level, 0),
                    1e-9)
            << step.command;
    }
    EXPECT_NEAR(std::stoi(ask("R0 20")) * labAdcStepVolts, labPhotoVoltage(), 2 * labAdcStepVolts);
}

TEST_F(VirtualLab, CameraInsistsOnTheOrderOfCalls) {
    openCamera();
    void *grabber = nullptr, *buffer = nullptr, *wait = nullptr;
    uint8_t ready = 0;
    PylonGrabResult_t result{};
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
    EXPECT_TRUE(ready);
    EXPECT_NE(PylonStreamGrabberDeregisterBuffer(grabber, buffer), 0u); // not retrieved
    EXPECT_EQ(PylonStreamGrabberRetrieveResult(grabber, &result, &ready), 0u);
    EXPECT_EQ(result.Status, pylonGrabbed);
    EXPECT_EQ(result.pBuffer, raw.data());
    EXPECT_EQ(result.Context, this);
    EXPECT_EQ(result.PayloadSize, raw.size());

    ASSERT_EQ(PylonStreamGrabberQueueBuffer(grabber, buffer, nullptr), 0u);
    applyLabFaults("camera lost");
    EXPECT_NE(PylonWaitObjectWait(wait, 0xFFFFFFFF, &ready), 0u);
    EXPECT_NE(PylonDeviceExecuteCommandFeature(camera, "AcquisitionStop"), 0u);
    applyLabFaults(""); // plugged in again, it must be made and opened anew
    double gain = 0;
    EXPECT_EQ(PylonDeviceGetFloatFeature(camera, "Gain", &gain), 0u); // a cached value
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "Gain", gain), 0u);

    EXPECT_NE(PylonStreamGrabberFinishGrab(grabber), 0u); // a buffer is still registered
    EXPECT_EQ(PylonStreamGrabberStopStreamingIfMandatory(grabber), 0u);
    EXPECT_EQ(PylonStreamGrabberFlushBuffersToOutput(grabber), 0u);
    EXPECT_EQ(PylonStreamGrabberRetrieveResult(grabber, &result, &ready), 0u);
    EXPECT_EQ(result.Status, pylonCancelled);
    EXPECT_EQ(PylonStreamGrabberDeregisterBuffer(grabber, buffer), 0u);
    EXPECT_EQ(PylonStreamGrabberFinishGrab(grabber), 0u);
    EXPECT_NE(PylonDeviceClose(camera), 0u); // the stream grabber is open
    EXPECT_EQ(PylonStreamGrabberClose(grabber), 0u);
}

TEST_F(VirtualLab, FeaturesHaveRangesRegionsAndGenerations) {
    openCamera();
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "Gain", 36.5), 0u);
    EXPECT_NE(PylonDeviceSetFloatFeature(camera, "ExposureTime", std::nan("")), 0u);
    EXPECT_NE(PylonDeviceSetIntegerFeature(camera, "Gain", 3), 0u); // of another type
    EXPECT_NE(PylonDeviceFeatureFromString(camera, "GainAuto", "continuous"), 0u);
    size_t length = 0;
    EXPECT_EQ(GenApiGetLastErrorMessage(nullptr, &length), 0u);
    std::string message(length, ' ');
    EXPECT_EQ(GenApiGetLastErrorMessage(message.data(), &length), 0u);
    EXPECT_NE(message.find("GainAuto"), std::string::npos);

    int64_t most = 0, width = 0;
    EXPECT_EQ(PylonDeviceSetIntegerFeature(camera, "Width", 2000), 0u);
    EXPECT_EQ(PylonDeviceGetIntegerFeatureMax(camera, "OffsetX", &most), 0u);
    EXPECT_EQ(most, 464);
    EXPECT_EQ(PylonDeviceSetIntegerFeature(camera, "AutoFunctionROIWidth", 100), 0u);
    EXPECT_EQ(PylonDeviceFeatureFromString(camera, "AutoFunctionROISelector", "ROI2"), 0u);
    EXPECT_EQ(PylonDeviceGetIntegerFeature(camera, "AutoFunctionROIWidth", &width), 0u);
    EXPECT_EQ(width, labRawWidth);
    EXPECT_EQ(PylonDeviceFeatureFromString(camera, "AutoFunctionROISelector", "ROI1"), 0u);
    EXPECT_EQ(PylonDeviceGetIntegerFeature(camera, "AutoFunctionROIWidth", &width), 0u);
    EXPECT_EQ(width, 100);

    EXPECT_FALSE(PylonDeviceFeatureIsWritable(camera, "AutoTargetValue"));
    applyLabFaults("camera sfnc 1");
    EXPECT_TRUE(PylonDeviceFeatureIsWritable(camera, "AutoTargetValue"));
    EXPECT_FALSE(PylonDeviceFeatureIsReadable(camera, "DeviceSFNCVersionMajor"));
}

TEST_F(VirtualLab, FaultsThatAreNotUnderstoodChangeNothing) {
    EXPECT_TRUE(applyLabFaults("# broken today\r\n\r\n  stage count 2\r\ncamera absent\n"));
    for (const char* bad :
         {"stage count 4", "camera", "axis w stalled", "axis x", "board gone", "limit x up at 3",
          "limit x right 3", "backlash z -1", "camera lost today"})
        EXPECT_FALSE(applyLabFaults(bad)) << bad;
    void* found = enumerate_devices(5, "");
    EXPECT_EQ(get_device_count(found), 2);
    EXPECT_EQ(get_device_name(found, 2), nullptr);
    free_enumerate_devices(found);
    EXPECT_EQ(open_device("virtual:3"), -1);
    applyLabFaults("");
}
