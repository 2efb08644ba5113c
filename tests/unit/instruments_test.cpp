// The instruments' links at the boundary of the vendors' libraries, byte for byte.
#include "instruments/ammeter.h"
#include "instruments/analyzer.h"
#include "instruments/gpib.h"
#include "instruments/laser_link.h"
#include "instruments/number_extraction.h"
#include "instruments/tektronics.h"
#include "instruments/usb_sourcemeter.h"
#include "tests/doubles/doubles.h"

#include <functional>

namespace {

using namespace std::string_literals;

using Commands = std::vector<std::string>;

// With light on the sample: a truth of 0 would be met by an instrument that measures nothing.
class InstrumentsTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        boardReceive("G 5 204", 8);
        ASSERT_GT(labPhotoCurrent(0), 1e-8);
        ASSERT_GT(labPhotoVoltage(), 0.1);
    }
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

std::string reportOf(unsigned long status, unsigned long error) {
    ibsta = status;
    iberr = error;
    replaceFunction(
        "ThreadIbsta", +[] { return ibsta; });
    replaceFunction(
        "ThreadIberr", +[] { return iberr; });
    replaceFunction(
        "ThreadIbcnt", +[] { return 17ul; });
    testing::internal::CaptureStdout();
    gpibOpenDevice(18); // the library is loaded anew here, and reports when the status says so
    const std::string byOpening = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    gpibReportError("ibrd Error");
    const std::string report = testing::internal::GetCapturedStdout();
    EXPECT_EQ(byOpening.empty(), !(status & 0x8000));
    return report;
}

TEST_F(InstrumentsTest, GpibReportIsExactForEveryBitAndCode) {
    const std::pair<unsigned long, const char*> bits[] = {
        {0x8000, " ERR"},  {0x4000, " TIMO"}, {0x2000, " END"},  {0x1000, " SRQI"},
        {0x0800, " RQS"},  {0x0100, " CMPL"}, {0x0080, " LOK"},  {0x0040, " REM"},
        {0x0020, " CIC"},  {0x0010, " ATN"},  {0x0008, " TACS"}, {0x0004, " LACS"},
        {0x0002, " DTAS"}, {0x0001, " DCAS"}};
    for (const auto& [bit, text] : bits) {
        char head[60];
        std::snprintf(head, sizeof head, "ibrd Error\nIbsta() = 0x%lx  <%s >\n", bit, text);
        EXPECT_EQ(reportOf(bit, 0), head + "Iberr() = 0 EDVR <Driver error>\nIbcnt() = 17\n\n"s);
    }
    const std::pair<unsigned long, const char*> codes[] = {
        {1, " ECIC <Not Controller-In-Charge>\n"},
        {2, " ENOL <No Listener>\n"},
        {3, " EADR <Address error>\n"},
        {4, " EARG <Invalid argument>\n"},
        {5, " ESAC <Not System Controller>\n"},
        {6, " EABO <Operation aborted>\n"},
        {7, " ENEB <No GPIB board>\n"},
        {8, ""}, // no text and no line feed
        {10, " EOIP <Async I/O in progress>\n"},
        {11, " ECAP <No capability>\n"},
        {12, " EFSO <File system error>\n"},
        {14, " EBUS <Command error>\n"},
        {15, " ESTB <Status byte lost>\n"},
        {16, " ESRQ <SRQ stuck on>\n"},
        {20, " ETAB <Table Overflow>\n"},
        {21, " ELCK <Lock error>\n"},
        {22, " EARM <Ibnotify rearm error>\n"},
        {23, " EHDL <Invalid Handle>\n"},
        {26, " EWIP <Wait already in progress>\n"},
        {27, " ERST <Notification cancelled due to reset>\n"},
        {28, " EPWR <Power error>\n"}};
    for (const auto& [code, text] : codes)
        EXPECT_EQ(reportOf(0x8100, code), "ibrd Error\nIbsta() = 0x8100  < ERR CMPL >\nIberr() = " +
                                              std::to_string(code) + text + "Ibcnt() = 17\n\n");
}

TEST_F(InstrumentsTest, MultimeterGetsItsFourBytes) {
    ASSERT_TRUE(gpibMultimeterOpen(18));
    EXPECT_EQ(labInstrumentCommands(labMultimeter), (Commands{"REN\0"s, "F3X\0"s}));
    EXPECT_NEAR(static_cast<double>(gpibMultimeterRead()), labPhotoCurrent(0), 2e-10);
    EXPECT_EQ(labInstrumentCommands(labMultimeter).size(), 2u); // a reading writes nothing
}

TEST_F(InstrumentsTest, EveryFailedGpibCallIsReportedUnderItsName) {
    const std::pair<const char*, const char*> calls[] = {{"ibdev", "ibdev Error\n"},
                                                         {"ibclr", "ibclr Error\n"},
                                                         {"ibwrt", "ibwrt Error\n"},
                                                         {"ibwrt 2", "ibwrt Error\n"}};
    for (const auto& [call, label] : calls) {
        ASSERT_TRUE(applyLabFaults("gpib error "s + call));
        testing::internal::CaptureStdout();
        EXPECT_FALSE(gpibMultimeterOpen(18)) << call;
        EXPECT_EQ(testing::internal::GetCapturedStdout().find(label), 0u) << call;
        EXPECT_EQ(labCounters().gpibDescriptors, 0u) << call;
    }
}

TEST_F(InstrumentsTest, FailedReadTakesTheDeviceOfflineForGood) {
    setLabGpibAddress(labSourcemeter, 18);
    ASSERT_TRUE(gpibSourcemeterOpen(18));
    ASSERT_TRUE(applyLabFaults("gpib error ibrd 1"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(gpibSourcemeterRead(), 0.0f);
    EXPECT_EQ(labCounters().gpibDescriptors, 0u);
    applyLabFaults("");
    EXPECT_EQ(gpibSourcemeterRead(), 0.0f);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("ibwrt Error\n"), std::string::npos); // the next write fails, too
    EXPECT_EQ(labInstrumentCommands(labSourcemeter), Commands{":READ?"});
    ASSERT_TRUE(gpibSourcemeterOpen(18));
    EXPECT_NEAR(static_cast<double>(gpibSourcemeterRead()), labPhotoCurrent(0), 2e-10);
}

TEST_F(InstrumentsTest, FailedConnectKeepsTheLinkBeforeIt) {
    testing::internal::CaptureStdout();
    for (const char* call : {"ibdev", "ibclr", "ibwrt", "ibwrt 2"}) {
        instrumentLink.ammeterKind = kindGpibSourcemeter;
        instrumentLink.gpibAddress = 24;
        connectInstrumentAtStart();
        applyBias(0.5, 1e-4);
        EXPECT_EQ(labBiasVolts(), 0.5);
        applyLabFaults("gpib error "s + call);
        answer("No MultiMeter devices found", BoxAnswer::Ok);
        instrumentLink.gpibAddress = 18;
        connectInstrument(kindGpibMultimeter);
        applyLabFaults("");
        disconnectInstrument(); // as at exit
        EXPECT_FALSE(labOutputOn()) << call;
        EXPECT_EQ(labCounters().gpibDescriptors, 0u) << call;
    }
    testing::internal::GetCapturedStdout();
}

// How long the program waits for an instrument that has hung up: 10 s on the bus, 5 s over VISA.
TEST_F(InstrumentsTest, StuckInstrumentsAreGivenUp) {
    const auto waited = [](auto call) {
        const double start = testTimeMs();
        EXPECT_EQ(call(), 0.0f);
        return testTimeMs() - start;
    };
    testing::internal::CaptureStdout();
    ASSERT_TRUE(gpibSourcemeterOpen(24));
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    applyLabFaults("instrument stuck");
    EXPECT_EQ(waited(gpibSourcemeterRead), 10010); // and the pause behind a command
    EXPECT_EQ(waited(usbSourcemeterRead), 5000);
    applyLabFaults("k2450 absent");
    InstrumentLink& link = instrumentLink;
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    applyLabFaults("instrument silent");
    EXPECT_EQ(waited([&] { return scopeRead(link.scopeInstrument); }), 5000);
    testing::internal::GetCapturedStdout();
}

TEST_F(InstrumentsTest, SourcemeterIsSetUpLineByLine) {
    setLabGpibAddress(labSourcemeter, 18);
    ASSERT_TRUE(gpibSourcemeterOpen(18));
    const double start = testTimeMs();
    gpibSourcemeterSetUp(0.5f, 0.0001f);
    EXPECT_GE(testTimeMs() - start, 170); // 10 ms behind each line, then 100 ms
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

TEST_F(InstrumentsTest, GpibWithoutALibrary) {
    libraries.absent = {"ni4882.dll"};
    testing::internal::CaptureStdout();
    EXPECT_FALSE(gpibMultimeterOpen(18));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ibdev Error\nIbsta() = 0x8000  < ERR >\nIberr() = 0 EDVR <Driver error>\n"
              "Ibcnt() = 0\n\n");
}

uint32_t attributeSet;
uint64_t valueSet;

TEST_F(InstrumentsTest, VisaByOrdinalsAloneSetsTheStandardsTimeOut) {
    libraries.namesMissing = {"viOpenDefaultRM", "viFindRsrc",   "viFindNext", "viOpen", "viClose",
                              "viSetAttribute",  "viStatusDesc", "viRead",     "viWrite"};
    replaceFunction(
        "viSetAttribute", +[](uint32_t, uint32_t attribute, uint64_t value) {
            attributeSet = attribute;
            valueSet = value;
            return 0;
        });
    InstrumentLink& link = instrumentLink;
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    EXPECT_EQ(attributeSet, 0x3FFF001Au);
    EXPECT_EQ(valueSet, 5000u);
    EXPECT_NEAR(static_cast<double>(scopeRead(link.scopeInstrument)), labPhotoVoltage(), 0.012);
    scopeClose(link.visaResourceManager);
    link.visaResourceManager = 0;
    EXPECT_EQ(labCounters().visaSessions, 0u);
}

TEST_F(InstrumentsTest, OscilloscopeIsFoundSetAndRead) {
    applyLabFaults("k2450 absent\nscope count 2");
    InstrumentLink& link = instrumentLink;
    ASSERT_EQ(scopeOpen(&link.visaResourceManager, &link.scopeInstrument), 1);
    EXPECT_EQ(labInstrumentCommands(labScope), Commands{"*idn?"});
    EXPECT_EQ(labInstrumentCommands(labSecondScope), // the last one found is used
              (Commands{"*idn?", "MEASUREMENT:IMMED:TYPE MEAN"}));
    EXPECT_NEAR(static_cast<double>(scopeRead(link.scopeInstrument)), labPhotoVoltage(), 0.012);
    EXPECT_EQ(labInstrumentCommands(labSecondScope).back(), ":MEASUREMENT:IMMED:VALUE?");

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

TEST_F(InstrumentsTest, OscilloscopeThatIsNotThereLeavesNothingOpen) {
    const std::pair<const char*, const char*> faults[] = {
        {"visa absent", "Unknown system error (miscellaneous error)."},
        {"visa empty", "The given session or object reference is invalid."},
        {"scope absent\nk2450 absent",
         "Insufficient location information or the device or resource "
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
        const double amperes = static_cast<double>(paRead(mode));
        EXPECT_EQ(textIn(Field::Information).substr(0, 3), "NAI");
        EXPECT_NEAR(amperes, labDarkCurrent(-0.25) + labPhotoCurrent(-0.25), 1e-9);
        paClose(mode);
        const Commands& all = labInstrumentCommands(labAnalyzer);
        EXPECT_EQ(Commands(all.begin() + static_cast<long>(before), all.end()),
                  (Commands{"US", "IT1 BC DR1", "DV1, 1, -0.250000, 0.000100", "TI1", "DV1;DV2"}));
        EXPECT_FALSE(labOutputOn());
        EXPECT_EQ(labCounters().networkLinks + labCounters().gpibDescriptors, 0u);
    }
    const size_t before = labInstrumentCommands(labAnalyzer).size();
    EXPECT_EQ(paOpen(analyzerNetwork, 18, 10, 0, 0, 1, 1225), 0); // nobody there: no "US"
    EXPECT_EQ(labInstrumentCommands(labAnalyzer).size(), before);
    EXPECT_EQ(instrumentLink.ipAddress[0], 10);
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
    testing::internal::CaptureStdout();
    ASSERT_TRUE(usbSourcemeterOpen(0.0));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Instrument Manufacturer: KEITHLEY INSTRUMENTS\n");
    EXPECT_EQ(labInstrumentCommands(labUsbSourcemeter).front(), "*CLS\n");
    EXPECT_FALSE(labOutputOn());
    usbSourcemeterSetUp(0.5f, 2e-8f);
    EXPECT_TRUE(labOutputOn());
    EXPECT_NEAR(labCurrentLimit(), 2e-8, 1e-12);
    EXPECT_NEAR(static_cast<double>(usbSourcemeterRead()), 2e-8, 1e-10); // clipped at its limit
    usbSourcemeterSetUp(0.5f, 0.0001f);
    EXPECT_NEAR(static_cast<double>(usbSourcemeterRead()),
                labDarkCurrent(0.5) + labPhotoCurrent(0.5), 1e-9);
    const Commands& commands = labInstrumentCommands(labUsbSourcemeter);
    EXPECT_EQ(Commands(commands.end() - 2, commands.end()),
              (Commands{"*WAI\n", ":READ? \"defbuffer1\"\n"}));
    EXPECT_EQ(labInstrumentErrors(labUsbSourcemeter), Commands{});
    const uint64_t sessions = labCounters().visaSessions; // those of the one that is open
    for (const char* fault : {"k2450 refused", "k2450 silent", "k2450 stuck", "k2450 absent"}) {
        applyLabFaults(fault);
        EXPECT_FALSE(usbSourcemeterOpen(0.0)) << fault;
        EXPECT_EQ(labCounters().visaSessions, sessions) << fault;
    }
}

struct Notice {
    const char* text;
    const char* caption;
};

const struct Connect {
    int kind;
    const char* absent; // the fault that takes the instrument away
    Notice success, failure, startFailure;
    bool keptAtStart;
} connects[] = {
    {2,
     "gpib absent",
     {"MultiMeter device connected", "GPIB Communication"},
     {"No MultiMeter devices found at GPIB", "GPIB Error"},
     {"No MultiMeter devices found at GPIB", "GPIB Error"},
     true},
    {3,
     "gpib absent",
     {"SourceMeter device connected", "GPIB Communication"},
     {"No GPIB connected", "GPIB Error"},
     {"No SourceMeter devices found at GPIB", "GPIB Error"},
     true},
    {4,
     "k2450 absent",
     {"SourceMeter device connected", "USB Communication"},
     {"No SourceMeter devices found via USB", "USB Error"},
     {"No SourceMeter devices via USB", "USB Error"},
     false},
    {5,
     "visa absent",
     {"Tektronics devices connected via USB", "Oscilloscope Connected"},
     {"No Tektronics devices via USB", "Oscilloscope Error"},
     {"No Tektronics devices via USB", "Oscilloscope Error"},
     false},
    {6,
     "analyzer absent",
     {"Parameter Analyzer 4200 connected via Ethernet", "Parameter Analyzer Connected"},
     {"No Parameter Analyzer 4200 found", "Parameter Analyzer Error"},
     {"No Tektronics devices via USB", "Oscilloscope Error"},
     false},
    {7,
     "gpib absent\nanalyzer absent",
     {"Parameter Analyzer 4200 connected via GPIB", "Parameter Analyzer Connected"},
     {"No Parameter Analyzer 4200 found", "Parameter Analyzer Error"},
     {"No Tektronics devices via USB", "Oscilloscope Error"},
     false},
};

class ConnectTest : public InstrumentsTest {
protected:
    void SetUp() override {
        InstrumentsTest::SetUp();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        InstrumentsTest::TearDown();
    }

    // Calls `connect`, which shows one box or, without a notice, none, and ends with a kind.
    static void expectBox(const Notice* notice, int32_t kindAfter,
                          const std::function<void()>& connect) {
        shownBoxes.clear();
        if (notice) answer(notice->text, BoxAnswer::Ok);
        connect();
        EXPECT_EQ(instrumentLink.ammeterKind, kindAfter);
        ASSERT_EQ(shownBoxes.size(), notice ? 1u : 0u);
        if (!notice) return;
        EXPECT_EQ(shownBoxes[0].text, notice->text);
        EXPECT_EQ(shownBoxes[0].caption, notice->caption);
        EXPECT_EQ(shownBoxes[0].owner, mainWindow); // none at start-up
    }

    // Calls `connect` with every kind's instrument there, and without it in each way.
    static void forEachKind(const std::function<void(const Connect&, bool there)>& connect) {
        for (const Connect& c : connects) {
            SCOPED_TRACE(c.kind);
            instrumentLink.gpibAddress = c.kind == 3 ? 24 : c.kind == 7 ? 17 : 18;
            connect(c, true);
            applyLabFaults(c.absent);
            connect(c, false);
            applyLabFaults("");
            libraries.absent = {"ni4882.dll", "VISA64.dll", "KXCIclient64.dll"};
            connect(c, false);
            libraries = {};
            // A library that lacks one function counts as absent.
            libraries.functionsMissing = {"ibrd", "viRead", "SendKXCICommand_C"};
            connect(c, false);
            libraries = {};
        }
    }
};

TEST_F(ConnectTest, StartUpShowsOnlyWhatFailed) {
    forEachKind([](const Connect& c, bool there) {
        instrumentLink.ammeterKind = c.kind;
        expectBox(there ? nullptr : &c.startFailure, there || c.keptAtStart ? c.kind : kindArduino,
                  connectInstrumentAtStart);
    });
}

TEST_F(ConnectTest, ConnectingTellsHowItWent) {
    openBareWindow();
    ASSERT_NE(mainWindow, nullptr);
    forEachKind([](const Connect& c, bool there) {
        instrumentLink.ammeterKind = kindArduino;
        expectBox(there ? &c.success : &c.failure, there ? c.kind : kindArduino,
                  [&] { connectInstrument(c.kind); });
    });
    instrumentLink.ammeterKind = kindGpibMultimeter;
    const Notice refused{"This equipment is not supported yet", "NI-DAQ Error"};
    expectBox(&refused, kindGpibMultimeter, [] { connectInstrument(kindNiDaq); });
    expectBox(nullptr, kindGpibMultimeter, [] { connectInstrument(-1); }); // nothing selected
    expectBox(nullptr, kindArduino, [] { connectInstrument(kindArduino); });
}

} // namespace
