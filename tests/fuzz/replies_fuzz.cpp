// Fuzzes everything that reads text from outside: instruments' replies, the settings line, the
// board's replies, the analyzer's replies. The first byte chooses, the rest is the text.
#include "app/settings_line.h"
#include "instruments/ammeter.h"
#include "instruments/analyzer.h"
#include "instruments/kxci.h"
#include "instruments/laser_link.h"
#include "instruments/number_extraction.h"
#include "mapping/scan_area.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string text; // of the present input

void require(bool condition) {
    if (!condition) std::abort();
}

// The one specified end of the program: a number of 100 characters or more.
bool wouldAbort(ReplyKind kind) {
    const size_t length =
        kind == ReplyKind::Analyzer ? std::min<size_t>(text.size(), 100) : text.size();
    size_t kept = 0;
    bool digitSeen = false;
    for (size_t i = 0; i < length && text[i] != '\0' && text[i] != '\n'; ++i) {
        if (text[i] == '\v' && kind == ReplyKind::Sourcemeter) break;
        digitSeen = digitSeen || (text[i] >= '0' && text[i] <= '9');
        if (std::strchr("0123456789+-.", text[i]) || (digitSeen && text[i] == 'E')) ++kept;
    }
    return kept >= 100;
}

void extract(ReplyKind kind) {
    if (!wouldAbort(kind)) extractNumber(text.data(), text.size(), kind);
}

void readSettings() {
    SessionSettings settings = currentSettings();
    parseSettingsLine(text.c_str(), settings);
    applySettings(settings);
    scanArea.rectX2 = 1232;
    scanArea.rectY2 = 1028;
    computeScanArea(scanArea);
    require(scanArea.scanStep >= scanStepLowest && scanArea.scanStep <= scanStepHighest);
    require(scanArea.cols >= 1 && scanArea.cols <= 1802 && scanArea.rows >= 1);
    require(std::isfinite(scanArea.offsetXUm) && std::isfinite(scanArea.laserLevel));
    const std::string line = formatSettingsLine(currentSettings());
    SessionSettings again = currentSettings();
    again.confocalEnabled = ~again.confocalEnabled;
    parseSettingsLine(line.c_str(), again);
    require(again.confocalEnabled == confocalEnabled); // what was written is read whole
    setLaserLevel(1); // whatever level was read, the command stays a command
    setLaserLevel(0);
}

void readBoard() {
    serial.replies.assign(1, text);
    require(std::isfinite(laserAnalogRead(laserLink, 0, 1)));
    for (int channel = 0; channel < 3; ++channel) {
        serial.replies.assign(1, text);
        require(std::isfinite(laserChannelValue(laserLink, channel)));
    }
}

void answerAnalyzer(const char*, char* reply, int*) {
    std::memcpy(reply, text.c_str(), text.size() + 1);
}

void readAnalyzer() {
    paOpen(analyzerNetwork, 18, 192, 168, 0, 10, 1225);
    text.resize(std::min<size_t>(text.size(), 4000));
    paRead(analyzerNetwork);
}

void connectDoubles() {
    resetScript();
    resetClock();
    makeTempDesktop();
    resetProgram();
    replaceFunction(
        "OpenKXCIConnection_C", +[](const char*, int, int* status) { *status = kxciConnected; });
    replaceFunction("SendKXCICommand_C", answerAnalyzer);
    serial.scripted = true;
    openLaserLink(laserLink, nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool connected = (connectDoubles(), true);
    (void)connected;
    if (size == 0) return 0;
    resetClock();
    serial.writes.clear(); // the doubles remember everything
    text.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 6) {
    case 0:
        extract(ReplyKind::Multimeter);
        break;
    case 1:
        extract(ReplyKind::Sourcemeter);
        break;
    case 2:
        extract(ReplyKind::Analyzer);
        break;
    case 3:
        readSettings();
        break;
    case 4:
        readBoard();
        break;
    default:
        readAnalyzer();
    }
    return 0;
}
