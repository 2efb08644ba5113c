// Reads and writes the settings line.
#include "app/settings_line.h"

#include "camera/camera.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "platform/decimal_point.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "session/document.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// A written line is well under 200 characters; what lies behind this cannot belong to one.
constexpr int longestLine = 4096;

constexpr double defaultScanStep = 1.0;
constexpr int32_t largestLaserOffset = 10000; // pixels; a scan starts within 2 mm of the stage
constexpr double largestLaserLevel = 1000.0;  // keeps texts and file names printable

double finiteOr(double fallback, double value, double lowest, double highest) {
    return std::isnan(value) ? fallback : std::clamp(value, lowest, highest);
}

} // namespace

SessionSettings currentSettings() {
    const InstrumentLink& link = instrumentLink;
    return {.scanStep = scanArea.scanStep,
            .laserLevel = laserLink.laserLevel,
            .laserOffsetX = cameraState.laserOffset.x,
            .laserOffsetY = cameraState.laserOffset.y,
            .equipmentKind = link.ammeterKind,
            .gpibAddress = link.gpibAddress,
            .analyzerAddress = {link.ipAddress[0], link.ipAddress[1], link.ipAddress[2],
                                link.ipAddress[3], link.kxciPort},
            .axisOrder = controllers.axisOrder,
            .laserComPort = laserLink.comPort,
            .confocalEnabled = scanSettings.confocalEnabled};
}

void applySettings(const SessionSettings& settings) {
    InstrumentLink& link = instrumentLink;
    scanArea.scanStep =
        finiteOr(defaultScanStep, settings.scanStep, scanStepLowest, scanStepHighest);
    laserLink.laserLevel =
        finiteOr(defaultLaserLevel, settings.laserLevel, -largestLaserLevel, largestLaserLevel);
    const auto offset = [](int32_t pixels) {
        return std::clamp(pixels, -largestLaserOffset, largestLaserOffset);
    };
    cameraState.laserOffset = {offset(settings.laserOffsetX), offset(settings.laserOffsetY)};
    link.ammeterKind = settings.equipmentKind;
    link.gpibAddress = settings.gpibAddress;
    std::copy_n(settings.analyzerAddress, 4, link.ipAddress);
    link.kxciPort = settings.analyzerAddress[4];
    controllers.axisOrder = settings.axisOrder;
    laserLink.comPort = settings.laserComPort;
    scanSettings.confocalEnabled = settings.confocalEnabled;
}

std::string formatSettingsLine(const SessionSettings& s) {
    return formatted("step:%.1lf, laser:%.2lf, laser correct:(%d,%d), Ammeter:%d, GPIB:%d, "
                     "IP:%d,%d,%d,%d,%d, Standa:%d, arduino_LD:%d, %d\n",
                     s.scanStep, s.laserLevel, s.laserOffsetX, s.laserOffsetY, s.equipmentKind,
                     s.gpibAddress, s.analyzerAddress[0], s.analyzerAddress[1],
                     s.analyzerAddress[2], s.analyzerAddress[3], s.analyzerAddress[4], s.axisOrder,
                     s.laserComPort, s.confocalEnabled);
}

void parseSettingsLine(const char* line, SessionSettings& s) {
    keepDecimalPoint();
    // How many fields were there does not matter: those behind a mismatch keep their values.
    (void)std::sscanf(line,
                      "step:%lf, laser:%lf, laser correct:(%d,%d), Ammeter:%d, GPIB:%d, "
                      "IP:%d,%d,%d,%d,%d, Standa:%d, arduino_LD:%d, %d\n",
                      &s.scanStep, &s.laserLevel, &s.laserOffsetX, &s.laserOffsetY,
                      &s.equipmentKind, &s.gpibAddress, &s.analyzerAddress[0],
                      &s.analyzerAddress[1], &s.analyzerAddress[2], &s.analyzerAddress[3],
                      &s.analyzerAddress[4], &s.axisOrder, &s.laserComPort, &s.confocalEnabled);
}

bool readSettingsFile(const std::wstring& path) {
    File file = openFile(path, L"r");
    if (!file) return false;
    char line[longestLine] = "";
    if (std::fgets(line, sizeof line, file.get())) {
        SessionSettings settings = currentSettings();
        parseSettingsLine(line, settings);
        applySettings(settings);
    }
    return true;
}

void writeSettingsFile(const std::wstring& path) {
    if (path.empty()) return;
    writeDocument(path, formatSettingsLine(currentSettings()), L"w"); // the log says a failure
}
