// The one line of Config.txt: everything that is kept between two runs.
#pragma once

#include <cstdint>
#include <string>

struct SessionSettings {
    double scanStep;                    // um
    double laserLevel;                  // V
    int32_t laserOffsetX, laserOffsetY; // picture pixels, y counted from the bottom
    int32_t equipmentKind;              // 0..7
    int32_t gpibAddress;
    int32_t analyzerAddress[5]; // four octets and the TCP port
    int32_t axisOrder;          // 0..5
    int32_t laserComPort;
    int32_t confocalEnabled; // 0 or 1
};

// The values as the records that own them hold them now, and back. What no run can have written is
// brought into range: a step that is not a number or outside 0.1..40 um, a laser spot more than
// 10000 pixels away, a laser level of more than 1000 V (the drive itself ends at the board's 5 V).
SessionSettings currentSettings();
void applySettings(const SessionSettings& settings);

std::string formatSettingsLine(const SessionSettings& settings);

// Parses as sscanf does: the first mismatch ends it, and the fields behind keep their values.
void parseSettingsLine(const char* line, SessionSettings& settings);

// Reads the first line of the file into the records; false when the file cannot be opened.
bool readSettingsFile(const std::wstring& path);
void writeSettingsFile(const std::wstring& path); // nothing without a path
