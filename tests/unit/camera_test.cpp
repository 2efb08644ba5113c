// The camera through the laboratory's SDK: connecting, both generations of names, loss, no camera.
#include "camera/camera.h"
#include "tests/doubles/doubles.h"

#include <cstring>

namespace {

using CameraTest = WindowTest;

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
    const char on[] = "D 6 5";
    boardReceive(on, sizeof on);
    for (int i = 0; i < 15; i++) grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
    EXPECT_EQ(labCounters().frames, 15u);
    double sum = 0;
    for (int y = 0; y < 1028; y++)
        for (int x = 0; x < 1232; x++) sum += pixelGreen(cameraImage, x, y);
    EXPECT_NEAR(sum / (1232 * 1028), 0.3 * 255, 25); // the automatic target

    cameraState.exposureUs = 250.0;
    cameraState.gain = 3;
    controlCamera(cameraState, cameraManual);
    EXPECT_EQ(textIn(Field::Information), "exposure time: 250.0");
    EXPECT_EQ(cameraState.device->Gain.GetValue(), 3.0);
    EXPECT_EQ(cameraState.device->ExposureTime.GetValue(), 250.0);
    EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Off));
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Off));
}

TEST_F(CameraTest, BothGenerationsGetTheirTarget) {
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_NEAR(cameraState.device->AutoTargetBrightness.GetValue(), 0.3, 1e-9);
    EXPECT_TRUE(cameraState.device->PixelFormat.Is(PixelFormat_BayerRG8));
    EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Continuous));
    releaseCamera(cameraState);

    ASSERT_TRUE(applyLabFaults("camera sfnc 1"));
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_EQ(cameraState.device->AutoTargetValue.GetValue(), 80);
    EXPECT_TRUE(cameraState.device->GainAuto.Is(Auto_Continuous));
    EXPECT_EQ(cameraState.connected, 1);
    grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
}

TEST_F(CameraTest, LostCameraEndsInThePatternAndComesBack) {
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    grabFrames(cameraState, 1);
    in(5, [] { applyLabFaults("camera lost"); }); // in the middle of the next frame
    grabFrames(cameraState, 1);
    grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 0);
    EXPECT_EQ(textIn(Field::Information), "No camera detected");
    EXPECT_GE(cameraState.fallbackPhase, 1);
    controlCamera(cameraState, cameraAutomatic);
    EXPECT_EQ(initCamera(cameraState), 0);
    ASSERT_TRUE(applyLabFaults(""));
    ASSERT_EQ(initCamera(cameraState), 1);
    controlCamera(cameraState, cameraAutomatic);
    grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
    releaseCamera(cameraState);
    EXPECT_EQ(labCounters().cameraDevices, 0u);
}

} // namespace
