// Talks to the instruments on the GPIB bus.
#include "instruments/gpib.h"

#include "instruments/ammeter.h"
#include "instruments/ni488.h"
#include "instruments/number_extraction.h"
#include "instruments/vendor_library.h"
#include "platform/clock.h"
#include "platform/text_format.h"
#include "session/device_report.h"
#include "session/forced_end.h"
#include "session/refusals.h"
#include "session/set_up.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string_view>

Ni488 loadNi488() {
    Ni488 found;
    constexpr const char* name = "GPIB library";
    LibraryHandle library = loadVendorLibrary(name, "ni4882.dll");
    if (!library) return found;
    // Status and calls belong together: a library that lacks one of them is no driver.
    const bool whole = bindFunction(found.ibdev, library, "ibdev") &&
                       bindFunction(found.ibclr, library, "ibclr") &&
                       bindFunction(found.ibwrt, library, "ibwrt") &&
                       bindFunction(found.ibrd, library, "ibrd") &&
                       bindFunction(found.ibonl, library, "ibonl") &&
                       bindFunction(found.ThreadIbsta, library, "ThreadIbsta") &&
                       bindFunction(found.ThreadIberr, library, "ThreadIberr") &&
                       bindFunction(found.ThreadIbcnt, library, "ThreadIbcnt");
    return requireFunctions(name, library, whole) ? found : Ni488();
}

namespace {

constexpr const char* deviceName = "GPIB instrument";

struct {
    Ni488 ni488;
    bool sourcemeterAnswered = false; // since it was opened
    float sourcemeterLimit = 0.0f;    // A; as last set up
} bus;

constexpr size_t replyCount = 100;    // bytes asked for in every read
constexpr size_t commandWithZero = 4; // "REN" and "F3X" go out with their terminating zero

struct StatusBit {
    unsigned long bit;
    const char* text;
};

constexpr StatusBit statusBits[] = {
    {0x8000, " ERR"},  {0x4000, " TIMO"}, {0x2000, " END"},  {0x1000, " SRQI"}, {0x0800, " RQS"},
    {0x0100, " CMPL"}, {0x0080, " LOK"},  {0x0040, " REM"},  {0x0020, " CIC"},  {0x0010, " ATN"},
    {0x0008, " TACS"}, {0x0004, " LACS"}, {0x0002, " DTAS"}, {0x0001, " DCAS"},
};

struct ErrorName {
    unsigned long code;
    const char* text;
};

constexpr ErrorName errorNames[] = {
    {0, " EDVR <Driver error>\n"},
    {1, " ECIC <Not Controller-In-Charge>\n"},
    {2, " ENOL <No Listener>\n"},
    {3, " EADR <Address error>\n"},
    {4, " EARG <Invalid argument>\n"},
    {5, " ESAC <Not System Controller>\n"},
    {6, " EABO <Operation aborted>\n"},
    {7, " ENEB <No GPIB board>\n"},
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
    {28, " EPWR <Power error>\n"},
};

// True when the call that has just returned went well; otherwise it is reported under `label`.
bool callSucceeded(const char* label) {
    if (!(bus.ni488.ThreadIbsta() & gpibErrorBit)) return true;
    gpibReportError(label);
    return false;
}

bool writeBytes(const char* command, size_t count) {
    bus.ni488.ibwrt(instrumentLink.gpibDevice, command, count);
    return callSucceeded("ibwrt Error");
}

std::string namesIn(unsigned long status) {
    std::string names;
    for (const StatusBit& entry : statusBits)
        if (status & entry.bit) names += entry.text;
    return names;
}

std::string nameOf(unsigned long code) {
    for (const ErrorName& entry : errorNames)
        if (entry.code == code) return entry.text;
    return {};
}

void printStatusBits(unsigned long status) {
    std::printf("Ibsta() = 0x%lx  <%s >\n", status, namesIn(status).c_str());
}

void printErrorCode(unsigned long code) {
    std::printf("Iberr() = %lu%s", code, nameOf(code).c_str());
}

} // namespace

void gpibReportError(const char* label) {
    std::printf("%s\n", label);
    printStatusBits(bus.ni488.ThreadIbsta());
    printErrorCode(bus.ni488.ThreadIberr());
    std::printf("Ibcnt() = %lu\n", bus.ni488.ThreadIbcnt());
    std::printf("\n");
    noteRefusal(deviceName, label + (": status" + namesIn(bus.ni488.ThreadIbsta())) + ", error" +
                                nameOf(bus.ni488.ThreadIberr()));
    gpibTakeOffline();
}

void gpibTakeOffline() {
    bus.ni488.ibonl(instrumentLink.gpibDevice, 0);
}

namespace {

bool openAndClear(int address) {
    instrumentLink.gpibBoard = setUp.gpibBoard;
    reportSearch(deviceName, formatted("board %d, address %d", instrumentLink.gpibBoard, address));
    forgetRefusal(deviceName);
    bus.ni488 = loadNi488();
    instrumentLink.gpibDevice =
        bus.ni488.ibdev(instrumentLink.gpibBoard, address, 0, gpibTimeout10s, 1, 0);
    if (!callSucceeded("ibdev Error")) return false;
    bus.ni488.ibclr(instrumentLink.gpibDevice);
    if (!callSucceeded("ibclr Error")) return false;
    reportAnswer(deviceName, "cleared");
    return true;
}

// A device that cannot be opened leaves the one before it selected.
bool selectedOrAsBefore(bool opened, int previousDevice) {
    if (!opened) instrumentLink.gpibDevice = previousDevice;
    return opened;
}

} // namespace

bool gpibOpenDevice(int address) {
    const int previous = instrumentLink.gpibDevice;
    return selectedOrAsBefore(openAndClear(address), previous);
}

bool gpibMultimeterOpen(int address) {
    const int previous = instrumentLink.gpibDevice;
    return selectedOrAsBefore(openAndClear(address) && writeBytes("REN", commandWithZero) &&
                                  writeBytes("F3X", commandWithZero),
                              previous);
}

bool gpibSourcemeterOpen(int address) {
    bus.sourcemeterAnswered = false;
    return gpibOpenDevice(address);
}

bool gpibWrite(const char* command) {
    const bool written = writeBytes(command, std::strlen(command));
    sleepMs(10);
    return written;
}

bool gpibRead(char* reply, size_t count) {
    bus.ni488.ibrd(instrumentLink.gpibDevice, reply, count);
    return callSucceeded("ibrd Error");
}

Reading gpibMultimeterRead() {
    char reply[replyCount + 1] = {};
    // Nothing is written before: the meter runs freely and answers with its last value.
    bus.ni488.ibrd(instrumentLink.gpibDevice, reply, replyCount);
    unsigned long count = bus.ni488.ThreadIbcnt();
    const bool read = callSucceeded("ibrd Error");
    if (!read) count = std::min<unsigned long>(count, replyCount); // or an error number
    if (count > replyCount) endProgram("more bytes in a GPIB reply than asked for");
    reply[count] = '\0';
    std::printf("%s\n", reply);
    Reading reading = extractNumber(reply, count, ReplyKind::Multimeter);
    reading.answered = reading.answered && read;
    // "ODCA+9.99999E+09", where a reading within its range begins with an N.
    reading.overloaded = reading.answered && reply[0] == 'O';
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

namespace {

Reading ask(const char* query) {
    const bool asked = gpibWrite(query);
    char reply[replyCount] = {};
    const bool read = gpibRead(reply, replyCount);
    if (read && !bus.sourcemeterAnswered) {
        bus.sourcemeterAnswered = true;
        const size_t length = std::min(std::string_view(reply, replyCount).find('\n'), replyCount);
        std::printf("GPIB sourcemeter: first reading %.*s\n", static_cast<int>(length), reply);
        reportAnswer(deviceName, "first reading " + std::string(reply, length));
        std::fflush(stdout);
    }
    Reading reading = extractNumber(reply, replyCount, ReplyKind::Sourcemeter);
    // A multimeter at its address answers whatever it is told: "NDCV+1.52185E-01".
    const bool isOfMultimeter = std::isalpha(static_cast<unsigned char>(reply[0])) != 0;
    reading.answered = reading.answered && asked && read && !isOfMultimeter;
    if (reading.answered) forgetRefusal(deviceName);
    return reading;
}

} // namespace

Reading gpibSourcemeterRead() {
    Reading reading = ask(":READ?");
    reading.limited = reading.answered && isAtLimit(reading, bus.sourcemeterLimit);
    return reading;
}

bool gpibSourcemeterIsLimited() {
    return ask(":SOUR:VOLT:ILIM:TRIP?") == 1.0f;
}

namespace {

// What the sourcemeter takes by its reference manual (Keithley 2450, ":SOURce:VOLTage" and
// "ILIMit"): in its 2 V range, which the set-up chooses as the one that holds 1 V, 2.1 V.
constexpr float mostVolts = 2.1f;
constexpr float smallestLimit = 1e-9f, largestLimit = 1.05f; // A

std::string refusalBySourcemeter(float voltage, float limit) {
    if (std::fabs(voltage) > mostVolts)
        return formatted("%g V, more than the 2.1 V of its fixed range",
                         static_cast<double>(voltage));
    if (voltage != 0.0f && !(limit >= smallestLimit && limit <= largestLimit))
        return formatted("a limit of %g A, outside 1 nA to 1.05 A", static_cast<double>(limit));
    return {};
}

} // namespace

SourceAnswer gpibSourcemeterSetUp(float voltage, float limit) {
    bus.sourcemeterLimit = limit;
    const std::string lines[] = {
        ":SOUR:VOLT:RANG 1",
        formatted(":SOUR:VOLT %f", static_cast<double>(voltage)),
        ":SOUR:VOLT:ILIM " + limitText(static_cast<double>(limit)),
        ":SENSe:FUNCtion \"Current\"",
        ":SENSe:Curr:RANG 1E-6",
        ":COUN 1",
        ":OUTP ON",
    };
    bool heard = true;
    for (const std::string& line : lines) heard &= gpibWrite(line.c_str());
    sleepMs(100);
    return {heard, refusalBySourcemeter(voltage, limit)};
}

void gpibSourcemeterOff() {
    gpibWrite(":OUTP OFF");
    bus.ni488.ibonl(instrumentLink.gpibDevice, 0);
    callSucceeded("ibonl Error");
}
