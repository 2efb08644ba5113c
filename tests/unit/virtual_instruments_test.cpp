// The laboratory's instruments and their links: a wrong command, a wrong order or a forgotten
// session must be noticed there. What is right shows in the tests of the program's links.
#include "tests/doubles/doubles.h"
#include "virtual_lab/faces.h"

namespace {

constexpr int tenSeconds = 13;
constexpr unsigned long completed = 0x0100, ended = 0x2100, failed = 0x8100, timedOut = 0xC100;
constexpr const char* usbSourcemeter = "USB0::0x05E6::0x2450::04437886::INSTR";
constexpr const char* scopeName = "USB0::0x0699::0x0368::C010001::INSTR";

class VirtualInstruments : public LabTest {
protected:
    int openOnBus(int address) {
        int descriptor = ibdev(0, address, 0, tenSeconds, 1, 0);
        EXPECT_EQ(ThreadIbsta(), completed);
        return descriptor;
    }

    // What comes back for a command; the status of the last call is left for the test.
    static std::string askBus(int descriptor, const std::string& command) {
        if (!command.empty()) {
            EXPECT_EQ(tell(descriptor, command), completed) << command;
        }
        std::string answer(100, '\0');
        ibrd(descriptor, answer.data(), answer.size());
        answer.resize(ThreadIbcnt());
        return answer;
    }

    static unsigned long tell(int descriptor, const std::string& command) {
        return ibwrt(descriptor, command.data(), command.size());
    }

    // Each is an error of the instrument.
    template <class Tell>
    static void expectErrors(std::initializer_list<const char*> commands, Tell tellWrong) {
        uint64_t errors = labCounters().instrumentErrors;
        for (const char* command : commands) {
            tellWrong(command);
            EXPECT_EQ(labCounters().instrumentErrors, ++errors) << command;
        }
    }

    uint32_t openUsb(const char* name) {
        EXPECT_EQ(viOpenDefaultRM(&manager), 0);
        uint32_t session = 0;
        EXPECT_EQ(viOpen(manager, name, 0, 0, &session), 0);
        return session;
    }

    static int32_t write(uint32_t session, const std::string& command) {
        return viWrite(session, reinterpret_cast<const uint8_t*>(command.data()),
                       uint32_t(command.size()), nullptr);
    }

    static uint32_t bits(int32_t value) { return static_cast<uint32_t>(value); }

    uint32_t manager = 0;
};

TEST_F(VirtualInstruments, MultimeterRunsFreelyAndKnowsItsLetters) {
    int meter = openOnBus(18);
    expectErrors({"F3X"}, [=](auto early) { tell(meter, early); }); // not yet remote
    EXPECT_EQ(tell(meter, {"REN", 4}), completed);
    EXPECT_EQ(askBus(meter, "").substr(0, 4), "NDCV"); // as it wakes up
    EXPECT_EQ(tell(meter, {"F3X", 4}), completed);
    EXPECT_EQ(askBus(meter, "").size(), std::string("NDCA+1.23456E-06\r\n").size());
    EXPECT_EQ(ThreadIbsta(), ended);
    expectErrors({"F9X", "FX", "E3X", "F3R9X", "F 33X"}, [=](auto wrong) { tell(meter, wrong); });
}

TEST_F(VirtualInstruments, SourcemeterTakesNoTypo) {
    int meter = openOnBus(24);
    for (const char* line : {":SOUR:VOLT 0.5", ":SENS:CURR:RANG 1E-8", ":OUTP ON"})
        EXPECT_EQ(tell(meter, line), completed);
    EXPECT_EQ(askBus(meter, ":READ?"), "+9.900000E+37\n"); // more than the range holds
    const std::pair<const char*, const char*> wrong[] = {
        {":SOUR:VLT 1", "-113"},    {":SOUR:VOLT 500", "-222"}, {":SOUR:VOLT", "-109"},
        {":SOUR:VOLT 1,2", "-108"}, {":SOUR:VOLT one", "-104"}, {":SENS:FUNC \"CURT\"", "-224"},
        {":OUTP ONN", "-224"},      {":READ", "-113"},          {":SENSE:CURRE:RANG 1", "-113"},
        {":SENS:FUNC CURR", "-104"}};
    for (auto [command, error] : wrong) {
        EXPECT_EQ(tell(meter, command), completed);
        EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), error + (" " + std::string(command)));
    }
    // A reply that is not taken, and one that nobody asked for.
    EXPECT_EQ(tell(meter, ":READ?"), completed);
    EXPECT_EQ(askBus(meter, ":READ?").size(), 14u);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), "-410 :READ?");
    EXPECT_EQ(askBus(meter, ""), "");
    EXPECT_EQ(ThreadIbsta(), timedOut);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), "-420");
}

TEST_F(VirtualInstruments, GpibNoticesWhoIsNotThere) {
    int nobody = openOnBus(5); // only a write notices
    EXPECT_EQ(ibclr(nobody), completed);
    EXPECT_EQ(tell(nobody, "REN"), failed);
    int meter = openOnBus(18);
    applyLabFaults("gpib absent");
    EXPECT_EQ(ibclr(meter), failed);
    EXPECT_EQ(ThreadIbcnt(), 0xE0140025u); // the operating system's error, no count
    applyLabFaults("multimeter long");
    EXPECT_EQ(askBus(meter, "").size(), 100u);
    EXPECT_EQ(ThreadIbsta(), completed); // the end is still to come
    EXPECT_EQ(ibonl(meter, 0), completed);
    EXPECT_EQ(ibonl(meter, 0), failed);
    EXPECT_EQ(ThreadIberr(), 23u); // EHDL
}

TEST_F(VirtualInstruments, VisaForgetsWhatIsSwitchedOffOrClosed) {
    uint32_t scope = openUsb(scopeName), other = 0;
    applyLabFaults("scope absent");
    EXPECT_EQ(bits(write(scope, "*idn?")), 0xBFFF00A6);
    EXPECT_EQ(bits(viOpen(manager, scopeName, 0, 0, &other)), 0xBFFF0011);
    applyLabFaults(""); // there again; the old session is not
    EXPECT_EQ(bits(write(scope, "*idn?")), 0xBFFF00A6);
    EXPECT_EQ(viOpen(manager, scopeName, 0, 0, &other), 0);
    expectErrors({"MEASUREMENT:IMED:TYPE MEAN", "MEASUREMENT:IMMED:TYPE MEEN"},
                 [=](auto wrong) { write(other, wrong); });
    EXPECT_EQ(viClose(manager), 0); // and all that was opened through it
    EXPECT_EQ(bits(viClose(other)), 0xBFFF000E);

    uint32_t meter = openUsb(usbSourcemeter), count = 0;
    uint8_t part[4];
    write(meter, "*IDN?\n");
    EXPECT_EQ(viRead(meter, part, sizeof part, &count), 0x3FFF0006); // the rest is still to come
    write(meter, "*CLS\n");
    EXPECT_EQ(bits(viRead(meter, part, sizeof part, &count)), 0xBFFF0015);
    write(meter, "SOUR:VOLT 0.5; VOLT -0.5;VOLT:ILIM 1E-4;:OUTPUT:STATE 1\n");
    EXPECT_EQ(labBiasVolts(), -0.5);
    expectErrors({":READ? \"defbufer1\"\n"}, [=](auto wrong) { write(meter, wrong); });
    applyLabFaults("k2450 absent");
    EXPECT_FALSE(labOutputOn());
}

TEST_F(VirtualInstruments, AnalyzerTakesNoTypo) {
    int status = 1;
    char answer[200] = "";
    auto send = [&](const char* command) {
        SendKXCICommand_C(command, answer, &status);
        return std::string(answer);
    };
    OpenKXCIConnection_C("192.168.0.10", 1225, &status);
    EXPECT_EQ(send("TI1"), "ERROR"); // not yet in user mode
    for (const char* good : {"US", "IT1 BC DR1", "DV1, 1, 0.500000, 0.00000001"})
        EXPECT_EQ(send(good), "ACK") << good;
    EXPECT_EQ(send("TI1").substr(0, 4), "CAI+"); // in compliance
    expectErrors({"DV1, 1, 0.5", "DV3, 1, 0, 1E-4", "DV1, 1, 30, 1E-4", "TI", "XX1",
                  "DV1, 1, 0.5, 0.2", "IT1 BC DRR", "DV1 1 0.5 1"},
                 [&](auto bad) { EXPECT_EQ(send(bad), "ERROR") << bad; });
    EXPECT_EQ(labCounters().networkLinks, 1u);
    applyLabFaults("analyzer absent");
    EXPECT_EQ(labCounters().networkLinks, 0u);
}

} // namespace
