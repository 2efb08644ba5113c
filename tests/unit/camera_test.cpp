// The camera through the laboratory's SDK: connecting, both generations of names, loss, no camera.
#include "camera/Basler_camera.h"
#include "camera/camera.h"
#include "tests/doubles/doubles.h"
#include "ui/live_view.h"

#include <algorithm>
#include <cstdlib>

namespace {

using CameraTest = WindowTest;

void illuminate(bool on = true) {
    const std::string command = on ? "D 6 5" : "D 6 0";
    boardReceive(command.c_str(), command.size() + 1);
}

TEST_F(CameraTest, WithoutACameraAPatternMoves) {
    libraries.absent.insert("PylonC_v9.dll");
    EXPECT_EQ(initCamera(cameraState), 0);
    EXPECT_EQ(textIn(Field::Information), "No camera detected");
    for (int phase = 0; phase < 3; phase++) {
        grabFrames(cameraState, 1);
        for (const size_t i : {size_t{0}, size_t{9}, size_t{10}, size_t{2560}, size_t{5065983}}) {
            EXPECT_EQ(cameraState.frame[i],
                      static_cast<uint8_t>(i / 10 + static_cast<size_t>(phase)));
        }
    }
    EXPECT_EQ(cameraState.fallbackPhase, 3);
    typeInto(Field::Information, "");
    controlCamera(cameraState, cameraManual);
    EXPECT_EQ(textIn(Field::Information), "No camera detected");
}

TEST_F(CameraTest, GrabsWhatTheCameraSees) {
    ASSERT_EQ(initCamera(cameraState), 1);
    EXPECT_EQ(cameraState.needsInit, 0);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_EQ(textIn(Field::Information), "Auto WhiteBalance skipped");
    illuminate();
    for (int i = 0; i < 15; i++) grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
    EXPECT_EQ(labCounters().frames, 15u);
    double sum = 0;
    for (int y = 0; y < 1028; y++)
        for (int x = 0; x < 1232; x++) sum += pixelGreen(cameraImage, x, y);
    EXPECT_NEAR(sum / (1232 * 1028), 0.3 * 255, 25); // the automatic target
}

TEST_F(CameraTest, BothGenerationsGetTheirTarget) {
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_NEAR(cameraState.device->AutoTargetBrightness.GetValue(), 0.3, 1e-9);
    EXPECT_TRUE(cameraState.device->PixelFormat.Is(PixelFormat_BayerRG8));
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Continuous));
    cameraState.exposureUs = 250.0;
    cameraState.gain = 3;
    controlCamera(cameraState, cameraManual);
    EXPECT_EQ(cameraState.device->Gain.GetValue(), 3.0);
    EXPECT_EQ(cameraState.device->ExposureTime.GetValue(), 250.0);
    EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Off));
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Off));
    releaseCamera(cameraState);

    ASSERT_TRUE(applyLabFaults("camera sfnc 1"));
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_EQ(cameraState.device->AutoTargetValue.GetValue(), 80);
    EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Continuous));
    cameraState.device->AutoGainRawUpperLimit.SetValue(100);
    autoGainOnce(*cameraState.device);
    EXPECT_EQ(cameraState.device->AutoGainRawUpperLimit.GetValue(), 360);
    EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Once));
    for (const auto& [gain, raw] : {std::pair{3, 3}, {1000, 360}}) {
        cameraState.gain = gain;
        controlCamera(cameraState, cameraManual);
        EXPECT_EQ(textIn(Field::Information), "exposure time: 250.0");
        EXPECT_EQ(cameraState.device->GainRaw.GetValue(), raw);
        EXPECT_EQ(cameraState.device->ExposureTimeAbs.GetValue(), 250.0);
    }
    grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
}

TEST_F(CameraTest, AdjustsOnceWithinTheWidestLimits) {
    illuminate();
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    testing::internal::CaptureStdout();
    controlCamera(cameraState, cameraAdjustOnce);
    autoWhiteBalanceOnce(*cameraState.device);
    const std::string told = testing::internal::GetCapturedStdout();
    EXPECT_EQ(cameraState.connected, 1);
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Off));
    EXPECT_NEAR(cameraState.device->AutoTargetBrightness.GetValue(), 0.2, 1e-9);
    EXPECT_EQ(cameraState.device->AutoExposureTimeUpperLimit.GetValue(), 1e6);
    EXPECT_EQ(told.find("Trying 'ExposureAuto = Once'.\nInitial exposure time = "), 0u) << told;
    for (const char* text :
         {"\nExposureAuto went back to 'Off' after ", " frames.\nFinal exposure time = ",
          "\nTrying 'BalanceWhiteAuto = Once'.\nInitial balance ratio: 1\n"})
        EXPECT_NE(told.find(text), std::string::npos) << text;
}

TEST_F(CameraTest, GivesUpAnAdjustmentThatDoesNotSettle) {
    ASSERT_TRUE(applyLabFaults("camera unsettled"));
    illuminate();
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    try {
        autoWhiteBalanceOnce(*cameraState.device);
        ADD_FAILURE() << "settled";
    } catch (const TimeoutException& timeout) {
        EXPECT_STREQ(timeout.what(), "The adjustment of auto exposure did not finish.");
    }
    EXPECT_EQ(labCounters().frames, 101u);
    controlCamera(cameraState, cameraAdjustOnce);
    EXPECT_EQ(cameraState.connected, 0);
    EXPECT_EQ(textIn(Field::Information), "No camera detected");
}

TEST_F(CameraTest, AddsFramesModulo256) {
    illuminate();
    cameraState.exposureUs = 500000.0; // most is white, so that sums do not fit into a byte
    cameraState.gain = 36;
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic); // 8 bits
    controlCamera(cameraState, cameraManual);
    controlCamera(cameraState, cameraAccumulate);
    const auto bytes = static_cast<size_t>(cameraState.frameBytes);
    const std::vector<uint8_t> once(cameraState.frame, cameraState.frame + bytes);
    EXPECT_GT(*std::max_element(once.begin(), once.end()), 250);
    const auto expectSum = [&](int frames) {
        size_t wrong = 0;
        for (size_t i = 0; i < bytes; i++) {
            const auto difference = static_cast<int8_t>(cameraState.frame[i] - frames * once[i]);
            if (std::abs(difference) > 2) wrong++; // the frames' noise is 1
        }
        EXPECT_EQ(wrong, 0u);
    };
    controlCamera(cameraState, cameraAccumulate);
    expectSum(2);
    EXPECT_FALSE(cameraState.device->IsOpen());
    grabFrames(cameraState, 1); // from here on the frame lies in one of the camera's buffers
    illuminate(false);
    controlCamera(cameraState, cameraAccumulate);
    expectSum(1);
    EXPECT_EQ(cameraState.connected, 1);
    CGrabResultPtr result;
    cameraState.device->GrabOne(5000, result, TimeoutHandling_ThrowException);
    EXPECT_FALSE(cameraState.device->IsOpen());
}

TEST_F(CameraTest, IsUsedWithoutAnAutomaticFunction) {
    const struct {
        const char *faults, *told;
    } cases[] = {
        {"camera lacks GainAuto", "The camera does not support Gain Auto.\n\n"},
        {"camera lacks ExposureAuto", "The camera does not support Exposure Auto.\n\n"},
        {"camera lacks BalanceWhiteAuto", "The camera does not support Balance White Auto.\n\n"},
        {"camera lacks AutoFunctionROISelector", ""},
        {"camera lacks AutoFunctionROIUseBrightness", ""},
        {"camera lacks AutoGainUpperLimit\ncamera lacks AutoExposureTimeLowerLimit", ""},
    };
    illuminate();
    for (const auto& each : cases) {
        SCOPED_TRACE(each.faults);
        ASSERT_TRUE(applyLabFaults(each.faults));
        testing::internal::CaptureStdout();
        ASSERT_EQ(initCamera(cameraState), 1);
        for (const CameraMode mode : {cameraAutomatic, cameraAdjustOnce, cameraManual}) {
            controlCamera(cameraState, mode);
            autoWhiteBalanceOnce(*cameraState.device);
            grabFrames(cameraState, 1);
            EXPECT_EQ(cameraState.connected, 1) << mode;
        }
        const std::string told = testing::internal::GetCapturedStdout();
        EXPECT_NE(told.find(each.told), std::string::npos);
        EXPECT_EQ(told.find("does not support") != std::string::npos, each.told[0] != '\0');
    }
}

TEST_F(CameraTest, UnpluggedAtAnyMomentItEndsInThePatternAndComesBack) {
    constexpr double longestMs = 1500; // from the plug to the pattern
    cameraState.exposureUs = 200000.0;
    for (const CameraMode mode :
         {cameraAutomatic, cameraAdjustOnce, cameraAccumulate, cameraManual}) {
        for (const double afterMs : {0.0, 5.0, 50.0, 130.0, 400.0}) {
            SCOPED_TRACE(testing::Message() << "mode " << mode << ", after " << afterMs << " ms");
            ASSERT_EQ(initCamera(cameraState), 1);
            controlCamera(cameraState, cameraAutomatic);
            grabFrames(cameraState, 1);
            const double pulledMs = testTimeMs() + afterMs;
            const Action pull = [] { applyLabFaults("camera lost"); };
            afterMs > 0 ? in(afterMs, pull) : pull();
            controlCamera(cameraState, mode);
            while (testTimeMs() < pulledMs) grabFrames(cameraState, 1);
            const auto phase = static_cast<uint8_t>(cameraState.fallbackPhase);
            for (uint8_t moved = 0; moved < 2; moved++) {
                grabFrames(cameraState, 1);
                EXPECT_EQ(cameraState.frame[0], static_cast<uint8_t>(phase + moved));
            }
            EXPECT_EQ(cameraState.connected, 0);
            EXPECT_EQ(textIn(Field::Information), "No camera detected");
            EXPECT_LT(testTimeMs() - pulledMs, longestMs);

            liveViewTimerOn();
            resetIdle();
            liveViewTick();
            EXPECT_EQ(cameraState.connected, 0);
            ASSERT_TRUE(applyLabFaults(""));
            liveViewTick(); // nobody is there to see it
            EXPECT_EQ(cameraState.connected, 0);
            resetIdle();
            liveViewTick();
            EXPECT_EQ(cameraState.connected, 1);
            EXPECT_NE(textIn(Field::Information), "No camera detected");
            liveViewTimerOff();
            releaseCamera(cameraState);
            EXPECT_EQ(labCounters().cameraDevices, 0u);
        }
    }
}

} // namespace
