// The Configuration dialog of the real program, from a change of instrument to the settings file.
#include "tests/window/program_run.h"

class Configuration : public ProgramRun {
protected:
    HWND dialog = nullptr;

    HWND item(int id) const { return GetDlgItem(dialog, id); }

    void press(int id) const { click(item(id)); }

    void type(int id, const char* text) const {
        SendMessageA(item(id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    }

    void choose(int id, int index) const {
        SendMessageA(item(id), CB_SETCURSEL, static_cast<WPARAM>(index), 0);
    }

    // The notice lies beside the dialog, which is of the same class.
    void acknowledge(const char* text, const char* caption) const {
        HWND box = nullptr;
        ASSERT_TRUE(
            await([&] { return (box = FindWindowA("#32770", caption)) != nullptr; }, patiently));
        ASSERT_TRUE(await([&] { return GetDlgItem(box, IDOK) != nullptr; }, quickly));
        std::string texts;
        for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT))
            texts += textOf(child);
        EXPECT_NE(texts.find(text), std::string::npos) << texts;
        ASSERT_TRUE(answerBox({box, caption, text, "OK"}, IDOK));
    }
};

TEST_F(Configuration, SwitchesDevicesAndMovesTheStage) {
    ASSERT_NO_FATAL_FAILURE(writeSettings("step:2.0, laser:4.00"));
    program = startProgram(layDesk(true));
    ASSERT_TRUE(awaitMainWindow(program, patiently));
    ASSERT_TRUE(awaitPicture());
    command(program, idConfiguration);
    ASSERT_TRUE(await([&] { return (dialog = topWindow(program, "#32770")) != nullptr; }, quickly));
    ASSERT_EQ(textOf(dialog), "Configuration");
    EXPECT_TRUE(isChecked(program, idLiveOff));
    EXPECT_EQ(textOf(item(idInstrumentList)), "Arduino");

    choose(idInstrumentList, 3);
    type(idGpibAddress, "24");
    type(idBias, "0.25");
    press(idSet);
    ASSERT_NO_FATAL_FAILURE(acknowledge("SourceMeter device connected", "GPIB Communication"));
    EXPECT_TRUE(await([&] { return textOf(item(idBias)) == "0.250000"; }, quickly));
    choose(idInstrumentList, 1);
    press(idSet);
    ASSERT_NO_FATAL_FAILURE(acknowledge("This equipment is not supported yet", "NI-DAQ Error"));
    EXPECT_TRUE(awaitText(item(idInstrumentList), "GPIB Sourcemeter", quickly));
    EXPECT_TRUE(await([&] { return !IsWindowEnabled(program.window); }, quickly))
        << "a notice has ended the dialog's mode";

    // Enter is "Go" there, and no "Set": that would take the bias.
    type(idBias, "0.5");
    type(idDialogPositionX, "-5");
    press(idDialogPositionX);
    PostMessageA(item(idDialogPositionX), WM_KEYDOWN, VK_RETURN, 0);
    EXPECT_TRUE(awaitText(controlById(program, idPositionX), "-5.0", quickly));
    EXPECT_EQ(textOf(item(idBias)), "0.5");
    type(idDialogPositionX, "0");
    EXPECT_TRUE(await(
        [&] {
            press(idGo); // dropped while it still moves
            return textOf(controlById(program, idPositionX)) == "0.0";
        },
        quickly));
    type(idBias, "0.25");

    type(idHandStep, "12.7");
    press(idHandXPlus);
    EXPECT_TRUE(awaitText(item(idDialogPositionX), "12.0", quickly));
    press(idHandYMinus);
    EXPECT_TRUE(awaitText(item(idDialogPositionY), "-12.0", quickly));
    EXPECT_EQ(textOf(controlById(program, idPositionY)), "-12.0");
    press(idSetZero);
    EXPECT_TRUE(awaitText(controlById(program, idPositionX), "0.0", quickly));

    press(idConfocalCheck);
    choose(idAxisOrderList, 0);
    press(idCloseDialog);
    ASSERT_TRUE(await([&] { return !IsWindow(dialog); }, quickly));
    EXPECT_TRUE(IsWindowEnabled(program.window));
    EXPECT_TRUE(await([&] { return isChecked(program, idLiveOn); }, quickly));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    EXPECT_EQ(contentOf(dataRoot() / "Config.txt"),
              "step:2.0, laser:4.00, laser correct:(0,0), Ammeter:3, GPIB:24, "
              "IP:192,168,0,10,1225, Standa:0, arduino_LD:10, 0\r\n");
}
