// Every command, key and mouse action in the middle of every process: the process ends, nothing
// starts inside it, and light, bias, stage and files are as they should be.
#include "camera/camera.h"
#include "camera/live_view.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "screen/control_ids.h"
#include "session/data_folders.h"
#include "session/live_view_timer.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/responsive_wait.h"
#include "spectroscopy/sweep_record.h"
#include "tests/doubles/doubles.h"
#include "tests/doubles/memory_dialog.h"
#include "ui/commands.h"
#include "ui/configuration.h"
#include "ui/tool_windows.h"

#include <algorithm>
#include <map>

namespace {

enum class Process { Scan, Sweep, Series, Focus, WideView };

struct Step {
    std::string name;
    Action action;
};

class ReentranceTest : public LabTest, public testing::WithParamInterface<Process> {
protected:
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
        onLeftButtonDown(5000, 5000); // outside the picture: only frees the keys
        ASSERT_TRUE(applyLabFaults("backlash x 0\nbacklash y 0\nbacklash z 0\n"));
        ASSERT_TRUE(openStages(2, motorSpeed));
        ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
        cameraState.laserOffset = {labSpotPixel().column, labSpotPixel().row};
        answerOthers = [](const ShownBox& box) {
            return box.text.starts_with("Do you want to stop") ? BoxAnswer::No : BoxAnswer::Yes;
        };
        connectInstrument(kindUsbSourcemeter);
        scanArea.scanStep = 4.0;
        scanArea.rectX1 = 600, scanArea.rectX2 = 660;
        scanArea.rectY1 = 500, scanArea.rectY2 = 560;
        computeScanArea(scanArea);
        allocateMaps();
        whileDialogOpen = [] { // what would break a process, and then "Close"
            const int kind = instrumentLink.ammeterKind;
            if (!processUnderWay()) return;
            selectInDialogList(idInstrumentList, kindGpibMultimeter);
            for (const int id : {idInitializeInstrument, idSet, idConnectStages, idGo, idSetZero})
                onConfigurationCommand(id);
            EXPECT_EQ(instrumentLink.ammeterKind, kind);
        };
        for (const int id : {idIvMeasurement, idTimeEvolution}) onCommand(id);
        ASSERT_EQ(toolWindows.size(), 2u);
        toolWindows[0]->edits[0]->text = "0.3";
        for (NativeWindow* edit : toolWindows[1]->edits) edit->text = "1";
        sweepRecord.pointsPerQuarter = 10;
    }

    // As an operator leaves it before he starts something.
    static void prepare() {
        if (++wallTime.minute > 59) { // a session folder for each process
            wallTime.minute = 0;
            ++wallTime.hour;
        }
        dataFolders.sessionFolderMade = 0;
        onLeftButtonDown(5000, 5000);
        setLaserLevel(0);
        setLaserOutput(1);
        setSpeed(stageZ, motorSpeed);
        for (StageAxis* axis : {&stageX, &stageY, &stageZ}) {
            readPosition(*axis);
            moveTo(*axis, axis == &stageZ ? 20 : 0);
        }
        switchLiveView(LiveView::On);
        historyOf(Field::Information).clear();
        shownBoxes.clear();
    }

    static void start(Process process) {
        switch (process) {
        case Process::Scan:
            return onCommand(idStart);
        case Process::Sweep:
            return onToolCommand(toolWindows[0], idSweepStart);
        case Process::Series:
            return onToolCommand(toolWindows[1], idSeriesStart);
        case Process::Focus:
            return onCommand(idFocus);
        case Process::WideView:
            return onCommand(idWideView);
        }
    }

    // How often each process has begun or saved.
    static std::map<std::string, long> traces() {
        std::map<std::string, long> found;
        for (const std::string& file : filesOnDesktop())
            for (const char* kind : {"/I-V(", "/TimeEvo(", "/Kestrel"})
                found[kind] += file.find(kind) != std::string::npos && !file.ends_with(".meta.txt");
        for (const std::string& text : historyOf(Field::Information))
            for (const char* kind : {"Wide view imaging", "Moving to starting point"})
                found[kind] += text == kind;
        return found;
    }

    static std::string ownTrace(Process process) {
        const char* const own[] = {"/Kestrel", "/I-V(", "/TimeEvo(", "", "Wide view imaging"};
        return own[static_cast<size_t>(process)];
    }

    // Strikes in the middle, while the process waits.
    static void inTheMiddle(Process process, Action action) {
        const size_t taken = labMeasurements().size();
        const uint64_t frames = labCounters().frames;
        when(
            [=] {
                if (session.processRunning == 0) return false;
                if (process == Process::WideView) return labStageUm(labX) > 120;
                if (process == Process::Focus) return labCounters().frames >= frames + 8;
                return labMeasurements().size() >= taken + 4;
            },
            std::move(action));
    }
};

std::vector<Step> everything() {
    std::vector<Step> steps;
    const auto add = [&](const std::string& name, Action action) {
        steps.push_back({name, std::move(action)});
    };
    const auto addCall = [&](const char* name, void (*call)()) {
        add(name, [call] { postCall(call); });
    };
    add("nothing", [] {});
    std::vector<int> ids = {99}; // no command
    for (const Command& command : commandTable())
        // The first would end the test, the second has a step of its own.
        if (command.id != idExit && command.id != idSaveMaps) ids.push_back(command.id);
    for (const int id : ids)
        add("command " + std::to_string(id), [id] {
            postCommand(id);
            if (id != idPause && id != idPauseBehindRow) return;
            in(60000, [] {
                if (isPaused()) postCommand(idPause);
            });
        });
    for (const uintptr_t key :
         {keyPageUp, keyPageDown, keyLeft, keyUp, keyRight, keyDown, uintptr_t{'A'}})
        add("key " + std::to_string(key), [key] { postKey(key); });
    add("click", [] { postClick(300, 300); });
    add("click outside", [] { postClick(1400, 900); });
    add("drag", [] { postDrag(300, 300, 400, 380); });
    add("save maps a minute later", [] {
        postCommand(idSaveMaps);
        postCall([] { wallTime.minute += 1; });
    });
    addCall("tick", liveViewTick);
    addCall("paint", onPaint);
    addCall("step", [] {
        typeInto(Field::ScanStep, "1.0");
        enterScanStep();
    });
    addCall("X", [] {
        typeInto(Field::PositionX, "30");
        enterPositionX();
    });
    addCall("Z", [] {
        typeInto(Field::PositionZ, "19");
        enterPositionZ();
    });
    addCall("intensity", enterLaserIntensity);
    addCall("gain", enterGain);
    addCall("exposure", enterExposure);
    addCall("sweep", [] { onToolCommand(toolWindows[0], idSweepStart); });
    addCall("series", [] { onToolCommand(toolWindows[1], idSeriesStart); });
    return steps;
}

TEST_P(ReentranceTest, EverythingInTheMiddleOfIt) {
    const Process process = GetParam();
    const int points = scanArea.totalPoints;
    for (const Step& step : everything()) {
        SCOPED_TRACE(step.name);
        prepare();
        auto before = traces();
        inTheMiddle(process, step.action);
        start(process);
        ASSERT_FALSE(processUnderWay());
        // Nothing but the process itself, once; what the operator saves meanwhile is his.
        for (const auto& [kind, count] : traces()) {
            const bool saved = step.name == "save maps a minute later" && kind == "/Kestrel";
            const bool begins = kind == ownTrace(process) ||
                                (process == Process::Scan && kind == "Moving to starting point");
            EXPECT_EQ(count - before[kind], (begins ? 1 : 0) + (saved ? 1 : 0)) << kind;
        }
        EXPECT_EQ(scanArea.totalPoints, points);
        EXPECT_EQ(labBiasVolts(), 0.0);
        if (process == Process::Scan || process == Process::Series) {
            EXPECT_EQ(labLaserPwm(), 0);
        }
        if (process == Process::Scan || process == Process::WideView) {
            EXPECT_NEAR(labStageUm(labX), 0, 0.5);
            EXPECT_NEAR(labStageUm(labY), 0, 0.5);
        }
        if (process == Process::Sweep || process == Process::Series) {
            EXPECT_TRUE(liveViewIsOn()); // as before it
        }
        constexpr size_t kinds = 6; // two tools, list, scans, places, a place's name
        EXPECT_LE(toolWindows.size(), kinds) << "one of a kind";
        EXPECT_EQ(labInstrumentErrors(labUsbSourcemeter).size(), 0u);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_P(ReentranceTest, StopsAndCloses) {
    const Process process = GetParam();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Yes; };
    for (const int how : {0, 1, 2}) { // a click, the button, the window's close
        prepare();
        auto before = traces();
        inTheMiddle(process, [how] {
            if (how == 0) postClick(300, 300);
            if (how == 1) postCommand(idStart);
            if (how == 2) post(messageClose);
        });
        start(process);
        EXPECT_FALSE(processUnderWay());
        EXPECT_EQ(session.stopRequested, 1);
        const std::string own = ownTrace(process);
        if (!own.empty()) {
            EXPECT_EQ(traces()[own] - before[own], 1) << own;
        }
        EXPECT_EQ(labBiasVolts(), 0.0);
        EXPECT_EQ(labLaserPwm(), 0);
        EXPECT_EQ(windows.main == nullptr, how == 2);
    }
    EXPECT_TRUE(toolWindows.empty());
}

std::string nameOf(const testing::TestParamInfo<Process>& info) {
    const char* const names[] = {"Scan", "Sweep", "Series", "Focus", "WideView"};
    return names[static_cast<size_t>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Processes, ReentranceTest,
                         testing::Values(Process::Scan, Process::Sweep, Process::Series,
                                         Process::Focus, Process::WideView),
                         nameOf);

} // namespace
