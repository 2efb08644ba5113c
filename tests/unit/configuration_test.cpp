// The Configuration dialog: what is taken over, what is refused, what is connected, where the
// stage goes.
#include "camera/camera.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/configuration.h"

namespace {

class ConfigurationTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
        ASSERT_TRUE(openStages(controllers.axisOrder, motorSpeed));
        ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
        switchLiveView(LiveView::On);
    }
    // Opens the dialog, does what is told in it, and closes it.
    static void inDialog(const std::function<void()>& actions) {
        whileDialogOpen = actions;
        onCommand(idConfiguration);
    }
    static void press(int id) { onConfigurationCommand(id); }
    static void type(int id, const char* text) { setDialogText(id, text); }
    static void choose(int list, int index) { selectInDialogList(list, index); }

    InstrumentLink& link = instrumentLink;
};

TEST_F(ConfigurationTest, ShowsWhatIsInForce) {
    cameraState.laserOffset = {640, -3};
    link.ammeterKind = kindOscilloscope;
    link.biasVoltage = 1.5f;
    stageX.positionUm = -12.34;
    laserLink.disconnected = 1;
    inDialog([] {
        const struct {
            int id;
            const char* text;
        } cases[] = {
            {idHandStep, "10.0"},         {idDialogPositionX, "-12.3"}, {idDialogPositionY, "0.0"},
            {idLaserComPort, "10"},       {idAddressOctet1, "192"},     {idAddressOctet2, "168"},
            {idAddressOctet3, "0"},       {idAddressOctet4, "10"},      {idAnalyzerPort, "1225"},
            {idLaserOffsetX, "640"},      {idLaserOffsetY, "-3"},       {idBias, "1.500000"},
            {idCurrentLimit, "0.000100"}, {idCameraAperture, "5"},      {idGpibAddress, "18"}};
        for (const auto& each : cases) EXPECT_EQ(dialogTextIn(each.id), each.text) << each.id;
        EXPECT_EQ(dialogListItems(idInstrumentList).at(7), L"4200 PA GPIB");
        EXPECT_EQ(selectedInDialogList(idInstrumentList), 5);
        EXPECT_EQ(dialogListItems(idAxisOrderList).at(3), L"YZX");
        EXPECT_EQ(selectedInDialogList(idAxisOrderList), 2);
        EXPECT_TRUE(isCheckedInDialog(idConnectStages));
        EXPECT_TRUE(isCheckedInDialog(idConnectCamera));
        EXPECT_TRUE(isCheckedInDialog(idConfocalCheck));
        EXPECT_FALSE(isCheckedInDialog(idConnectLaser));
        EXPECT_FALSE(timerRuns());
        onCommand(idConfiguration); // no second one inside
    });
    EXPECT_TRUE(timerRuns()); // the live view is back
    switchLiveView(LiveView::Off);
    inDialog([] {});
    EXPECT_FALSE(timerRuns());
}

TEST_F(ConfigurationTest, SetTakesWhatIsSensible) {
    const struct {
        int id;
        const char *typed, *shown;
    } cases[] = {{idBias, "-2.5", "-2.500000"},         {idBias, "", "-2.500000"},
                 {idBias, "nan", "-2.500000"},          {idBias, "1e9", "-2.500000"},
                 {idBias, "-inf", "-2.500000"},         {idBias, "-2", "-2.000000"},
                 {idCurrentLimit, "0.01", "0.010000"},  {idCurrentLimit, "0", "0.010000"},
                 {idCurrentLimit, "-0.1", "0.010000"},  {idCurrentLimit, "5", "0.010000"},
                 {idCurrentLimit, "15e-7", "0.000002"}, {idCameraAperture, "12.7", "12"},
                 {idCameraAperture, "0", "12"},         {idCameraAperture, "wide", "12"},
                 {idCameraAperture, "999999999", "12"}};
    inDialog([&] {
        for (const auto& each : cases) {
            type(each.id, each.typed);
            press(idSet);
            EXPECT_EQ(dialogTextIn(each.id), each.shown) << each.typed;
        }
    });
    inDialog([] {
        scanArea.stepPx = 0;
        press(idSet);
        EXPECT_GT(scanArea.stepPx, 0);
    });
    EXPECT_EQ(link.currentLimit, 15e-7f) << "rounded to what the edit shows";
    EXPECT_EQ(link.biasVoltage, -2.0f);
    EXPECT_EQ(cameraState.cameraAperture, 12);
    EXPECT_EQ(shownBoxes.size(), 0u);
}

TEST_F(ConfigurationTest, ConnectsOrFallsBack) {
    const struct {
        int kind, press;
        const char *faults, *text;
        bool connects;
    } cases[] = {{1, idSet, "", "This equipment is not supported yet", false},
                 {2, idSet, "", "MultiMeter device connected", true},
                 {3, idInitializeInstrument, "gpib error ibdev", "No GPIB connected", false},
                 {0, idInitializeInstrument, "", nullptr, true},
                 {6, idSet, "", "Parameter Analyzer 4200 connected via Ethernet", true},
                 {4, idSet, "k2450 absent", "No SourceMeter devices found via USB", false}};
    testing::internal::CaptureStdout(); // the bus reports its errors there
    inDialog([&] {
        type(idGpibAddress, "31");
        type(idAddressOctet2, "abc");
        type(idAddressOctet3, "256");
        type(idAddressOctet4, "10.9");
        link.ipAddress[3] = 0;
        type(idAnalyzerPort, "70000");
        for (const auto& each : cases) {
            SCOPED_TRACE(each.kind);
            const int32_t before = link.ammeterKind;
            ASSERT_TRUE(applyLabFaults(each.faults));
            if (each.text) answer(each.text, BoxAnswer::Ok, [] { press(idHandXPlus); });
            choose(idInstrumentList, each.kind);
            press(each.press);
            EXPECT_EQ(link.ammeterKind, each.connects ? each.kind : before);
            EXPECT_EQ(selectedInDialogList(idInstrumentList), link.ammeterKind);
        }
    });
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(link.gpibAddress, 18);
    EXPECT_EQ(std::vector<int32_t>(link.ipAddress, link.ipAddress + 4),
              (std::vector<int32_t>{192, 168, 0, 10}));
    EXPECT_EQ(link.kxciPort, 1225);
    EXPECT_EQ(stageX.positionUm, 0.0) << "moved while a notice was open";
}

TEST_F(ConfigurationTest, OnlyASecondSetChangesTheUnit) {
    applyLabFaults("k2450 absent");
    answer("Tektronics devices connected via USB", BoxAnswer::Ok);
    inDialog([] {
        choose(idInstrumentList, kindOscilloscope);
        press(idSet);
        EXPECT_EQ(textIn(Field::UnitLabel), "I_ph (uA)");
        press(idSet);
    });
    EXPECT_EQ(textIn(Field::UnitLabel), "V_ph (V)");
}

TEST_F(ConfigurationTest, TakesTheBiasOffBeforeTheInstrumentChanges) {
    const struct {
        int before, kind, press;
        const char *bias, *address, *faults, *text;
        double left;
        const char* shown;
    } cases[] = {
        {3, 0, idSet, "0.5", "24", "", nullptr, 0, "0.500000"},
        {3, 0, idSet, "0", "24", "", nullptr, 0, "0.000000"}, // typed before the change
        {3, 3, idInitializeInstrument, "0.5", "18", "", "SourceMeter device connected", 0,
         "0.500000"}, // another one, and nobody could reach the first
        {4, 4, idInitializeInstrument, "0.5", "24", "", "SourceMeter device connected", 0,
         "0.500000"},
        {3, 4, idSet, "0.5", "24", "k2450 refused", "No SourceMeter devices found", 0.5,
         "0.500000"},
        {3, 4, idSet, "0.25", "24", "k2450 refused", "No SourceMeter devices found", 0.25,
         "0.250000"},
        {4, 1, idSet, "0.5", "24", "", "This equipment is not supported", 0.5, "0.500000"},
        {4, 1, idSet, "0", "24", "", "This equipment is not supported", 0, "0.000000"},
        {6, 6, idInitializeInstrument, "0.5", "24", "analyzer refused", "No Parameter Analyzer", 0,
         "0.000000"},
    };
    testing::internal::CaptureStdout();
    inDialog([&] {
        for (const auto& each : cases) {
            SCOPED_TRACE(testing::Message() << each.before << " to " << each.kind);
            link.gpibAddress = 24;
            answer("onnected", BoxAnswer::Ok);
            connectInstrument(each.before);
            type(idBias, "0.5");
            choose(idInstrumentList, each.before);
            press(idSet);
            EXPECT_EQ(labBiasVolts(), 0.5);
            ASSERT_TRUE(applyLabFaults(each.faults));
            if (each.text) answer(each.text, BoxAnswer::Ok);
            type(idBias, each.bias);
            type(idGpibAddress, each.address);
            choose(idInstrumentList, each.kind);
            press(each.press);
            EXPECT_EQ(labBiasVolts(), each.left);
            EXPECT_EQ(dialogTextIn(idBias), each.shown);
            ASSERT_TRUE(applyLabFaults(""));
            connectInstrument(kindArduino);
        }
    });
    testing::internal::GetCapturedStdout();
}

TEST_F(ConfigurationTest, EnterDoesWhatItsFieldBelongsTo) {
    answer("SourceMeter device connected", BoxAnswer::Ok);
    connectInstrument(kindUsbSourcemeter);
    inDialog([] {
        type(idBias, "0.5");
        type(idDialogPositionX, "30");
        for (const DialogId id : {idHandStep, idConnectStages, idAxisOrderList})
            onConfigurationEnter(id);
        EXPECT_EQ(stageX.positionUm, 0);
        onConfigurationEnter(idDialogPositionX);
        EXPECT_EQ(stageX.positionUm, 30);
        const size_t openings = serial.openedNames.size();
        onConfigurationEnter(idLaserComPort);
        EXPECT_EQ(serial.openedNames.size(), openings + 1);
        answer("SourceMeter device connected", BoxAnswer::Ok);
        onConfigurationEnter(idAnalyzerPort);
        EXPECT_EQ(labBiasVolts(), 0.0) << "no field of another group puts the bias on";
        type(idBias, "0.5");
        onConfigurationEnter(idCurrentLimit);
        EXPECT_EQ(labBiasVolts(), 0.5);
    });
}

TEST_F(ConfigurationTest, ReconnectsLaserStagesAndCamera) {
    answer("Error in  opening serial port", BoxAnswer::Ok);
    answer("Error: not connected", BoxAnswer::Ok);
    answer("No devices found", BoxAnswer::Ok);
    inDialog([] {
        type(idLaserComPort, "port");
        press(idConnectLaser);
        EXPECT_TRUE(isCheckedInDialog(idConnectLaser));
        type(idLaserComPort, "77");
        setLaserLevel(1);
        press(idConnectLaser);
        EXPECT_EQ(labLaserPwm(), 0); // nobody could switch it off any more
        EXPECT_FALSE(isCheckedInDialog(idConnectLaser));
        EXPECT_EQ(shownBoxes.back().caption, "Warning: Serial Communication");
        EXPECT_EQ(laserLink.comPort, 77);

        moveXYTo(30, 20, motorSpeed);
        choose(idAxisOrderList, 0);
        press(idConnectStages);
        EXPECT_TRUE(isCheckedInDialog(idConnectStages));
        EXPECT_EQ(dialogTextIn(idDialogPositionX), "0.0"); // where it stands is the new zero
        EXPECT_EQ(textIn(Field::PositionY), "0.0");
        applyLabFaults("stage absent\ncamera absent");
        press(idConnectStages);
        EXPECT_FALSE(isCheckedInDialog(idConnectStages));
        press(idInitializeCamera);
        EXPECT_FALSE(isCheckedInDialog(idConnectCamera));
        applyLabFaults("");
        press(idConnectCamera);
        EXPECT_TRUE(isCheckedInDialog(idConnectCamera));

        checkInDialog(idConfocalCheck, false);
        press(idConfocalCheck);
        choose(idAxisOrderList, 4); // for the next connection
    });
    EXPECT_EQ(controllers.axisOrder, 4);
    EXPECT_EQ(scanSettings.confocalEnabled, 0);
}

TEST_F(ConfigurationTest, MovesByHand) {
    const struct {
        const char* step;
        int press;
        double x, y;
    } cases[] = {{"12.7", idHandXPlus, 12, 0}, {"5", idHandYPlus, 12, 5},
                 {"3", idHandXMinus, 9, 5},    {"4", idHandYMinus, 9, 1},
                 {"far", idHandXPlus, 9, 1},   {"", idHandXPlus, 9, 1}};
    inDialog([&] {
        for (const auto& each : cases) {
            type(idHandStep, each.step);
            type(idDialogPositionX, "old");
            press(each.press);
            EXPECT_EQ(stageX.positionUm, each.x) << each.step;
            EXPECT_EQ(stageY.positionUm, each.y) << each.step;
            EXPECT_EQ(dialogTextIn(idDialogPositionX) == "old", *each.step == '\0') << each.step;
        }
        type(idDialogPositionX, "-20.9");
        type(idDialogPositionY, "40");
        in(100, [] { postCall([] { press(idHandXPlus), press(idCloseDialog); }); });
        press(idGo);
        EXPECT_EQ(stageX.positionUm, -20);
        EXPECT_EQ(stageY.positionUm, 40);
        EXPECT_EQ(dialogTextIn(idDialogPositionX), "-20.9");
        type(idDialogPositionX, "7");
        type(idDialogPositionY, "?");
        press(idGo);
        EXPECT_EQ(stageX.positionUm, -20);
        press(idSetZero);
        EXPECT_EQ(dialogTextIn(idDialogPositionY), "0.0");
        EXPECT_EQ(textIn(Field::PositionX), "0.0");
        type(idHandStep, "2");
        press(idHandXPlus);
    });
    EXPECT_EQ(textIn(Field::PositionX), "2.0");
}

TEST_F(ConfigurationTest, StaysWithinTheRangeOfTheMainWindow) {
    ASSERT_TRUE(applyLabFaults("limit x right at 20000\nlimit y left at -20000\n"));
    inDialog([] {
        type(idDialogPositionX, "15000");
        type(idDialogPositionY, "-10005");
        press(idGo);
        EXPECT_EQ(stageX.positionUm, 10000);
        EXPECT_EQ(stageY.positionUm, -10000);
        const struct {
            const char* step;
            int press;
            double x;
        } cases[] = {{"15", idHandXPlus, 10000},
                     {"10", idHandXMinus, 9990},
                     {"15", idHandXPlus, 10000},
                     {"-20000", idHandXMinus, 10000}};
        for (const auto& each : cases) {
            type(idHandStep, each.step);
            press(each.press);
            EXPECT_EQ(stageX.positionUm, each.x) << each.step;
        }
        stageX.positionUm = 10020; // moved its zero away meanwhile
        type(idHandStep, "5");
        press(idHandXMinus);
        EXPECT_EQ(stageX.positionUm, 10015);
    });
}

TEST_F(ConfigurationTest, LeavesARunningProcessAlone) {
    const int refused[] = {idSet, idConnectLaser, idSetZero, idGo, idHandXPlus, idConfocalCheck};
    whileDialogOpen = [&] {
        for (const int id : refused) {
            setField(Field::Information, "");
            choose(idInstrumentList, kindNiDaq);
            type(idDialogPositionX, "50");
            type(idBias, "3");
            type(idLaserComPort, "77");
            checkInDialog(idConfocalCheck, false);
            press(id);
            EXPECT_EQ(textIn(Field::Information), "Not while a process runs") << id;
            EXPECT_EQ(selectedInDialogList(idInstrumentList), 0) << id;
            EXPECT_EQ(dialogTextIn(idDialogPositionX), "0.0") << id;
            EXPECT_EQ(dialogTextIn(idBias), "0.000000") << id;
            EXPECT_TRUE(isCheckedInDialog(idConfocalCheck)) << id;
        }
        press(idConnectCamera);
        EXPECT_TRUE(isCheckedInDialog(idConnectCamera));
        choose(idAxisOrderList, 5);
    };
    const auto process = [] {
        switchLiveView(LiveView::Off);
        onCommand(idConfiguration);
        EXPECT_FALSE(timerRuns());
        switchLiveView(LiveView::AsBefore);
        return Outcome{};
    };
    ASSERT_TRUE(runProcess("Test", process));
    EXPECT_TRUE(timerRuns());
    EXPECT_EQ(labStageUm(labX), 0.0);
    EXPECT_EQ(controllers.axisOrder, 2);
    EXPECT_EQ(laserLink.comPort, 10);
    EXPECT_EQ(scanSettings.confocalEnabled, 1);
    EXPECT_EQ(shownBoxes.size(), 0u);
}

} // namespace
