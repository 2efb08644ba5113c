// A script at the door: what it may do, who has command, and what it cannot do.
#include "app/program.h"
#include "door/door.h"
#include "door/verbs.h"
#include "instruments/ammeter.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_map.h"
#include "motion/stage.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/pause.h"
#include "session/process.h"
#include "session/session_state.h"
#include "tests/simulation/whole_run.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

class Door : public WholeRunTest {
protected:
    void SetUp() override {
        WholeRunTest::SetUp();
        writeSettings(2.0, false);
        options("scripts may connect = yes\nscripts may switch laser and bias = yes\n");
    }
    static void options(const std::string& text) { writeDesktopFile("KST_Data/Options.ini", text); }

    // Sends each line once the answer to the one before has come; "~500" lets 500 ms pass, "^" is
    // the next client.
    void converse(std::vector<std::string> lines) {
        script = std::move(lines);
        when([] { return portIsOpen() && (timerRuns() || processUnderWay()); },
             [this] {
                 clientConnects();
                 sendNext();
             });
    }
    void sendNext() {
        if (next == script.size()) {
            if (closesAtEnd) post(messageClose);
            return;
        }
        const std::string line = script[next++];
        if (line[0] == '~') return in(std::stod(line.substr(1)), [this] { sendNext(); });
        if (line == "^") {
            clientLeaves();
            return in(100, [this] {
                clientConnects();
                sendNext();
            });
        }
        clientSends(line + "\n");
        if (line.find('?') == std::string::npos) {
            in(1, [this] { sendNext(); });
            return;
        }
        when([this] { return (heard += clientHears()).ends_with('\n'); },
             [this] {
                 answers.push_back(heard.substr(0, heard.size() - 1));
                 heard.clear();
                 sendNext();
             });
    }
    void run() { EXPECT_EQ(runProgram(1), 0); }

    std::vector<std::string> script, answers;
    std::string heard;
    size_t next = 0;
    bool closesAtEnd = true;
};

std::vector<float> numbersIn(const std::string& block) {
    const size_t header = 2 + static_cast<size_t>(block.at(1) - '0');
    std::vector<float> numbers((block.size() - header) / sizeof(float));
    std::memcpy(numbers.data(), block.data() + header, numbers.size() * sizeof(float));
    return numbers;
}

} // namespace

TEST_F(Door, ScansAnAreaOfTheStageAndGivesTheMapAway) {
    converse({"*IDN?", "SYST:ERR?", "SCAN:AREA 10,20,16,12;STEP 2", "SCAN:SIZE?", "STAG:POS 5,5",
              "*OPC?", "STAG:POS?", "SCAN:STAR", "SCAN:STAT?", "SCAN:STEP 3;STEP?", "*OPC?",
              "SCAN:STAT?", "SCAN:REP?", "SCAN:DATA? 0", "SCAN:DATA? MASK", "SYST:ERR?",
              "SYST:ERR?", "LAS?;:SOUR:VOLT?"});
    run();
    ASSERT_EQ(answers.size(), 15u);
    EXPECT_EQ(answers[0].substr(0, 20), "Lumascan,Lumascan,0,");
    EXPECT_EQ(answers[1], "0,\"No error\"");
    EXPECT_EQ(answers[2], "9,7");
    EXPECT_EQ(answers[3], "1");
    EXPECT_EQ(answers[4].substr(0, 2), "5.");
    EXPECT_EQ(answers[5], "RUN,0,63");
    EXPECT_EQ(answers[6], "2"); // no setting while it runs
    EXPECT_EQ(answers[7], "1");
    EXPECT_EQ(answers[8], "DONE");
    EXPECT_EQ(answers[9], "\"Mapping finished\"");
    const std::vector<float> map = numbersIn(answers[10]), mask = numbersIn(answers[11]);
    ASSERT_EQ(map.size(), 63u);
    ASSERT_EQ(mask.size(), 63u);
    for (int row = 0; row < 7; ++row)
        for (int column = 0; column < 9; ++column) {
            const auto i = static_cast<size_t>(row * 9 + column);
            const LabPixel spot = labSpotPixel();
            const LabPoint place{
                10.0 + column * 2.0 + (spot.column - labCentreColumn) * labUmPerPixel,
                20.0 + (6 - row) * 2.0 + (spot.row - labCentreRow) * labUmPerPixel};
            EXPECT_TRUE(agreesWithLandscape(static_cast<double>(map[i]), place, 0.0)) << i;
            EXPECT_EQ(mask[i], 1.0f);
        }
    EXPECT_EQ(answers[12], "-221,\"Settings conflict;not while a mapping runs\"");
    EXPECT_EQ(answers[13], "0,\"No error\"");
    EXPECT_EQ(answers[14], "0;0");
    EXPECT_EQ(shownBoxes.size(), 0u);
}

// By their public sources: PyVISA ends its lines with CR LF unless it is told otherwise; QCoDeS
// begins with a device clear, which VISA writes to a socket as *CLS, and splits *IDN? into four at
// its commas, and its IPInstrument may connect anew for each command; PyMeasure asks *OPT?, and
// SYST:ERR? until its first field is 0. A notebook that begins anew ends no scan.
TEST_F(Door, HearsWhatCommonPackagesSend) {
    converse({"*CLS",
              "*IDN?\r",
              "*OPT?\r",
              "*STB?\r",
              "SCAN:STEP 1e+02",
              "SYST:ERR?",
              "SYST:ERR?",
              "SCAN:AREA 0.0, 0.0, 32.0, 20.0;STEP 4\r",
              "SCAN:SIZE?",
              "SCAN:STEP 2.5\r",
              "SCAN:SIZE?",
              "STAG:POS 7,3;*OPC?",
              "SCAN:AREA?\r",
              "SCAN:STAR\r",
              "~2000",
              "^",
              "*CLS",
              "*RST;*CLS",
              "*IDN?\r",
              "SCAN:STAT?",
              "^",
              "SCAN:STAT?",
              "*WAI;*OPC?",
              "SCAN:STAT?"});
    run();
    ASSERT_EQ(answers.size(), 14u);
    EXPECT_EQ(std::count(answers[0].begin(), answers[0].end(), ','), 3);
    EXPECT_EQ(answers[1], "0");
    EXPECT_EQ(answers[2], "0");
    EXPECT_EQ(answers[3].substr(0, 5), "-222,");
    EXPECT_EQ(answers[4].substr(0, 2), "0,");
    EXPECT_EQ(answers[5], "9,6"); // no whole pixels of the picture
    EXPECT_EQ(answers[6], "13,9");
    EXPECT_EQ(answers[8], "0,0,32,20");
    EXPECT_EQ(answers[9], answers[0]);
    EXPECT_EQ(answers[10].substr(0, 4), "RUN,");
    EXPECT_EQ(answers[11].substr(0, 4), "RUN,");
    EXPECT_EQ(answers[13], "DONE");
}

TEST_F(Door, IsClosedAtFirstAndRefusesWithoutTheSecondBox) {
    options("");
    when([] { return timerRuns(); },
         [] {
             EXPECT_FALSE(portIsOpen());
             whileDialogOpen = [] {
                 checkInDialog(idScriptsCheck, true);
                 pressInDialog(idSet);
             };
             postCommand(idScanOptions);
         });
    converse({"LAS ON;:SOUR:VOLT 1;:LAS:LEV 8;:LIST:STAR;:SWE:STAR", "SYST:ERR?", "*ESR?"});
    run();
    EXPECT_EQ(portNumber(), 5025);
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0].substr(0, 24), "-203,\"Command protected;");
    EXPECT_EQ(answers[1], "144"); // power on, execution error
    EXPECT_FALSE(laserIsOn());
    const std::string kept = contentOf("KST_Data/Options.ini");
    EXPECT_NE(kept.find("scripts may connect = yes"), std::string::npos);
    EXPECT_NE(kept.find("scripts may switch laser and bias = no"), std::string::npos);
}

TEST_F(Door, LeavesTheOperatorInCommand) {
    // His own scan refuses the script, a stop and *CLS included; his boxes do, too.
    closesAtEnd = false;
    afterReadings(5, [&] {
        converse({"*CLS;:SCAN:STOP", "SYST:ERR?", "SCAN:STAR", "SYST:ERR?", "READ?;:SYST:ERR?",
                  "SCAN:STAT?", "STAG:POS 0,0", "SYST:ERR?"});
        in(1000, clientConnects); // a second one
    });
    runProgramOver(12, 8);
    ASSERT_EQ(answers.size(), 5u);
    EXPECT_EQ(answers[0].substr(0, 5), "-221,");
    EXPECT_EQ(answers[1].substr(0, 5), "-221,");
    EXPECT_EQ(answers[2].substr(0, 5), "-221,");
    EXPECT_EQ(answers[3].substr(0, 4), "RUN,");
    EXPECT_EQ(answers[4].substr(0, 5), "-221,");
    EXPECT_EQ(clientsRefused(), 1);
}

TEST_F(Door, OpensNoBoxForAScript) {
    answer("Do they drive the axes so?", BoxAnswer::Yes); // of the start
    answer("Not every axis of the stage has a controller", BoxAnswer::Ok);
    converse({"SCAN:AREA 0,0,20,20;:SCAN:STAR;*OPC?", "SCAN:STAT?", "SYST:ERR?", "SYST:ERR?",
              "STAG:POS 1,1,1", "SYST:ERR?", "INST 4", "SYST:ERR?", "LIST:LOAD \"none\"",
              "SYST:ERR?"});
    applyLabFaults("axis z absent\nk2450 absent");
    run();
    ASSERT_EQ(answers.size(), 7u);
    EXPECT_EQ(answers[1], "FAILED");
    EXPECT_EQ(answers[2].substr(0, 64),
              "-200,\"Execution error;No controller answers for Z. Start all the");
    EXPECT_EQ(answers[3], "0,\"No error\"");
    EXPECT_EQ(answers[4], "-222,\"Data out of range;stage Z has no controller\"");
    EXPECT_EQ(answers[5], "-241,\"Hardware missing;No SourceMeter devices found via USB\"");
    EXPECT_EQ(answers[6].substr(0, 5), "-250,");
    EXPECT_EQ(shownBoxes.size(), 2u);
}

// What a client has begun the operator stops; what is measured is saved. A client that is gone
// leaves it to its end.
TEST_F(Door, LetsTheOperatorStopAScriptAndGoesOnWithoutIt) {
    closesAtEnd = false;
    converse({"SCAN:AREA 0,0,10,6;:SCAN:STAR", "*OPC?", "SCAN:STAT?", "SCAN:STAR;:SCAN:STAT?"});
    when([] { return session.processRunning && labCounters().analogReads > 5; },
         [] {
             answer("Do you want to stop process, now ?", BoxAnswer::Yes);
             postCommand(idStart);
         });
    when([this] { return answers.size() == 3; },
         [] {
             clientLeaves();
             in(3000, [] {
                 EXPECT_TRUE(processUnderWay());
                 EXPECT_FALSE(clientIsConnected());
             });
             in(4000, [] { when([] { return !processUnderWay(); }, [] { post(messageClose); }); });
         });
    run();
    ASSERT_EQ(answers.size(), 3u);
    EXPECT_EQ(answers[1], "STOPPED");
    EXPECT_EQ(answers[2], "RUN,0,24");
    EXPECT_FALSE(laserIsOn());
    size_t maps = 0;
    for (const std::string& name : filesOnDesktop())
        maps += name.find("/Kestrel") != std::string::npos ? 1 : 0;
    EXPECT_EQ(maps, 2u);
}

// One command after another arrives in whatever wait, while the operator works, too.
TEST_F(Door, StopsItsOwnScanAndItsOwnMove) {
    converse({"STAG:POS 3000,0", "~1000", "STAG:STOP", "*OPC?", "STAG:POS?", "SYST:ERR?",
              "SCAN:AREA 0,0,10,6;:SCAN:STAR", "SCAN:STOP;*OPC?", "SCAN:STAT?",
              "SCAN:STAR;*WAI;:SCAN:STAT?"});
    in(60'000, [] { clientSends("SCAN:STOP\n"); });
    run();
    ASSERT_EQ(answers.size(), 6u);
    EXPECT_GT(std::strtod(answers[1].c_str(), nullptr), 100.0);
    EXPECT_LT(std::strtod(answers[1].c_str(), nullptr), 2000.0);
    EXPECT_EQ(answers[2].substr(0, 5), "-200,");
    EXPECT_EQ(answers[4], "IDLE"); // it had not begun
    EXPECT_TRUE(answers[5] == "STOPPED" || answers[5] == "DONE") << answers[5];
}

// Answers that nobody reads are bounded, and the window lives.
TEST_F(Door, BoundsABadClient) {
    closesAtEnd = false;
    boundClient(1000);
    when([] { return portIsOpen() && timerRuns(); },
         [] {
             clientConnects();
             for (int i = 0; i < 100; ++i) {
                 std::string many;
                 for (int line = 0; line < 100; ++line) many += "*IDN?\nSTAG:POS?\n";
                 clientSends(many);
             }
             in(1000, [] { postCommand(idRefreshPositions); });
             in(2000, [] {
                 EXPECT_EQ(clientHears().size(), 1000u);
                 clientConnects(); // while it is there
                 clientLeaves();
             });
             in(3000, [] { post(messageClose); });
         });
    run();
    EXPECT_EQ(clientsRefused(), 1);
}

// The guide's table is the program's.
TEST_F(Door, IsDescribedInTheGuide) {
    std::ifstream guide(DOOR_GUIDE);
    std::stringstream text;
    text << guide.rdbuf();
    std::ofstream("scripting-table.md") << verbTableText();
    EXPECT_NE(text.str().find(verbTableText()), std::string::npos)
        << "put scripting-table.md into docs/scripting.md";
}

TEST_F(Door, DarkensBehindAScriptThatIsGone) {
    closesAtEnd = false;
    bool lit = false;
    converse({"LAS ON;:LAS?"});
    when([this] { return answers.size() == 1; },
         [&] {
             lit = laserIsOn() && labBoardCommands().back() == "G 5 204";
             EXPECT_EQ(windowText(windows.main, 100), "Lumascan - script in command");
             clientLeaves();
             in(500, [] {
                 EXPECT_FALSE(laserIsOn());
                 EXPECT_EQ(labBoardCommands().back(), "G 5 0");
                 EXPECT_EQ(windowText(windows.main, 100), "Lumascan");
                 post(messageClose);
             });
         });
    run();
    EXPECT_TRUE(lit);
}

// Taken away or gone: its laser and its bias go off, and the operator's next scan has his own.
TEST_F(Door, GivesBackWhatItHasSwitchedAndSet) {
    closesAtEnd = false;
    converse({"INST 4;:SOUR:VOLT 0.1;VOLT:ILIM 1e-6;:LAS ON;:SOUR:VOLT?;VOLT:ILIM?", "LAS OFF",
              "SOUR:VOLT 0;:SYST:ERR?", "SOUR:VOLT 1;:SYST:ERR?", "SCAN:STAR;:SYST:ERR?"});
    float before = 0.0f;
    when([] { return portIsOpen(); }, [&] { before = instrumentLink.biasVoltage; });
    when([this] { return answers.size() == 1; },
         [&] {
             EXPECT_NEAR(labBiasVolts(), 0.1, 1e-6);
             whileDialogOpen = [&] {
                 checkInDialog(idScriptsSwitchCheck, false);
                 pressInDialog(idSet);
                 EXPECT_EQ(labBiasVolts(), 0.0);
                 EXPECT_FALSE(laserIsOn());
                 EXPECT_EQ(instrumentLink.biasVoltage, before);
             };
             postCommand(idScanOptions);
         });
    when([this] { return answers.size() == 4; }, [] { post(messageClose); });
    run();
    ASSERT_EQ(answers.size(), 4u);
    EXPECT_EQ(answers[0], "0.1;1e-06");
    EXPECT_EQ(answers[1], "0,\"No error\""); // off is always allowed
    EXPECT_EQ(answers[2].substr(0, 5), "-203,");
    EXPECT_EQ(answers[3].substr(0, 5), "-203,");
}

// The operator's pause is his to end, and an area that he has drawn since his to scan.
TEST_F(Door, TakesNothingOutOfTheOperatorsHands) {
    closesAtEnd = false;
    converse({"INST 4;:SWE:STAR;STAT?", "~500", "SCAN:PAUS;:SYST:ERR?", "STAG:STOP;*OPC?",
              "SWE:STAT?", "INST 0;*CLS;:SCAN:AREA 0,0,10,6;:SCAN:STAR;STAT?"});
    when([this] { return answers.size() == 5 && labCounters().analogReads > 5; },
         [this] {
             postCommand(idPause);
             when([] { return isPaused(); },
                  [this] {
                      clientSends("SCAN:RES;:SYST:ERR?;:SCAN:STAT?\n");
                      when([this] { return (heard += clientHears()).ends_with('\n'); },
                           [] {
                               EXPECT_TRUE(isPaused());
                               postCommand(idPause);
                               when([] { return !processUnderWay(); },
                                    [] {
                                        answer("Do you want to set it for next scan area",
                                               BoxAnswer::Yes);
                                        postDrag(300, 300, 400, 380);
                                        in(1000, [] { clientSends("SCAN:STAR;:SYST:ERR?\n"); });
                                        in(3000, [] { post(messageClose); });
                                    });
                           });
                  });
         });
    run();
    heard += clientHears();
    ASSERT_EQ(answers.size(), 5u);
    EXPECT_EQ(answers[0], "RUN"); // from its command on
    EXPECT_EQ(answers[1], "-221,\"Settings conflict;Only a mapping and a scan list can pause\"");
    EXPECT_EQ(answers[3], "STOPPED");
    EXPECT_EQ(answers[4], "RUN,0,24");
    EXPECT_NE(heard.find("the operator has paused it"), std::string::npos) << heard;
    EXPECT_NE(heard.find("PAUSED,"), std::string::npos) << heard;
    EXPECT_NE(heard.find("no longer the script's"), std::string::npos) << heard;
}

// A megabyte in a line is one error, and what comes behind it is heard.
TEST_F(Door, HearsWhatComesBehindALineThatIsTooLong) {
    converse({"*CLS", std::string(65535, 'x'), std::string(65536, 'x'), std::string(1 << 20, 'x'),
              "SYST:ERR:COUN?;NEXT?"});
    run();
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].substr(0, 2), "3;");
}
