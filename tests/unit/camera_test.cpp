// The camera through the laboratory's SDK: connecting, both generations of names, loss, no camera.
#include "camera/Basler_camera.h"
#include "camera/camera.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "session/live_view_timer.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <array>
#include <cmath>
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
    const struct {
        int32_t gain, raw;
        const char* faults;
        double exposureUs;
    } cases[] = {{3, 3, "camera sfnc 1", 250.0},
                 {1000, 360, "camera sfnc 1", 250.0},
                 {3, 3, "camera sfnc 1\ncamera lacks ExposureTimeAbs", 260.0}}; // 13 x 20 us
    for (const auto& each : cases) {
        ASSERT_TRUE(applyLabFaults(each.faults));
        controlCamera(cameraState, cameraAutomatic);
        EXPECT_TRUE(cameraState.device->ExposureAuto.Is(Auto_Continuous));
        cameraState.gain = each.gain;
        controlCamera(cameraState, cameraManual);
        EXPECT_EQ(textIn(Field::Information), "exposure time: 250.0");
        EXPECT_EQ(cameraState.device->GainRaw.GetValue(), each.raw);
        EXPECT_EQ(cameraState.device->GetExposureUs(), each.exposureUs);
        grabFrames(cameraState, 1);
        EXPECT_EQ(cameraState.connected, 1);
    }
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
        {"camera lacks GainAuto\ncamera lacks ExposureAuto\ncamera lacks BalanceWhiteAuto",
         "The camera does not support Exposure Auto.\n\n"},
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
        cameraState.device->Open();
        cameraState.device->Width.SetValue(1000); // as another program has left it
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
            advanceVirtualTime(3000); // until the next search is due
            resetIdle();
            liveViewTick();
            EXPECT_EQ(cameraState.connected, 0);
            ASSERT_TRUE(applyLabFaults(""));
            advanceVirtualTime(3000);
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

TEST_F(CameraTest, BuffersThatNeverReturnHoldTheWindowForSecondsOnly) {
    constexpr double longestMs = 2500;
    for (const char* generation : {"", "camera sfnc 1\n"}) {
        for (const char* fault : {"camera lost", "camera silent"}) {
            SCOPED_TRACE(std::string(generation) + fault);
            ASSERT_TRUE(applyLabFaults(generation));
            connectCamera();
            in(5, [&] { applyLabFaults((std::string(generation) + fault).c_str()); });
            const double beganMs = testTimeMs();
            grabFrames(cameraState, 1); // while the camera adjusts itself
            EXPECT_EQ(cameraState.connected, 0);
            EXPECT_EQ(textIn(Field::Information), "No camera detected");
            EXPECT_LT(testTimeMs() - beganMs, longestMs);
        }
    }
    ASSERT_TRUE(applyLabFaults(""));
    connectCamera();
    cameraState.exposureUs = 9e6; // a slow frame is no missing one
    controlCamera(cameraState, cameraManual);
    grabFrames(cameraState, 1);
    EXPECT_EQ(cameraState.connected, 1);
}

const std::string vendorWords(300, 'w'); // longer than one expects

uint32_t refuseToOpen(void*, int) {
    return 0xC2000001;
}

uint32_t giveVendorWords(char* buffer, size_t* length) {
    const size_t room = *length;
    *length = vendorWords.size() + 1;
    if (room < *length) return 0xC2000003;
    vendorWords.copy(buffer, vendorWords.size());
    buffer[vendorWords.size()] = '\0';
    return 0;
}

TEST_F(CameraTest, SaysOnceWhichLibraryItTookAndWhyThereIsNoPicture) {
    const std::string arrive = "Camera: frames arrive\n";
    const std::string beside = "Camera library: C:\\Lumascan\\PylonC_v9.dll\n";
    const struct {
        const char* onPath;
        std::function<void()> spoil;
        std::string told;
    } cases[] = {
        {"", [] { libraries.absent.insert("PylonC_v9.dll"); },
         "Camera library: not found, neither beside the program nor by the system: PylonC_v11.dll, "
         "PylonC_v10.dll, PylonC_v9.dll, PylonC_v8_0.dll, PylonC_v7_5.dll, PylonC_v7_4.dll, "
         "PylonC_v7_3.dll, PylonC_v7_2.dll, PylonC_v7_1.dll, PylonC_v7_0.dll, PylonC_v6_3.dll, "
         "PylonC_v6_2.dll, PylonC_v6_1.dll, PylonC_v6_0.dll\nCamera: No camera library\n"},
        {"PylonC_v6_0.dll", [] { libraries.absent.insert("PylonC_v9.dll"); },
         "Camera library: C:\\Path\\PylonC_v6_0.dll\n" + arrive},
        {"PylonC_v11.dll", [] {}, beside + arrive},
        {"", [] { applyLabFaults("camera absent"); }, beside + "Camera: No camera found\n"},
        {"",
         [] {
             replaceFunction("PylonDeviceOpen", refuseToOpen);
             replaceFunction("GenApiGetLastErrorMessage", giveVendorWords);
         },
         beside + "Camera: PylonDeviceOpen: " + vendorWords + " (0xC2000001)\n"},
        {"", [] { applyLabFaults("camera silent"); }, beside + "Camera: No frame came in time\n"},
    };
    for (const auto& each : cases) {
        libraries = {};
        libraries.onPath = each.onPath;
        ASSERT_TRUE(applyLabFaults(""));
        resetProgram();
        each.spoil();
        testing::internal::CaptureStdout();
        for (int i = 0; i < 3; ++i) {
            connectCamera();
            grabFrames(cameraState, 1);
            grabFrames(cameraState, 1);
        }
        EXPECT_EQ(testing::internal::GetCapturedStdout(), each.told);
    }
}

// Else a map would hold its colour once more, and the wide view a field in another's place.
TEST_F(CameraTest, AFrameThatFailsLeavesNoneThatIsFresh) {
    setLabRowsAroundSpot(0);
    connectCamera();
    grabFrames(cameraState, 1);
    EXPECT_TRUE(cameraState.fresh);
    replaceFunction(
        "PylonStreamGrabberRetrieveResult",
        +[](void* grabber, PylonGrabResult_t* result, uint8_t* ready) {
            using Retrieve = uint32_t (*)(void*, PylonGrabResult_t*, uint8_t*);
            const auto retrieve = reinterpret_cast<Retrieve>(
                virtualLabFunction("PylonC_v9.dll", "PylonStreamGrabberRetrieveResult"));
            const uint32_t status = retrieve(grabber, result, ready);
            result->Status = 4;
            return status;
        });
    connectCamera();
    grabFrames(cameraState, 1);
    EXPECT_FALSE(cameraState.fresh);
    EXPECT_EQ(cameraState.connected, 1);
}

std::string toldWhileConnecting() {
    testing::internal::CaptureStdout();
    connectCamera();
    grabFrames(cameraState, 1);
    return testing::internal::GetCapturedStdout();
}

// Pixels that do not show the sample's colour at their place; on an edge either side will do.
int wronglyColoured(bool grey) {
    int wrong = 0, judged = 0;
    const PictureArea& seen = cameraImage.seen;
    for (int x = seen.left + 3; x < seen.left + seen.width - 3; x += 13)
        for (int y = seen.bottom + 3; y < seen.bottom + seen.height - 3; y += 13) {
            const auto levels = [grey](LabPoint at) -> std::array<double, 3> {
                const Rgb colour = textureAt(at.x, at.y);
                const double mean = (colour.red + 2 * colour.green + colour.blue) / 4;
                if (grey) return {120 * mean, 120 * mean, 120 * mean};
                return {120 * colour.red, 120 * colour.green, 120 * colour.blue};
            };
            const std::array<double, 3> there = levels(labSampleAt(x, y));
            bool even = true;
            for (const int dx : {-2, 2})
                for (const int dy : {-2, 2})
                    even = even && levels(labSampleAt(x + dx, y + dy)) == there;
            if (!even) continue;
            ++judged;
            const double shown[] = {double(pixelRed(cameraImage, x, y)),
                                    double(pixelGreen(cameraImage, x, y)),
                                    double(pixelBlue(cameraImage, x, y))};
            for (size_t i = 0; i < 3; ++i) wrong += std::abs(shown[i] - there[i]) > 3;
        }
    EXPECT_GT(judged, 100);
    return wrong;
}

// The middle of what is larger, in steps that the camera takes; what is smaller in the middle of
// black, whatever stood there before.
TEST_F(CameraTest, EverySensorShowsTheSampleAtItsPlace) {
    const struct {
        const char* lab;
        int64_t width, height, offsetX, offsetY;
        PictureArea seen;
        PixelFormatValue format;
    } cases[] = {
        {"sensor 5472 3648 BayerRG8", 2464, 2056, 1504, 796, {}, PixelFormat_BayerRG8},
        {"sensor 5472 3648 BayerGR8\ncamera centred",
         2464,
         2056,
         1504,
         796,
         {},
         PixelFormat_BayerGR8},
        // The middle lies between two steps.
        {"sensor 2476 1944 BayerGB8", 2464, 1944, 4, 0, {0, 28, 1232, 972}, PixelFormat_BayerGB8},
        {"sensor 1920 1200 BayerBG8\ncamera sfnc 1",
         1920,
         1200,
         0,
         0,
         {136, 214, 960, 600},
         PixelFormat_BayerBG8},
        {"sensor 640 480 Mono8", 640, 480, 0, 0, {456, 394, 320, 240}, PixelFormat_Mono8}};
    cameraState.laserOffset = {640, 500};
    illuminate();
    for (const auto& each : cases) {
        SCOPED_TRACE(each.lab);
        releaseCamera(cameraState);
        grabFrames(cameraState, 1); // the pattern
        ASSERT_TRUE(applyLabFaults(each.lab));
        connectCamera();
        cameraState.exposureUs = 100;
        cameraState.gain = cameraState.device->Gain.IsReadable() ? 1 : 10; // 0.1 dB
        controlCamera(cameraState, cameraManual);
        grabFrames(cameraState, 1);
        ASSERT_EQ(cameraState.connected, 1);
        EXPECT_TRUE(cameraState.fresh);
        EXPECT_TRUE(cameraState.device->PixelFormat.Is(each.format));
        EXPECT_EQ(cameraState.device->Width.GetValue(), each.width);
        EXPECT_EQ(cameraState.device->Height.GetValue(), each.height);
        EXPECT_EQ(cameraState.device->OffsetX.GetValue(), each.offsetX);
        EXPECT_EQ(cameraState.device->OffsetY.GetValue(), each.offsetY);
        ASSERT_TRUE(cameraImage.seen == each.seen);
        EXPECT_EQ(wronglyColoured(each.format == PixelFormat_Mono8), 0);
        int lit = 0; // of the frame around it
        for (int x = 0; x < 1232; ++x)
            for (int y = 0; y < 1028; ++y)
                if (x < each.seen.left || x >= each.seen.left + each.seen.width ||
                    y < each.seen.bottom || y >= each.seen.bottom + each.seen.height)
                    lit += pixelRed(cameraImage, x, y) + pixelBlue(cameraImage, x, y) > 0;
        EXPECT_EQ(lit, 0);
    }
}

TEST_F(CameraTest, SaysWhatItCannotShow) {
    ASSERT_TRUE(applyLabFaults("sensor 2464 2056 Mono12"));
    EXPECT_NE(toldWhileConnecting().find("The camera has none of BayerRG8, BayerGR8, BayerGB8, "
                                         "BayerBG8, Mono8: PixelFormat"),
              std::string::npos);
    EXPECT_EQ(cameraState.connected, 0);
    EXPECT_EQ(textIn(Field::Information), "No camera detected");

    cameraState.laserOffset = {400, 500};
    ASSERT_TRUE(applyLabFaults("sensor 640 480 Mono8"));
    EXPECT_NE(toldWhileConnecting().find("The laser spot lies beyond what the camera sees"),
              std::string::npos);
    EXPECT_EQ(cameraState.connected, 1);
    EXPECT_EQ(textIn(Field::Information), "The laser spot lies beyond what the camera sees");
    EXPECT_EQ(sampleSpotColour(cameraState.laserOffset, 5), 0u);

    // What the small one has sent last is too short for a frame of the large one, which fails.
    ASSERT_TRUE(applyLabFaults(""));
    replaceFunction(
        "PylonStreamGrabberRetrieveResult",
        +[](void*, PylonGrabResult_t*, uint8_t*) -> uint32_t { return 0xC2000001; });
    cameraState.connected = 0;
    connectCamera();
    ASSERT_EQ(cameraState.connected, 1);
    EXPECT_EQ(cameraState.frame, cameraState.ownFrame.data());
}

TEST_F(CameraTest, TakesTheOneWithItsSerialNumberOfSeveral) {
    const std::string none = "Camera: No camera with the serial number ";
    const struct {
        const char *lab, *serial;
        bool says; // the library has a word for it
        std::string told;
    } cases[] = {
        {"camera second", "", true, "Camera: PylonCreateDeviceByIndex: the other camera"},
        {"camera second", "21998877", true, "Camera: frames arrive\n"},
        {"camera second", "2199887", true, none + "2199887, there is 40112233, 21998877\n"},
        {"", "40112233", true, none + "40112233, there is 21998877\n"},
        {"", "21998877", false, none + "21998877, there is one that does not say\n"},
        {"", "", false, "Camera: frames arrive\n"},
        {"camera absent", "21998877", true, "Camera: No camera found\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(std::string(each.lab) + " '" + each.serial + "'");
        libraries = {};
        resetProgram();
        ASSERT_TRUE(applyLabFaults(each.lab));
        setUp.cameraSerial = each.serial;
        if (!each.says)
            replaceFunction("PylonGetDeviceInfoHandle", PylonC().PylonGetDeviceInfoHandle);
        const std::string told = toldWhileConnecting();
        EXPECT_NE(told.find(each.told), std::string::npos) << told;
        EXPECT_EQ(cameraState.connected, each.told.find("arrive") != std::string::npos);
    }
}

} // namespace
