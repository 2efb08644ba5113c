// The instruments' links at the boundary of the vendors' libraries, byte for byte.
#include "instruments/ammeter.h"
#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/lock_in.h"
#include "instruments/number_extraction.h"
#include "instruments/tektronics.h"
#include "instruments/usb_sourcemeter.h"
#include "screen/control_ids.h"
#include "session/options.h"
#include "session/set_up.h"
#include "tests/doubles/doubles.h"
#include "ui/configuration.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

using namespace std::string_literals;

using Commands = std::vector<std::string>;

// With light on the sample: a truth of 0 would be met by an instrument that measures nothing. What
// is printed is kept for the tests.
class InstrumentsTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        boardReceive("G 5 204", 8);
        advanceVirtualTime(30 * labRiseMs);
        ASSERT_GT(labPhotoCurrent(0), 1e-8);
        ASSERT_GT(labPhotoVoltage(), 0.1);
        testing::internal::CaptureStdout();
    }

    void TearDown() override {
        LabTest::TearDown();
        const std::string all = testing::internal::GetCapturedStdout();
        if (HasFailure()) std::printf("%s", all.c_str()); // failures are told there, too
    }

    // Since the last call.
    static std::string printed() {
        const std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }

    std::string reportOf(unsigned long status, unsigned long error);

    InstrumentLink& link = instrumentLink;
};

float extracted(const std::string& reply, ReplyKind kind) {
    return extractNumber(reply.data(), reply.size(), kind);
}

TEST(ExtractNumber, KeepsWhatBelongsToANumber) {
    const struct {
        std::string reply;
        ReplyKind kind;
        float value;
    } cases[] = {
        {"NDCV-0.0012E+0", ReplyKind::Multimeter, -0.0012f},
        {"NDCA+1.2345E-06\r\n", ReplyKind::Multimeter, 1.2345e-6f},
        {"OVERFLOW", ReplyKind::Multimeter, 0.0f},
        {"EE-5.5", ReplyKind::Multimeter, -5.5f},  // no exponent before a digit
        {"1.5e-3", ReplyKind::Multimeter, 1.5f},   // only a capital E counts
        {"2\n3", ReplyKind::Multimeter, 2.0f},     // ends at the line feed
        {"2\v3", ReplyKind::Multimeter, 23.0f},    // and only there,
        {"2\v3", ReplyKind::Sourcemeter, 2.0f},    // but for a sourcemeter
        {"4\0005"s, ReplyKind::Sourcemeter, 4.0f}, // a zero byte ends every reply
        {"NAI-1.2345E-06", ReplyKind::Analyzer, -1.2345e-6f},
        {std::string(98, ' ') + "1234", ReplyKind::Analyzer, 12.0f}, // 100 bytes are looked at
        {"+-.", ReplyKind::Multimeter, 0.0f},
        {"", ReplyKind::Sourcemeter, 0.0f},
        {std::string(99, '0'), ReplyKind::Multimeter, 0.0f},
    };
    for (const auto& c : cases) EXPECT_EQ(extracted(c.reply, c.kind), c.value) << c.reply;
}

TEST(ExtractNumberDeathTest, EndsTheProgramOnANumberThatIsNone) {
    for (ReplyKind kind : {ReplyKind::Multimeter, ReplyKind::Sourcemeter, ReplyKind::Analyzer})
        EXPECT_DEATH(extracted(std::string(100, '7'), kind), "too long");
}

// What the library tells of its last call.
unsigned long ibsta, iberr;

std::string InstrumentsTest::reportOf(unsigned long status, unsigned long error) {
    ibsta = status;
    iberr = error;
    replaceFunction(
        "ThreadIbsta", +[] { return ibsta; });
    replaceFunction(
        "ThreadIberr", +[] { return iberr; });
    replaceFunction(
        "ThreadIbcnt", +[] { return 17ul; });
    gpibOpenDevice(18); // the library is loaded anew here, and reports when the status says so
    EXPECT_EQ(printed().empty(), !(status & 0x8000));
    gpibReportError("ibrd Error");
    return printed();
}

TEST_F(InstrumentsTest, GpibReportIsExact) {
    libraries.absent = {"ni4882.dll"};
    EXPECT_FALSE(gpibMultimeterOpen(18));
    EXPECT_EQ(printed(),
              "GPIB library: ni4882.dll not found, neither beside the program nor by the "
              "system\nibdev Error\nIbsta() = 0x8000  < ERR >\nIberr() = 0 EDVR <Driver error>\n"
              "Ibcnt() = 0\n\n");
    libraries = {};
    gpibOpenDevice(18);
    EXPECT_EQ(printed(), "GPIB library: C:\\Lumascan\\ni4882.dll\n");
    // Half of the bits each, so that two names at each other's place show.
    const std::pair<unsigned long, std::string> bits[] = {
        {0xAAAA, "0xaaaa  < ERR END RQS LOK CIC TACS DTAS"},
        {0x5555, "0x5555  < TIMO SRQI CMPL REM ATN LACS DCAS"},
        {0xF0F0, "0xf0f0  < ERR TIMO END SRQI LOK REM CIC ATN"}};
    for (const auto& [status, text] : bits)
        EXPECT_EQ(reportOf(status, 0), "ibrd Error\nIbsta() = " + text +
                                           " >\nIberr() = 0 EDVR <Driver error>\nIbcnt() = 17\n\n");
    const std::string head = "ibrd Error\nIbsta() = 0x8100  < ERR CMPL >\nIberr() = ";
    for (const std::string line :
         {"6 EABO <Operation aborted>", "7 ENEB <No GPIB board>", "14 EBUS <Command error>",
          "21 ELCK <Lock error>", "28 EPWR <Power error>"})
        EXPECT_EQ(reportOf(0x8100, std::stoul(line)), head + line + "\nIbcnt() = 17\n\n");
    EXPECT_EQ(reportOf(0x8100, 8), head + "8Ibcnt() = 17\n\n"); // no text and no line feed
}

TEST_F(InstrumentsTest, MultimeterGetsItsFourBytes) {
    ASSERT_TRUE(gpibMultimeterOpen(18));
    EXPECT_EQ(labInstrumentCommands(labMultimeter), (Commands{"REN\0"s, "F3X\0"s}));
    EXPECT_NEAR(static_cast<double>(gpibMultimeterRead()), labPhotoCurrent(0), 2e-10);
    EXPECT_EQ(labInstrumentCommands(labMultimeter).size(), 2u); // a reading writes nothing
}

TEST_F(InstrumentsTest, FailedReadTakesTheDeviceOfflineForGood) {
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    ASSERT_TRUE(applyLabFaults("gpib error ibrd 1"));
    EXPECT_EQ(gpibSourcemeterRead(), 0.0f);
    EXPECT_EQ(labCounters().gpibDescriptors, 0u);
    applyLabFaults("");
    EXPECT_EQ(gpibSourcemeterRead(), 0.0f);
    EXPECT_NE(printed().find("ibwrt Error\n"), std::string::npos); // the next write fails, too
    EXPECT_EQ(labInstrumentCommands(labSourcemeter), Commands{":READ?"});
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    gpibSourcemeterSetUp(0.0f, 1e-4f);
    EXPECT_NEAR(static_cast<double>(gpibSourcemeterRead()), labPhotoCurrent(0), 2e-10);
}

TEST_F(InstrumentsTest, FailedConnectIsReportedAndKeepsTheLinkBeforeIt) {
    for (std::string call : {"ibdev", "ibclr", "ibwrt", "ibwrt 2"}) {
        link.ammeterKind = kindGpibSourcemeter;
        link.gpibAddress = 24;
        connectInstrumentAtStart();
        // Where nothing can be written a bias could not be taken off first.
        const double bias = call.starts_with("ibwrt") ? 0.0 : 0.5;
        link.biasVoltage = static_cast<float>(bias);
        applyBias(bias, 1e-4);
        EXPECT_EQ(labBiasVolts(), bias);
        EXPECT_EQ(printed().find("Error"), std::string::npos);
        ASSERT_TRUE(applyLabFaults("gpib error " + call));
        answer("No MultiMeter devices found", BoxAnswer::Ok);
        link.gpibAddress = 18;
        connectInstrument(kindGpibMultimeter);
        EXPECT_EQ(printed().find(call.substr(0, 5) + " Error\n"), 0u) << call;
        EXPECT_EQ(labCounters().gpibDescriptors, 1u) << call;
        EXPECT_EQ(labBiasVolts(), bias) << call; // back on
        applyLabFaults("");
        disconnectInstrument(); // as at exit
        EXPECT_FALSE(labOutputOn()) << call;
        EXPECT_EQ(labCounters().gpibDescriptors, 0u) << call;
    }
}

// How long the program waits for an instrument that has hung up: 10 s on the bus, 5 s over VISA.
TEST_F(InstrumentsTest, StuckInstrumentsAreGivenUp) {
    const auto waited = [](auto call) {
        const double start = testTimeMs();
        EXPECT_EQ(call(), 0.0f);
        return testTimeMs() - start;
    };
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    applyLabFaults("instrument stuck");
    EXPECT_EQ(waited([] { return gpibSourcemeterRead(); }),
              10010); // and the pause behind a command
    EXPECT_EQ(waited(usbSourcemeterRead), 5000);
    applyLabFaults("k2450 absent");
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    applyLabFaults("instrument silent");
    EXPECT_EQ(waited([&] { return scopeRead(link.scopeInstrument); }), 5000);
}

TEST_F(InstrumentsTest, SourcemeterIsSetUpLineByLine) {
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    const double settledMs = testTimeMs() + 170; // 10 ms behind each line, then 100 ms
    gpibSourcemeterSetUp(0.5f, 0.0001f);
    EXPECT_GE(testTimeMs(), settledMs) << "no reading while the source settles";
    EXPECT_EQ(
        labInstrumentCommands(labSourcemeter),
        (Commands{":SOUR:VOLT:RANG 1", ":SOUR:VOLT 0.500000", ":SOUR:VOLT:ILIM 0.000100",
                  ":SENSe:FUNCtion \"Current\"", ":SENSe:Curr:RANG 1E-6", ":COUN 1", ":OUTP ON"}));
    EXPECT_EQ(labBiasVolts(), 0.5);
    gpibSourcemeterOff();
    EXPECT_FALSE(labOutputOn());
    EXPECT_EQ(labCounters().gpibDescriptors, 0u);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter), Commands{});
}

TEST_F(InstrumentsTest, OscilloscopeIsFoundSetAndRead) {
    // By the standard's ordinals alone; the maps are taken by the names.
    libraries.namesMissing = true;
    applyLabFaults("k2450 absent\nscope count 2");
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    EXPECT_EQ(labInstrumentCommands(labScope), Commands{"*idn?"});
    EXPECT_EQ(labInstrumentCommands(labSecondScope), // the last one found is used
              (Commands{"*idn?", "MEASUREMENT:IMMED:TYPE MEAN"}));
    EXPECT_NEAR(static_cast<double>(scopeRead(link.scopeInstrument)), labPhotoVoltage(), 0.012);
    EXPECT_EQ(labInstrumentCommands(labSecondScope).back(), ":MEASUREMENT:IMMED:VALUE?");

    // Its header is taken off by a command, with what the 30 bytes have left of it.
    applyLabFaults("k2450 absent\nscope count 2\nscope headers");
    for (int i = 0; i < 2; ++i) {
        const Reading reading = scopeRead(link.scopeInstrument);
        EXPECT_NEAR(static_cast<double>(reading), labPhotoVoltage(), 0.012);
        EXPECT_TRUE(reading.answered);
    }
    const Commands& told = labInstrumentCommands(labSecondScope);
    EXPECT_EQ(std::count(told.begin(), told.end(), "HEADER OFF"), 1);
    EXPECT_EQ(labInstrumentErrors(labSecondScope), Commands{});

    // A reply of more than 30 bytes leaves its rest to the next reading.
    applyLabFaults("k2450 absent\nscope count 2\nscope long");
    std::string first, rest;
    scopeWrite(link.scopeInstrument, ":MEASUREMENT:IMMED:VALUE?");
    EXPECT_TRUE(scopeReadText(link.scopeInstrument, first));
    EXPECT_TRUE(scopeReadText(link.scopeInstrument, rest));
    EXPECT_EQ(first.size(), 30u);
    EXPECT_GT(rest.size(), 5u);
    scopeClose(link.visaResourceManager);
    link.visaResourceManager = 0;
    EXPECT_EQ(labCounters().visaSessions, 0u);
}

// Else each value would stand at the place behind its own, from there to the end of a map.
TEST_F(InstrumentsTest, NoAnswerIsTakenForThatToALaterQuestion) {
    libraries.callsMayFail = true;
    applyLabFaults("k2450 absent");
    InstrumentLink& link = instrumentLink;
    const std::vector<CallFault> readFails = {{"viRead"}};
    libraries.callFaults = readFails; // its name stays in it
    EXPECT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 0);
    libraries.callFaults.clear();
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    for (const char* failing : {"viRead", "viWrite", "viClear"}) {
        for (const char* call : {"viRead", failing}) {
            libraries.callFaults = {{call}};
            EXPECT_FALSE(scopeRead(link.scopeInstrument).answered) << failing;
        }
        libraries.callFaults.clear();
        const Reading reading = scopeRead(link.scopeInstrument);
        EXPECT_TRUE(reading.answered) << failing;
        EXPECT_NEAR(static_cast<double>(reading), labMeasurements().back().value, 1e-5);
    }
    scopeClose(link.visaResourceManager);
    link.visaResourceManager = 0;

    applyLabFaults(""); // the sourcemeter drops the old answer by itself, and counts an error
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    for (const bool readsAgain : {true, false}) {
        libraries.callFaults = readFails;
        EXPECT_FALSE(usbSourcemeterRead().answered);
        libraries.callFaults.clear();
        EXPECT_TRUE(!readsAgain || usbSourcemeterRead().answered);
        EXPECT_TRUE(usbSourcemeterSetUp(0.5f, 1e-4f).accepted());
        EXPECT_TRUE(usbSourcemeterSetUp(0.0f, 1e-4f).accepted());
    }
}

TEST_F(InstrumentsTest, OscilloscopeThatIsNotThereLeavesNothingOpen) {
    const std::pair<const char*, const char*> faults[] = {
        {"visa absent", "Unknown system error (miscellaneous error)."},
        {"visa empty", "The given session or object reference is invalid."},
        {"instrument absent", "Insufficient location information or the device or resource "
                              "is not present in the system."},
        {"k2450 absent\nscope refused",
         "The resource is valid, but VISA cannot currently access it."},
        {"k2450 absent\nscope stuck", "Timeout expired before operation completed."},
        {"", ""}}; // the library itself
    for (const auto& [fault, line] : faults) {
        ASSERT_TRUE(applyLabFaults(fault));
        if (!*fault) libraries.absent = {"VISA64.dll"};
        ViSession manager = 0, scope = 0;
        testing::internal::CaptureStderr();
        EXPECT_EQ(scopeOpen(&manager, &scope), 0) << fault;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "failure: "s + line + "\n");
        EXPECT_EQ(labCounters().visaSessions, 0u) << fault;
        EXPECT_EQ(manager, 0u) << fault;
    }
}

TEST_F(InstrumentsTest, AnalyzerSpeaksTheSameOverBothLinks) {
    openBareWindow();
    setLabGpibAddress(labAnalyzer, 18);
    for (int mode : {analyzerNetwork, analyzerGpib}) {
        const size_t before = labInstrumentCommands(labAnalyzer).size();
        ASSERT_EQ(paOpen(mode, 18, 192, 168, 0, 10, 1225), 1);
        paApplyBias(mode, -0.25f, 0.0001f);
        EXPECT_EQ(textIn(Field::Information), "DV1, 1, -0.250000, 0.000100");
        EXPECT_EQ(labBiasVolts(), -0.25);
        paRead(mode);
        EXPECT_EQ(textIn(Field::Information).substr(0, 3), "NAI");
        paClose(mode);
        const Commands& all = labInstrumentCommands(labAnalyzer);
        EXPECT_EQ(Commands(all.begin() + static_cast<long>(before), all.end()),
                  (Commands{"US", "IT1 BC DR1", "DV1, 1, -0.250000, 0.000100", "TI1", "DV1;DV2"}));
        EXPECT_FALSE(labOutputOn());
        EXPECT_EQ(labCounters().networkLinks + labCounters().gpibDescriptors, 0u);
    }
}

// It answers whatever it is told with a reading: no bias is on, and its volts are no current.
TEST_F(InstrumentsTest, AMultimeterAtTheAddressOfASourceIsNotTakenForIt) {
    openBareWindow();
    paOpen(analyzerGpib, 18, 0, 0, 0, 0, 0);
    const SourceAnswer answer = paApplyBias(analyzerGpib, 0.3f, 0.0001f);
    EXPECT_NE(answer.refusal.find("answered with a reading, NDCV"), std::string::npos)
        << answer.refusal;
    EXPECT_FALSE(answer.accepted());
    EXPECT_FALSE(paRead(analyzerGpib).answered);
    gpibSourcemeterOpen(18);
    EXPECT_FALSE(gpibSourcemeterRead().answered);
}

int statusGiven;

TEST_F(InstrumentsTest, AnalyzerIsConnectedByTheStatusOneAlone) {
    replaceFunction(
        "OpenKXCIConnection_C", +[](const char* address, int port, int* status) {
            EXPECT_STREQ(address, "10.0.0.7");
            EXPECT_EQ(port, 1226);
            EXPECT_EQ(*status, 1);
            *status = statusGiven;
        });
    for (int status : {1, 0, 2, -1}) {
        statusGiven = status;
        EXPECT_EQ(paOpen(analyzerNetwork, 18, 10, 0, 0, 7, 1226), status == 1) << status;
    }
}

TEST_F(InstrumentsTest, UsbSourcemeterSourcesLimitsAndWaits) {
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    EXPECT_EQ(printed(), "VISA library: C:\\Lumascan\\VISA64.dll\n"
                         "Instrument Manufacturer: KEITHLEY INSTRUMENTS\n");
    EXPECT_EQ(labInstrumentCommands(labUsbSourcemeter).front(), "*CLS\n");
    EXPECT_FALSE(labOutputOn());
    const double offset = static_cast<double>(usbSourcemeterRead()); // with the output off
    EXPECT_LT(std::abs(offset), 1e-11);
    usbSourcemeterSetUp(0.5f, 2e-8f);
    EXPECT_TRUE(labOutputOn());
    EXPECT_NEAR(labCurrentLimit(), 2e-8, 1e-12);
    EXPECT_NEAR(static_cast<double>(usbSourcemeterRead()), 2e-8, 1e-10); // clipped at its limit
    const Commands& commands = labInstrumentCommands(labUsbSourcemeter);
    EXPECT_EQ(Commands(commands.end() - 2, commands.end()),
              (Commands{"*WAI\n", ":READ? \"defbuffer1\"\n"}));
    EXPECT_EQ(labInstrumentErrors(labUsbSourcemeter), Commands{});
    // A sweep sends the voltage alone; at a start somebody may have switched the output off.
    link.ammeterKind = kindUsbSourcemeter;
    const auto switchings = [&] {
        return std::count(commands.begin(), commands.end(), ":OUTP ON\n");
    };
    const auto once = switchings();
    stepBias(0.4, 2e-8);
    EXPECT_EQ(switchings(), once);
    applyBias(0.4, 2e-8);
    EXPECT_EQ(switchings(), once + 1);
    const uint64_t sessions = labCounters().visaSessions; // those of the one that is open
    for (const char* fault : {"k2450 refused", "k2450 silent", "k2450 stuck", "k2450 absent"}) {
        applyLabFaults(fault);
        EXPECT_FALSE(usbSourcemeterOpen(0.0)) << fault;
        EXPECT_EQ(labCounters().visaSessions, sessions) << fault;
    }
}

// A number that looks like a reading is one only when the instrument has been reached.
TEST_F(InstrumentsTest, AReadingTellsWhetherItWasAnswered) {
    openBareWindow();
    const struct {
        int kind, gpibAddress;
        std::vector<const char*> faults; // each takes the answer away
    } kinds[] = {{0, 18, {"board unplugged"}},
                 {2, 18, {"multimeter garbage", "multimeter stuck", "gpib error ibrd"}},
                 {3, 24, {"sourcemeter garbage", "sourcemeter silent", "gpib error ibwrt"}},
                 {4, 18, {"k2450 garbage", "k2450 stuck", "k2450 silent", "k2450 absent"}},
                 {5, 18, {"k2450 absent\nscope garbage", "scope absent"}},
                 {6, 18, {"analyzer garbage", "analyzer silent", "analyzer absent"}},
                 {7, 17, {"analyzer garbage", "analyzer stuck", "gpib absent"}}};
    for (const auto& each : kinds) {
        link.gpibAddress = each.gpibAddress;
        for (const char* fault : each.faults) {
            SCOPED_TRACE(fault);
            applyLabFaults(each.kind == kindOscilloscope ? "k2450 absent" : "");
            link.ammeterKind = kindArduino;
            openLaserLink(laserLink, nullptr);
            answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
            connectInstrument(each.kind);
            ASSERT_EQ(link.ammeterKind, each.kind);
            applyBias(0.5, 1e-3);
            EXPECT_TRUE(readPhotocurrent().answered);
            ASSERT_TRUE(applyLabFaults(fault));
            const Reading silent = readPhotocurrent();
            EXPECT_EQ(silent.value(), 0.0f);
            EXPECT_FALSE(silent.answered);
        }
    }
    for (int kind : {int{kindNiDaq}, equipmentKindCount}) {
        link.ammeterKind = kind;
        EXPECT_FALSE(readPhotocurrent().answered);
    }
}

TEST_F(InstrumentsTest, AReadingTellsThatItIsBeyondTheRange) {
    openBareWindow();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    const struct {
        int kind, gpibAddress;
        const char* fault;
        float shown; // the instrument's own sign for it, in the map's unit
    } kinds[] = {{0, 18, "board overload", 4.9951172f},
                 {2, 18, "multimeter overload", 9.99999e15f},
                 {3, 24, "sourcemeter overload", 9.9e37f},
                 {4, 18, "k2450 overload", std::numeric_limits<float>::max()},
                 {5, 18, "k2450 absent\nscope overload", 9.9e37f},
                 {6, 18, "analyzer overload", 0.105f},
                 {7, 17, "analyzer overload", 0.105f}};
    openLaserLink(laserLink, nullptr);
    for (const auto& each : kinds) {
        SCOPED_TRACE(each.kind);
        applyLabFaults(each.kind == kindOscilloscope ? "k2450 absent" : "");
        link.gpibAddress = each.gpibAddress;
        connectInstrument(each.kind);
        applyBias(0.5, 1e-3);
        EXPECT_FALSE(readPhotocurrent().overloaded);
        ASSERT_TRUE(applyLabFaults(each.fault));
        const Reading reading = readPhotocurrent();
        EXPECT_TRUE(reading.answered && reading.overloaded);
        EXPECT_FLOAT_EQ(reading.value(), each.shown);
        EXPECT_FALSE(reading.limited);
    }
    EXPECT_TRUE(isOverload(-9.91e37f)); // of the 2400 series
    EXPECT_TRUE(isOverload(NAN));
}

TEST_F(InstrumentsTest, ALimitThatCutsTheBiasIsNoticed) {
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    link.ammeterKind = kindUsbSourcemeter;
    using Words = std::vector<std::string>;
    const Words reached{"Current limit reached"};
    for (double limit : {1e-3, 2e-8, 1e-3}) {
        BiasWatch watch;
        watch.told(0.5, applyBias(0.5, limit));
        watch.read(readPhotocurrent());
        if (limit < 1e-3) applyBias(0.0, 1e-3); // only the reading has seen it
        EXPECT_EQ(watch.troubles(), limit < 1e-3 ? reached : Words{});
        applyBias(0.5, 2e-8); // no reading has seen it: only the source knows
        EXPECT_EQ(watch.troubles(), reached);
    }
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    link.ammeterKind = kindGpibSourcemeter;
    BiasWatch watch;
    watch.told(0.5, applyBias(0.5, 1e-4));
    watch.read(readPhotocurrent());
    EXPECT_EQ(watch.troubles(), Words{});
    EXPECT_EQ(labInstrumentErrors(labSourcemeter), Commands{});
}

// A scan would tell of a bias that is not there.
TEST_F(InstrumentsTest, ABiasThatIsNotHeardIsTrouble) {
    openBareWindow();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    link.gpibAddress = 22; // nobody there
    ASSERT_TRUE(applyLabFaults("gpib error ibclr"));
    link.ammeterKind = kindGpibSourcemeter;
    connectInstrumentAtStart();
    BiasWatch watch;
    watch.told(0.5, applyBias(0.5, 1e-4));
    EXPECT_EQ(watch.troubles(), std::vector<std::string>{"Bias not heard"});
    link.biasVoltage = 0.5f;
    whileDialogOpen = [] { onConfigurationCommand(idSet); };
    configure();
    EXPECT_EQ(textIn(Field::Information), "Bias not heard");
    EXPECT_EQ(biasLeftOn(), "") << "nothing went out";
    ASSERT_TRUE(applyLabFaults(""));
    link.gpibAddress = 24;
    connectInstrument(kindGpibSourcemeter);
    EXPECT_TRUE(applyBias(0.5, 1e-7).accepted()); // with six decimals it would be 0, and refused
    EXPECT_NEAR(labCurrentLimit(), 1e-7, 1e-12);
    EXPECT_EQ(labInstrumentErrors(labSourcemeter), Commands{});
    EXPECT_EQ(limitText(1e-4) + ", " + limitText(1.5e-6), "0.000100, 1.5e-06");
}

// Neither is one that the source does not take: it goes on with what it had.
TEST_F(InstrumentsTest, ABiasThatIsRefusedIsSaidAndZeroIsNot) {
    openBareWindow();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    const struct {
        int kind;
        double volts, limit; // not taken after 0.5 V at 1 mA
        const char* words;
    } cases[] = {{3, 5.0, 1e-3, "5 V, more than the 2.1 V of its fixed range"},
                 {4, 0.4, 2.0, "-222,\"Parameter data out of range\""},
                 {6, 25.0, 1e-3, "ERROR"},
                 {6, 5.0, 0.5, "ERROR"},
                 {7, 0.4, 0.5, "ERROR"}};
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << each.kind << ", " << each.volts << " V");
        link.gpibAddress = each.kind == kindGpibSourcemeter ? 24 : 17;
        connectInstrument(each.kind);
        EXPECT_TRUE(applyBias(0.5, 1e-3).accepted());
        EXPECT_TRUE(systemKeptAwake);
        link.biasVoltage = static_cast<float>(each.volts);
        link.currentLimit = static_cast<float>(each.limit);
        whileDialogOpen = [] { onConfigurationCommand(idSet); };
        configure();
        EXPECT_EQ(textIn(Field::Information), "Bias refused: "s + each.words);
        BiasWatch watch;
        watch.told(each.volts, applyBias(each.volts, each.limit));
        EXPECT_EQ(watch.troubles(), std::vector<std::string>{"Bias refused: "s + each.words});
        applyBias(0.0, each.limit);
        EXPECT_EQ(labBiasVolts(), 0.0) << "the screen says off of a bias that is on";
        EXPECT_EQ(biasLeftOn(), "");
        EXPECT_FALSE(systemKeptAwake);
        connectInstrument(kindArduino);
    }
}

// The next start does not know what the last one left, and the sources keep it.
TEST_F(InstrumentsTest, ABiasOutlivesTheProgramAndIsTakenOffAtTheNextStart) {
    const struct {
        int kind, gpibAddress;
        const char* fault; // at the next start
        bool off;
    } cases[] = {{3, 24, "", true},           {3, 24, "gpib absent", false},
                 {4, 24, "", true},           {4, 24, "k2450 refused", false},
                 {6, 24, "", true},           {6, 24, "analyzer refused", false},
                 {kindArduino, 24, "", false}}; // another kind was chosen in Config.txt
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << each.kind << ' ' << each.fault);
        const int biased = each.kind == kindArduino ? kindGpibSourcemeter : each.kind;
        openBareWindow();
        link.gpibAddress = each.gpibAddress;
        connectInstrument(biased);
        applyBias(0.5, 1e-3);
        EXPECT_FALSE(readOption("bias may be on at").empty());
        link = {.ammeterKind = each.kind, .gpibAddress = each.gpibAddress}; // the power is cut
        ASSERT_TRUE(applyLabFaults(each.fault));
        readBiasLeftOn();
        connectInstrumentAtStart();
        EXPECT_EQ(labBiasVolts(), each.off ? 0.0 : 0.5);
        EXPECT_EQ(readOption("bias may be on at").empty(), each.off);
        EXPECT_EQ(windows.main->text,
                  each.off ? "Lumascan" : "Lumascan - instrument lost: the bias may be on");
        ASSERT_TRUE(applyLabFaults(""));
        connectInstrument(biased); // it hears 0 V at last
        EXPECT_EQ(labBiasVolts(), 0.0);
        EXPECT_EQ(readOption("bias may be on at"), "");
        EXPECT_EQ(windows.main->text, "Lumascan");
        connectInstrument(kindArduino);
    }
}

TEST_F(InstrumentsTest, ABiasThatCannotBeTakenOffIsSaidUntilItIs) {
    openBareWindow();
    answerOthers = [](const ShownBox&) { return BoxAnswer::Ok; };
    const struct {
        int kind, gpibAddress;
        const char* fault;
    } sources[] = {{3, 24, "gpib error ibwrt"},
                   {4, 18, "k2450 stuck"},
                   {6, 18, "analyzer silent"},
                   {7, 17, "gpib absent"}};
    for (const auto& each : sources) {
        SCOPED_TRACE(each.fault);
        link.gpibAddress = each.gpibAddress;
        connectInstrument(each.kind);
        applyBias(0.5, 1e-3);
        EXPECT_EQ(biasLeftOn(), "");
        ASSERT_TRUE(applyLabFaults(each.fault));
        connectInstrument(kindArduino);
        EXPECT_EQ(windows.main->text, "Lumascan - instrument lost: the bias may be on");
        ASSERT_TRUE(applyLabFaults(""));
        if (each.kind == kindGpibSourcemeter) { // another one hears 0 V
            link.gpibAddress = 18;
            connectInstrument(each.kind);
            EXPECT_EQ(windows.main->text, "Lumascan - instrument lost: the bias may be on");
            link.gpibAddress = each.gpibAddress;
        }
        connectInstrument(each.kind);
        EXPECT_EQ(windows.main->text, "Lumascan");
        EXPECT_EQ(labBiasVolts(), 0.0);
    }
}

// What the last one left at the instrument, sent to it past the program.
void tellUsbSourcemeter(const std::string& lines) {
    const Visa visa = loadVisa();
    ViSession manager = 0, meter = 0;
    ASSERT_EQ(visa.viOpenDefaultRM(&manager), 0);
    ASSERT_EQ(visa.viOpen(manager, "USB0::0x05E6::0x2450::04437886::INSTR", 0, 0, &meter), 0);
    uint32_t written = 0;
    visa.viWrite(meter, reinterpret_cast<const uint8_t*>(lines.data()),
                 static_cast<uint32_t>(lines.size()), &written);
    visa.viClose(manager);
}

TEST_F(InstrumentsTest, UsbSourcemeterIsTakenAsSomebodyLeftIt) {
    tellUsbSourcemeter(":FORM REAL;:SENS:COUN 7;:SOUR:VOLT:RANG 0.2;:OUTP ON\n");
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    EXPECT_FALSE(labOutputOn());
    const size_t before = labMeasurements().size();
    usbSourcemeterSetUp(1.5f, 1e-4f);
    EXPECT_EQ(labBiasVolts(), 1.5);
    EXPECT_TRUE(usbSourcemeterRead().answered);
    EXPECT_EQ(labMeasurements().size(), before + 1);

    // Another one of its model does as well.
    applyLabFaults("k2450 other");
    printed();
    EXPECT_TRUE(usbSourcemeterOpen(0.0));
    EXPECT_NE(printed().find("USB sourcemeter: USB0::0x05E6::0x2450::04412345::INSTR\n"),
              std::string::npos);
    // But none where one is named that is not there: its sample is not for another's bias.
    setUp.sourcemeterResource = "TCPIP::192.168.0.20::INSTR";
    EXPECT_FALSE(usbSourcemeterOpen(0.0));
    setUp.sourcemeterResource = "USB0::0x05E6::0x2450::04412345::INSTR";
    EXPECT_TRUE(usbSourcemeterOpen(0.0));
    setUp = {};
    applyLabFaults("");

    // One that speaks another language does not; that comes with its next start.
    for (const char* language : {"SCPI2400", "TSP", "SCPI"}) {
        tellUsbSourcemeter("*LANG "s + language + "\n");
        applyLabFaults("k2450 absent");
        applyLabFaults("");
        printed();
        const bool right = language == "SCPI"s;
        EXPECT_EQ(usbSourcemeterOpen(0.0), right);
        EXPECT_EQ(printed().find("its command set is "s + language + ". Set it to SCPI") ==
                      std::string::npos,
                  right);
    }
}

TEST_F(InstrumentsTest, WhatTheUsbSourcemeterRefusesIsSaidOnce) {
    openBareWindow();
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    printed();
    const std::string words = "-222,\"Parameter data out of range\"";
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(usbSourcemeterSetUp(0.5f, 5.0f).refusal, words); // A; it has 1.05
    EXPECT_EQ(printed(), "USB sourcemeter: refused: " + words + "\n");
    EXPECT_EQ(textIn(Field::Information), "USB sourcemeter refused: " + words);
    // Only the voltage changes: one line. Somebody may have come after 0 V: all of them.
    const Commands& commands = labInstrumentCommands(labUsbSourcemeter);
    for (const auto& [volts, lines] : {std::pair{0.6f, 7u}, {0.7f, 1u}, {0.0f, 1u}, {0.1f, 7u}}) {
        const size_t before = commands.size();
        usbSourcemeterSetUp(volts, 1e-4f);
        EXPECT_EQ(commands.size() - before, lines) << volts;
    }
    applyLabFaults("k2450 silent");
    printed();
    for (int i = 0; i < 3; ++i) usbSourcemeterRead();
    EXPECT_EQ(printed(), "USB sourcemeter: viRead: Timeout expired before operation completed. "
                         "(0xBFFF0015)\n");
}

// Times and numbers of the filters' table, n equal poles.
TEST(Settling, TakesAsManyTimeConstantsAsItsPolesNeed) {
    constexpr double needed[2][4] = {{4.6, 6.6, 8.4, 10.0}, {6.9, 9.2, 11.2, 13.1}};
    for (int poles = 1; poles <= 4; ++poles) {
        const InstrumentSettings filter{.timeConstantMs = 100, .poles = poles};
        EXPECT_NEAR(settlingMs(filter, 99), 100 * needed[0][poles - 1], 5);
        EXPECT_NEAR(settlingMs(filter, 99.9), 100 * needed[1][poles - 1], 5);
        EXPECT_NEAR(settledPercent(filter, settlingMs(filter, 99.9)), 99.9, 1e-3);
    }
    EXPECT_EQ(settlingMs({}, 99), 0.0);
    const InstrumentSettings synchronous{.timeConstantMs = 100, .poles = 1, .syncMs = 50};
    EXPECT_NEAR(settlingMs(synchronous, 99), 510.5, 0.5);
}

TEST_F(InstrumentsTest, Sr830IsToldWhereToAnswerAndSetToNothing) {
    setLabLockIn(labSr830, {.sensitivityVolts = 0.05, .timeConstantMs = 300, .poles = 4});
    ASSERT_TRUE(sr830Open(8));
    sr830BeginPoint();
    const Reading reading = sr830Read();
    EXPECT_EQ(labInstrumentCommands(labSr830),
              (Commands{"OUTX 1", "*IDN?", "LIAS?", "OFLT?", "OFSL?", "SENS?", "RMOD?", "SYNC?",
                        "ISRC?", "FMOD?", "FREQ?", "PHAS?", "HARM?", "OEXP? 1", "OEXP? 2",
                        "OEXP? 3", "LIAS?", "SNAP? 1,2,3,4,5", "LIAS?"}));
    EXPECT_EQ(labInstrumentErrors(labSr830), Commands{});
    EXPECT_EQ(link.settings.words,
              "sensitivity 50 mV, time constant 300 ms, 24 dB per octave, reserve low noise, sync "
              "off, input A, no amplifier: values in volts, reference external 1013 Hz, phase 0 "
              "deg, harmonic 1, X offset 0 % expand 1, Y offset 0 % expand 1, R offset 0 % "
              "expand 1");
    EXPECT_TRUE(link.inVolts);
    EXPECT_TRUE(reading.answered && !reading.overloaded && !reading.unlocked);
    EXPECT_NEAR(static_cast<double>(reading.values[0]), labMeasurements().back().value, 1e-6);
    EXPECT_NEAR(static_cast<double>(reading.values[3]), 35.0, 0.5); // as it is wired
}

// A current input has its own V/A; whether its values are volts nobody knows before the first day.
TEST_F(InstrumentsTest, LockInCurrentsAreAmperesEitherWay) {
    for (const bool inAmperes : {false, true}) {
        setUp.lockInCurrentInAmperes = inAmperes;
        wireLabLockIns({.currentInputInAmperes = inAmperes});
        for (LabInstrument who : {labSr830, labSr860}) {
            setLabLockIn(who, {.sensitivityVolts = 1, .input = LabLockInInput::Current1MOhm});
            ASSERT_TRUE(who == labSr830 ? sr830Open(8) : sr860Open());
            EXPECT_FALSE(link.inVolts);
            const double amps = 0.450 * labPhotoCurrent(0); // of a square wave from 0 to there
            const Reading reading = who == labSr830 ? sr830Read() : sr860Read();
            EXPECT_NEAR(static_cast<double>(reading.values[0]), amps, 0.02 * amps) << who;
        }
    }
}

// In one line, so that nobody at the instrument can exchange two channels in between.
TEST_F(InstrumentsTest, Sr860TellsWhichValueIsWhich) {
    setLabLockIn(labSr860, {.timeConstantMs = 100, .dataChannels = {3, 1, 0, 2}});
    applyLabFaults("sr860 other"); // an SR865A
    ASSERT_TRUE(sr860Open());
    EXPECT_EQ(sr860Identity(), "Stanford_Research_Systems,SR865A,000111,v1.23");
    const Reading reading = sr860Read();
    EXPECT_EQ(labInstrumentCommands(labSr860).back(),
              "SNAPD?;OAUX? 0;CUROVLDSTAT?;LIAS?;CDSP? 0;CDSP? 1;CDSP? 2;CDSP? 3\n");
    EXPECT_NEAR(static_cast<double>(reading.values[0]), labMeasurements().back().value, 1e-6);
    EXPECT_NEAR(static_cast<double>(reading.values[3]), 35.0, 0.5);
    setLabLockIn(labSr860, {.dataChannels = {0, 1, 2, 9}}); // the reference's frequency
    EXPECT_FALSE(sr860Read().answered);
    EXPECT_NE(printed().find("its four displays are not X, Y, R and theta"), std::string::npos);
    EXPECT_EQ(labInstrumentErrors(labSr860), Commands{});
}

const struct Connect {
    int kind, gpibAddress;
    const char* absent; // the fault that takes the instrument away
} connects[] = {{2, 18, "gpib absent"},     {3, 24, "gpib absent"},
                {4, 18, "k2450 absent"},    {5, 18, "visa absent"},
                {6, 18, "analyzer absent"}, {7, 17, "gpib absent\nanalyzer absent"},
                {8, 8, "gpib absent"},      {9, 18, "sr860 absent"}};

// Calls `connect`, which shows that box or, without a text, none, and ends with a kind.
template <class Call> void expectBox(Notice notice, int32_t kindAfter, Call connect) {
    shownBoxes.clear();
    if (notice.text) answer(notice.text, BoxAnswer::Ok);
    connect();
    EXPECT_EQ(instrumentLink.ammeterKind, kindAfter);
    ASSERT_EQ(shownBoxes.size(), notice.text ? 1u : 0u);
    if (!notice.text) return;
    EXPECT_EQ(shownBoxes[0].text, notice.text);
    EXPECT_EQ(shownBoxes[0].caption, notice.caption);
    EXPECT_EQ(shownBoxes[0].owner, windows.main); // none at start-up
}

// Connects every kind with its instrument there, and without it in each way.
template <class Call> void forEachKind(Call connect) {
    const LibraryDouble none{.absent = {"ni4882.dll", "VISA64.dll", "KXCIclient64.dll"}};
    // A library that lacks one function counts as absent.
    const LibraryDouble maimed{.functionsMissing = {"ibrd", "viRead", "SendKXCICommand_C"}};
    for (const Connect& c : connects) {
        SCOPED_TRACE(c.kind);
        instrumentLink.gpibAddress = c.gpibAddress;
        applyLabFaults("");
        libraries = {};
        connect(c, true);
        applyLabFaults(c.absent);
        connect(c, false);
        applyLabFaults("");
        for (const LibraryDouble& broken : {none, maimed}) {
            libraries = broken;
            connect(c, false);
        }
    }
}

TEST_F(InstrumentsTest, StartUpShowsOnlyWhatFailed) {
    forEachKind([](const Connect& c, bool there) {
        instrumentLink.ammeterKind = c.kind;
        const InstrumentKind& kind = instrumentKind(c.kind);
        const Notice failure = kind.failedAtStart.text ? kind.failedAtStart : kind.failed;
        const bool kept = there || kind.keptAtStart;
        expectBox(there ? Notice() : failure, kept ? c.kind : kindArduino,
                  connectInstrumentAtStart);
    });
}

TEST_F(InstrumentsTest, ConnectingTellsHowItWent) {
    openBareWindow();
    ASSERT_NE(windows.main, nullptr);
    forEachKind([](const Connect& c, bool there) {
        instrumentLink.ammeterKind = kindArduino;
        const InstrumentKind& kind = instrumentKind(c.kind);
        expectBox(there ? kind.connected : kind.failed, there ? c.kind : kindArduino,
                  [&] { connectInstrument(c.kind); });
    });
    link.ammeterKind = kindGpibMultimeter;
    expectBox({"This equipment is not supported yet", "NI-DAQ Error"}, kindGpibMultimeter,
              [] { connectInstrument(kindNiDaq); });
    expectBox({}, kindGpibMultimeter, [] { connectInstrument(-1); }); // nothing selected
    expectBox({}, kindArduino, [] { connectInstrument(kindArduino); });
}

} // namespace
