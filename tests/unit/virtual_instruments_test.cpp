// The laboratory's instruments and their links: a wrong command, a wrong order or a forgotten
// session must be noticed there.
#include "tests/doubles/doubles.h"
#include "virtual_lab/faces.h"

#include <cmath>
#include <cstring>

namespace {

constexpr int tenSeconds = 13;
constexpr unsigned long completed = 0x0100, ended = 0x2100, failed = 0x8100, timedOut = 0xC100;
constexpr unsigned long driverError = 0, noListener = 2, badArgument = 4, aborted = 6, noBoard = 7,
                        busError = 14, badHandle = 23;
constexpr const char* usbSourcemeter = "USB0::0x05E6::0x2450::04437886::INSTR";
constexpr const char* firstScope = "USB0::0x0699::0x0368::C010001::INSTR";

class VirtualInstruments : public LabTest {
protected:
    int openOnBus(int address) {
        int descriptor = ibdev(0, address, 0, tenSeconds, 1, 0);
        EXPECT_EQ(ThreadIbsta(), completed);
        return descriptor;
    }

    // What comes back for a command; the status of the last call is left for the test.
    static std::string askBus(int descriptor, const std::string& command, size_t count = 100) {
        if (!command.empty()) {
            EXPECT_EQ(tell(descriptor, command), completed) << command;
            EXPECT_EQ(ThreadIbcnt(), command.size());
        }
        std::string answer(count, '\0');
        ibrd(descriptor, answer.data(), count);
        answer.resize(ThreadIbcnt());
        return answer;
    }

    static unsigned long tell(int descriptor, const std::string& command) {
        return ibwrt(descriptor, command.data(), command.size());
    }

    // What the library says after a call.
    static void outcome(long, unsigned long status, unsigned long error) {
        EXPECT_EQ(ThreadIbsta(), status);
        EXPECT_EQ(ThreadIberr(), error);
    }

    ViSession openUsb(const char* name) {
        ViSession manager = 0, session = 0;
        EXPECT_EQ(viOpenDefaultRM(&manager), 0);
        EXPECT_EQ(viOpen(manager, name, 0, 0, &session), 0);
        return session;
    }

    static ViStatus write(ViSession session, const std::string& command) {
        return viWrite(session, reinterpret_cast<const uint8_t*>(command.data()),
                       uint32_t(command.size()), nullptr);
    }

    std::string read(ViSession session, uint32_t count = 200) {
        std::string answer(count, '\0');
        uint32_t received = 0;
        status = viRead(session, reinterpret_cast<uint8_t*>(answer.data()), count, &received);
        answer.resize(received);
        return answer;
    }

    std::string ask(ViSession session, const std::string& command) {
        EXPECT_EQ(write(session, command), 0);
        return read(session);
    }

    static void lightOn() {
        boardReceive("G 5 204", 8);
        advanceVirtualTime(30 * labRiseMs);
    }

    static double currentAtSpot(double bias) {
        LabPoint spot = labLaserSpotSample();
        return expectedCurrent(spot.x, spot.y, 4.0, labStageUm(labZ), bias);
    }

    static uint32_t bits(ViStatus value) { return static_cast<uint32_t>(value); }

    ViStatus status = 0;
};

TEST_F(VirtualInstruments, ContactsSaturateOnBothSidesAndPhotocurrentGrowsWithBias) {
    EXPECT_EQ(labDarkCurrent(0), 0);
    EXPECT_NEAR(labDarkCurrent(0.5), 50e-9, 3e-9);
    EXPECT_LT(labDarkCurrent(-0.5), -35e-9);
    EXPECT_NEAR(labDarkCurrent(200), labDarkCurrent(1), 1e-10);
    EXPECT_NEAR(expectedCurrent(12, 5, 4.0, surfaceHeightAt(12, 5), 0), 0.9e-6, 1e-8);
    EXPECT_NEAR(expectedCurrent(12, 5, 4.0, surfaceHeightAt(12, 5), -1) - labDarkCurrent(-1),
                0.99e-6, 1e-8);
    EXPECT_EQ(labPhotoCurrent(0.5), 0);
    lightOn();
    EXPECT_NEAR(labPhotoCurrent(0.5) + labDarkCurrent(0.5), currentAtSpot(0.5), 1e-12);
}

TEST_F(VirtualInstruments, MultimeterRunsFreelyAndKnowsItsLetters) {
    lightOn();
    int meter = openOnBus(18);
    EXPECT_EQ(ibclr(meter), completed);
    EXPECT_EQ(tell(meter, "F3X"), completed); // not yet remote
    EXPECT_EQ(labInstrumentErrors(labMultimeter).back(), "no remote F3X");
    EXPECT_EQ(tell(meter, {"REN", 4}), completed);
    EXPECT_EQ(askBus(meter, "").substr(0, 4), "NDCV"); // as it wakes up
    EXPECT_EQ(tell(meter, {"F3X", 4}), completed);

    double before = testTimeMs();
    std::string reading = askBus(meter, "");
    EXPECT_EQ(ThreadIbsta(), ended);
    EXPECT_EQ(testTimeMs() - before, 20);
    ASSERT_EQ(reading.size(), std::string("NDCA+1.23456E-06\r\n").size());
    EXPECT_EQ(reading.substr(0, 5), "NDCA+");
    EXPECT_EQ(reading.substr(16), "\r\n");
    EXPECT_NEAR(std::stod(reading.substr(4)), currentAtSpot(0), 5 * labRangeNoise * 2e-6);
    EXPECT_EQ(labMeasurements().back().value, std::stod(reading.substr(4)));

    uint64_t errors = labCounters().instrumentErrors;
    for (const char* wrong : {"F9X", "FX", "E3X", "F3R9X", "F 33X"}) {
        tell(meter, wrong);
        EXPECT_EQ(labCounters().instrumentErrors, ++errors) << wrong;
    }
    EXPECT_EQ(tell(meter, "F0"), completed); // waits for its X
    EXPECT_EQ(askBus(meter, "").substr(0, 4), "NDCA");
}

TEST_F(VirtualInstruments, SourcemeterTakesItsSetUpAndNoTypo) {
    lightOn();
    int meter = openOnBus(24);
    for (const char* line :
         {":SOUR:VOLT:RANG 1", ":SOUR:VOLT 0.500000", ":SOUR:VOLT:ILIM 0.000100",
          ":SENSe:FUNCtion \"Current\"", ":SENSe:Curr:RANG 1E-6", ":COUN 1", ":OUTP ON"})
        EXPECT_EQ(tell(meter, line), completed);
    EXPECT_EQ(labCounters().instrumentErrors, 0u);
    EXPECT_EQ(labBiasVolts(), 0.5);
    EXPECT_EQ(labCurrentLimit(), 0.0001);
    std::string reading = askBus(meter, ":READ?");
    EXPECT_EQ(reading.size(), std::string("+1.234567E-06\n").size());
    EXPECT_NEAR(std::stod(reading), currentAtSpot(0.5), 5 * labRangeNoise * 1e-6);

    // Limit, range, output.
    EXPECT_EQ(tell(meter, ":SOUR:VOLT:ILIM 2E-8"), completed);
    EXPECT_NEAR(std::stod(askBus(meter, ":READ?")), 2e-8, 1e-10);
    EXPECT_EQ(askBus(meter, ":sour1:volt:ilim:trip?"), "1\n");
    EXPECT_EQ(tell(meter, ":SOUR:VOLT:ILIM 1E-4;:SENS:CURR:RANG 1E-8"), completed);
    EXPECT_EQ(askBus(meter, ":READ?"), "+9.900000E+37\n");
    EXPECT_EQ(tell(meter, "SENS:CURR:RANG:AUTO ON;:OUTP OFF"), completed);
    EXPECT_FALSE(labOutputOn());
    EXPECT_NEAR(std::stod(askBus(meter, ":READ?")), currentAtSpot(0), 1e-9);

    const std::pair<const char*, const char*> wrong[] = {
        {":SOUR:VLT 1", "-113"},         {":SOUR:VOLT 5", "-222"}, // beyond the range
        {":SOUR:VOLT", "-109"},          {":SOUR:VOLT 1,2", "-108"}, {":SOUR:VOLT one", "-104"},
        {":SENS:FUNC \"CURT\"", "-224"}, {":OUTP ONN", "-224"},      {":READ", "-113"},
        {":SENSE:CURRE:RANG 1", "-113"}, {":SENS:FUNC CURR", "-104"}};
    for (auto [command, error] : wrong) {
        EXPECT_EQ(tell(meter, command), completed);
        EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), error + (" " + std::string(command)));
        EXPECT_EQ(askBus(meter, ":SYST:ERR?").substr(0, 5), error + std::string(","));
    }
    EXPECT_EQ(askBus(meter, "SYSTem:ERRor:NEXT?"), "0,\"No error\"\n");

    // A reply that is not taken, and one that nobody asked for.
    EXPECT_EQ(tell(meter, ":READ?"), completed);
    EXPECT_EQ(askBus(meter, ":READ?").size(), 14u);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), "-410 :READ?");
    double before = testTimeMs();
    EXPECT_EQ(askBus(meter, ""), "");
    outcome(0, timedOut, aborted);
    EXPECT_EQ(testTimeMs() - before, 10000);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter).back(), "-420");
}

TEST_F(VirtualInstruments, GpibCallsFailAsTheDriverDoes) {
    outcome(ibdev(1, 18, 0, tenSeconds, 1, 0), failed, noBoard);
    outcome(ibdev(0, 31, 0, tenSeconds, 1, 0), failed, badArgument);
    outcome(ibwrt(-1, "REN", 4), failed, badHandle);

    int nobody = openOnBus(5); // only a write notices
    outcome(ibclr(nobody), completed, 0);
    outcome(tell(nobody, "REN"), failed, noListener);
    EXPECT_EQ(ThreadIbcnt(), 0u);
    EXPECT_EQ(labCounters().deviceClears, 0u);

    int meter = openOnBus(18);
    applyLabFaults("gpib error ibwrt 2");
    outcome(tell(meter, "REN"), completed, 0);
    outcome(tell(meter, "F3X"), failed, busError);
    EXPECT_EQ(askBus(meter, "").size(), 18u);
    applyLabFaults("gpib absent");
    outcome(ibclr(meter), failed, driverError);
    EXPECT_EQ(ThreadIbcnt(), 0xE0140025u); // the operating system's error, no count
    applyLabFaults("multimeter absent\nsourcemeter absent\nanalyzer absent");
    outcome(ibclr(meter), failed, noListener); // nobody takes the command bytes
    applyLabFaults("multimeter stuck");
    outcome(tell(meter, "REN"), timedOut, aborted);
    applyLabFaults("multimeter silent");
    outcome(tell(meter, "REN"), completed, 0);
    EXPECT_EQ(askBus(meter, ""), "");
    outcome(0, timedOut, aborted);

    applyLabFaults("multimeter long");
    EXPECT_EQ(askBus(meter, "").size(), 100u);
    EXPECT_EQ(ThreadIbsta(), completed); // the end is still to come
    EXPECT_EQ(askBus(meter, "").size(), 22u);
    EXPECT_EQ(ThreadIbsta(), ended);

    applyLabFaults("gpib sourcemeter at 18\nsourcemeter unterminated");
    EXPECT_EQ(askBus(meter, "*IDN?").substr(0, 8), "KEITHLEY");
    EXPECT_NE(askBus(meter, "READ?").back(), '\n');
    applyLabFaults("gpib error ibonl");
    outcome(ibonl(meter, 0), failed, driverError);
    applyLabFaults("");
    outcome(ibonl(meter, 0), completed, 0);
    outcome(ibonl(meter, 0), failed, badHandle);
}

TEST_F(VirtualInstruments, VisaFindsOpensAndClosesWhatIsThere) {
    ViSession manager = 0, list = 0, session = 0;
    uint32_t count = 0;
    char name[viDescriptionSize];
    ASSERT_EQ(viOpenDefaultRM(&manager), 0);
    ASSERT_EQ(viFindRsrc(manager, "usb?*INSTR", &list, &count, name), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_STREQ(name, usbSourcemeter);
    EXPECT_EQ(viFindNext(list, name), 0);
    EXPECT_STREQ(name, firstScope);
    EXPECT_EQ(bits(viFindNext(list, name)), 0xBFFF0011);
    EXPECT_EQ(bits(viFindRsrc(manager, "USB[0-9]", nullptr, nullptr, nullptr)), 0xBFFF0010);
    ASSERT_EQ(viOpen(manager, firstScope, 0, 0, &session), 0);
    EXPECT_EQ(labCounters().visaSessions, 3u);

    applyLabFaults("scope absent");
    EXPECT_EQ(bits(write(session, "*idn?")), 0xBFFF00A6);
    EXPECT_EQ(bits(viOpen(manager, firstScope, 0, 0, &list)), 0xBFFF0011);
    applyLabFaults("scope refused"); // there again; the old session is not
    EXPECT_EQ(bits(write(session, "*idn?")), 0xBFFF00A6);
    EXPECT_EQ(bits(viOpen(manager, firstScope, 0, 0, &list)), 0xBFFF0072);
    EXPECT_EQ(viClose(manager), 0); // and all that was opened through it
    EXPECT_EQ(bits(viClose(session)), 0xBFFF000E);
}

TEST_F(VirtualInstruments, ScopeKeepsWhatWasNotRead) {
    lightOn();
    const std::string value = ":MEASUREMENT:IMMED:VALUE?";
    ViSession scope = openUsb(firstScope);
    EXPECT_EQ(ask(scope, "*idn?").substr(0, 9), "TEKTRONIX");
    EXPECT_EQ(ask(scope, value), "9.90000E+37\n"); // no mean yet
    EXPECT_EQ(write(scope, "MEASUREMENT:IMMED:TYPE MEAN"), 0);
    EXPECT_NEAR(std::stod(ask(scope, value)), labPhotoVoltage(), 5 * labScopeNoiseVolts);
    EXPECT_EQ(labCounters().instrumentErrors, 0u);
    EXPECT_EQ(write(scope, "MEASUREMENT:IMED:TYPE MEAN"), 0);
    EXPECT_EQ(write(scope, "MEASUREMENT:IMMED:TYPE MEEN"), 0);
    EXPECT_EQ(labCounters().instrumentErrors, 2u);

    applyLabFaults("scope long");
    EXPECT_EQ(write(scope, value), 0);
    EXPECT_EQ(read(scope, 30).size(), 30u);
    EXPECT_EQ(status, 0x3FFF0006);
    EXPECT_EQ(ask(scope, value), "000000E+00\n") << "the rest of the first";
    EXPECT_EQ(read(scope).size(), 41u);
    applyLabFaults("instrument garbage");
    EXPECT_EQ(ask(scope, value).find_first_of("0123456789"), std::string::npos);
}

TEST_F(VirtualInstruments, UsbSourcemeterTakesTheManualsForms) {
    ViSession meter = openUsb(usbSourcemeter);
    for (const char* line :
         {"*CLS\n", "*RST\n", "*WAI\n", ":SOURce1:FUNCtion:MODE VOLTage\n",
          ":SENSe1:CURRent:DC:RANGe:AUTO ON\n",
          "SOUR:VOLT:LEV:IMM:AMPL -0.5;:SOUR:VOLT 0.5; VOLT -0.5;VOLT:ILIM 1E-4\n",
          ":SENS:FUNC 'CURR:DC'\n", "OUTPUT:STATE 1\n"})
        EXPECT_EQ(write(meter, line), 0);
    EXPECT_EQ(labCounters().instrumentErrors, 0u);
    EXPECT_EQ(labBiasVolts(), -0.5);
    EXPECT_EQ(ask(meter, "*IDN?\n").substr(0, 32), "KEITHLEY INSTRUMENTS,MODEL 2450,");
    EXPECT_NEAR(std::stod(ask(meter, ":READ? \"defbuffer1\"\n")), labDarkCurrent(-0.5), 1e-10);
    EXPECT_EQ(ask(meter, ":SOUR:VOLT?;:OUTP?\n"), "-5.000000E-01;1\n");
    EXPECT_EQ(write(meter, ":READ? \"defbufer1\"\n"), 0);
    EXPECT_EQ(labInstrumentErrors(labUsbSourcemeter).back(), "-224 :READ? \"defbufer1\"");
    applyLabFaults("k2450 absent");
    EXPECT_FALSE(labOutputOn());
}

TEST_F(VirtualInstruments, AnalyzerSpeaksUserModeOnBothLinks) {
    lightOn();
    int onBus = openOnBus(17), status = 1;
    char answer[200] = "";
    auto send = [&](const char* command) {
        SendKXCICommand_C(command, answer, &status);
        return std::string(answer);
    };
    OpenKXCIConnection_C("192.168.0.10", 1225, &status);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(send("TI1"), "ERROR"); // not yet in user mode
    for (const char* good : {"US", "IT1 BC DR1", "DV1, 1, 0.500000, 0.000100"})
        EXPECT_EQ(send(good), "ACK") << good;
    EXPECT_EQ(labBiasVolts(), 0.5);
    EXPECT_EQ(send("TI1").substr(0, 3), "NAI");
    EXPECT_NEAR(std::stod(send("TI1").substr(3)), currentAtSpot(0.5), 1e-10);
    EXPECT_EQ(askBus(onBus, "DV1, 1, 0.500000, 0.00000001"), "ACK\r\n");
    EXPECT_EQ(askBus(onBus, "TI1").substr(0, 4), "CAI+"); // in compliance
    uint64_t errors = labCounters().instrumentErrors;
    for (const char* bad : {"DV1, 1, 0.5", "DV3, 1, 0, 1E-4", "DV1, 1, 30, 1E-4", "TI", "XX1",
                            "DV1, 1, 0.5, 0.2", "IT1 BC DRR", "DV1 1 0.5 1"}) {
        EXPECT_EQ(send(bad), "ERROR") << bad;
        EXPECT_EQ(labCounters().instrumentErrors, ++errors);
    }
    EXPECT_EQ(send("DV1;DV2"), "ACK");
    EXPECT_FALSE(labOutputOn());

    applyLabFaults("analyzer silent");
    std::strcpy(answer, "as it was");
    EXPECT_EQ(send("TI1"), "as it was");
    EXPECT_EQ(labCounters().networkLinks, 1u);
    applyLabFaults("analyzer absent");
    EXPECT_EQ(labCounters().networkLinks, 0u);
    applyLabFaults("analyzer refused");
    OpenKXCIConnection_C("192.168.0.10", 1225, &status);
    EXPECT_NE(status, 1);
}

TEST_F(VirtualInstruments, FaultsThatAreNotUnderstoodChangeNothing) {
    for (const char* bad :
         {"gpib", "gpib error ibxyz", "gpib error ibwrt 0", "gpib error ibwrt 2 3",
          "gpib scope at 4", "gpib multimeter at 31", "scope count 3", "scope lost", "visa silent",
          "k2450", "instrument broken", "analyzer absent today"})
        EXPECT_FALSE(applyLabFaults(bad)) << bad;
    ViSession session = openUsb(firstScope);
    EXPECT_EQ(write(session, "*idn?"), 0);
}

} // namespace
