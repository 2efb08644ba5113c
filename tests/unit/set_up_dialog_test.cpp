// The sheet "Set-up": where its fields stand, what is taken, what is refused, what follows.
#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/day_log.h"
#include "session/process.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/commands.h"
#include "ui/set_up_dialog.h"
#include "ui/set_up_draft.h"

#include <set>

namespace {

class SetUpDialogTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        createMainWindow(1);
    }
    static void inSheet(const std::function<void()>& actions) {
        whileDialogOpen = actions;
        onCommand(idSetUp);
    }
    // The control of a field; those of an objective by the name that they have for the first.
    static int controlOf(const std::string& name) {
        for (int objective : {0, 1}) {
            int id = objective == 0 ? idSetUpField : idObjectiveField;
            for (const SetUpField& field : setUpFieldsOf(objective, ::SetUp())) {
                if (field.name == name) return id;
                ++id;
            }
        }
        ADD_FAILURE() << name;
        return 0;
    }
    static bool type(const std::string& name, const std::string& text) {
        return changeInSheet(controlOf(name), text);
    }
    static std::string shown(const std::string& name) { return dialogTextIn(controlOf(name)); }
    static bool choose(int objective) {
        selectInDialogList(idObjectiveList, objective - 1);
        return pressInSheet(idObjectiveList);
    }
    static std::string file() { return contentOf("KST_Data/Setup.ini"); }
    static std::string information() { return textIn(Field::Information); }
};

TEST_F(SetUpDialogTest, EveryFieldStandsOnItsPageOnce) {
    const Sheet sheet = setUpSheet(setUp);
    std::multiset<int> ids;
    for (const SheetPage& page : sheet.pages) {
        for (const SheetControl& each : page.controls) {
            if (each.id >= idObjectiveField) ids.insert(each.id);
            EXPECT_GE(each.x, 0);
            EXPECT_LE(each.x + each.width, sheet.width) << page.title << ": " << each.text;
            const bool drops = each.kind == SheetControl::Kind::List;
            EXPECT_LE(each.y + (drops ? 12 : each.height), sheet.height) << each.text;
            if (each.kind == SheetControl::Kind::Group) continue;
            for (const SheetControl& other : page.controls) {
                if (&other == &each || other.kind == SheetControl::Kind::Group) continue;
                const bool apart = other.x >= each.x + each.width ||
                                   each.x >= other.x + other.width || other.y >= each.y + 8 ||
                                   each.y >= other.y + 8;
                EXPECT_TRUE(apart) << page.title << ": " << each.text << ", " << other.text;
            }
        }
    }
    const size_t fields = setUpFieldsOf(0, setUp).size() + setUpFieldsOf(1, setUp).size();
    EXPECT_EQ(ids.size(), fields);
    EXPECT_EQ(std::set<int>(ids.begin(), ids.end()).size(), fields);
    EXPECT_EQ(fields, setUpFields(setUp).size() - 1); // "objective in use" is the menu's
}

TEST_F(SetUpDialogTest, ARefusedValueIsTurnedToAndNothingIsTaken) {
    const struct {
        const char *field, *typed, *words, *turnsTo;
    } cases[] = {
        {"X um per turn", "0", "X um per turn: 0.1 to 100000", "X um per turn"},
        {"Y speed (full steps/s)", "1e3", "Y speed (full steps/s): a whole number, 10 to 800",
         "Y speed (full steps/s)"},
        {"objective 1 laser spot row", "1028",
         "objective 1 laser spot row: a whole number, 0 to 1027, or empty",
         "objective 1 laser spot row"},
        {"laser power (uA:uW)", "4:1 3:2", "laser power (uA:uW): pairs that ascend",
         "laser power (uA:uW)"},
        // Between two fields.
        {"lamp pin", "5", "laser and lamp cannot have the same pin", "lamp pin"},
        {"objective 1 Y per row (um)", "3", "alike within 25 %", "objective 1 X per column (um)"},
    };
    for (const auto& each : cases) {
        inSheet([&] {
            type("camera serial number", "4711");
            EXPECT_TRUE(type(each.field, each.typed));
            answer(each.words, BoxAnswer::Ok);
            EXPECT_FALSE(pressApply());
            EXPECT_EQ(turnedTo, controlOf(each.turnsTo));
            EXPECT_EQ(shown(each.field), each.typed);
        });
        EXPECT_EQ(shownBoxes.back().caption, "Set-up");
        EXPECT_EQ(setUp.cameraSerial, "");
        EXPECT_EQ(file(), "");
    }
}

TEST_F(SetUpDialogTest, TakesAllAndSaysWhatFollows) {
    scanArea.rectX1 = 100, scanArea.rectY1 = 100, scanArea.rectX2 = 300, scanArea.rectY2 = 200;
    computeScanArea(scanArea);
    ASSERT_GT(scanArea.totalPoints, 1);
    inSheet([&] {
        checkInDialog(controlOf("Z counts the other way"), true);
        pressInSheet(controlOf("Z counts the other way"));
        type("X um per turn", " 500 ");
        type("highest Z (um)", "120.5");
        selectInDialogList(controlOf("lock-in current input"), 0);
        type("objective 1 laser spot column", "600");
        type("objective 1 laser spot row", "500");
        type("camera serial number", "4711");
        EXPECT_TRUE(pressApply());
    });
    EXPECT_EQ(setUp.drives[0].umPerTurn, 500.0);
    EXPECT_TRUE(setUp.drives[2].reversed);
    EXPECT_EQ(setUp.ranges[2].highest, 120.5);
    EXPECT_TRUE(setUp.lockInCurrentInAmperes && setUp.lockInCurrentTried);
    EXPECT_EQ(cameraState.laserOffset.x, 600);
    EXPECT_EQ(scanArea.totalPoints, 1);
    EXPECT_EQ(information(), "Set-up taken: the scan area is taken away; \"Reconnect Stages\" is "
                             "necessary; the camera needs \"Connect\" in the Configuration; a "
                             "lock-in amplifier needs \"initialize\" in the Configuration");
    EXPECT_NE(file().find("X um per turn = 500\n"), std::string::npos) << file();
    EXPECT_EQ(file().find("Y um per turn"), std::string::npos);
    const ::SetUp taken = setUp;
    EXPECT_TRUE(readSetUp().empty());
    for (const SetUpField& field : setUpFields(taken))
        EXPECT_EQ(textOf(field, setUp), textOf(field, taken)) << field.name;

    // Nothing else was typed: nothing follows.
    showInformation("");
    inSheet([] { EXPECT_TRUE(pressApply()); });
    EXPECT_EQ(information(), "");

    refusedFile = "Setup.ini";
    inSheet([] {
        type("Y um per turn", "300");
        EXPECT_TRUE(pressApply());
    });
    EXPECT_NE(information().find("Setup.ini was not written, it holds for this run"),
              std::string::npos)
        << information();
}

TEST_F(SetUpDialogTest, ObjectivesComeAndGo) {
    inSheet([] {
        type("objective 1", "20x");
        EXPECT_EQ(dialogListItems(idObjectiveList)[0], L"1: 20x (in use)");
        for (int number = 2; number <= 8; ++number) EXPECT_TRUE(pressInSheet(idAddObjective));
        answer("There are 8 objectives already", BoxAnswer::Ok);
        EXPECT_FALSE(pressInSheet(idAddObjective));
        EXPECT_EQ(turnedTo, idObjectiveField);
        EXPECT_EQ(shown("objective 1"), "");
        type("objective 1", "100x"); // the eighth is shown
        type("objective 1 X per column (um)", "-0.03");
        EXPECT_EQ(dialogTextIn(idScaleNote + 1),
                  "Camera turned by 0.00 degrees against the stage, mirrored left to right");
        type("objective 1 Y per row (um)", "0.03");
        EXPECT_FALSE(choose(1));
        EXPECT_EQ(shown("objective 1"), "20x");
        answer("It is in use", BoxAnswer::Ok);
        EXPECT_FALSE(pressInSheet(idRemoveObjective));
        for (int number = 7; number >= 2; --number) {
            choose(number);
            EXPECT_TRUE(pressInSheet(idRemoveObjective));
        }
        EXPECT_TRUE(pressApply());
        // A value of an objective that is not shown is refused at it.
        choose(2);
        type("objective 1 focus (um)", "deep");
        choose(1);
        answer("objective 2 focus (um): -20000 to 20000", BoxAnswer::Ok);
        EXPECT_FALSE(pressApply());
        EXPECT_EQ(selectedInDialogList(idObjectiveList), 1);
        EXPECT_EQ(turnedTo, controlOf("objective 1 focus (um)"));
    });
    ASSERT_EQ(setUp.objectives.size(), 2u);
    EXPECT_EQ(setUp.objectives[1].name, "100x");
    EXPECT_EQ(setUp.objectives[1].xPerColumn, -0.03);

    // With the second in use the first one goes, and is gone after a restart, too.
    onCommand(idObjective + 1);
    EXPECT_EQ(setUp.objectiveInUse, 2);
    inSheet([] {
        choose(1);
        EXPECT_TRUE(pressInSheet(idRemoveObjective));
        EXPECT_TRUE(pressApply());
        answer("It is the only objective", BoxAnswer::Ok);
        EXPECT_FALSE(pressInSheet(idRemoveObjective));
    });
    EXPECT_TRUE(readSetUp().empty());
    ASSERT_EQ(setUp.objectives.size(), 1u);
    EXPECT_EQ(setUp.objectiveInUse, 1);
    EXPECT_EQ(setUp.objective().name, "100x");
}

TEST_F(SetUpDialogTest, NotWhileAProcessRuns) {
    inSheet([] {
        type("X um per turn", "300");
        const RunningProcess scan;
        answer("Not while a measurement runs", BoxAnswer::Ok);
        EXPECT_FALSE(pressApply());
    });
    EXPECT_EQ(setUp.drives[0].umPerTurn, 250.0);
    const RunningProcess scan;
    whileDialogOpen = [] { ADD_FAILURE() << "opened"; };
    onCommand(idSetUp);
    EXPECT_FALSE(information().empty());
}

TEST_F(SetUpDialogTest, LightsAndLabelsFollow) {
    ASSERT_EQ(openLaserLink(laserLink, windows.main), 1);
    setLaserLevel(1);
    setLaserOutput(1);
    instrumentLink.ammeterKind = kindOscilloscope;
    ASSERT_STREQ(unitLabel(), "V_ph (V)");
    setField(Field::UnitLabel, unitLabel());
    inSheet([] {
        type("laser pin", "9");
        type("laser uA per V", "8");
        type("oscilloscope amplifier (V/A)", "1e6");
        EXPECT_TRUE(pressApply());
    });
    EXPECT_EQ(textIn(Field::LaserIntensity), formatted("%.1f", laserLink.laserLevel * 8.0));
    EXPECT_EQ(textIn(Field::UnitLabel), "I_ph (uA)");
    EXPECT_FALSE(laserIsOn());
    EXPECT_TRUE(illuminationIsOn());
    EXPECT_EQ(labLaserPwm(), 0);
}

} // namespace
