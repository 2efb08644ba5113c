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

// The values as the records that own them hold them now, and back. A step that no run can have
// written (not a number, or outside 0.1..40 um) is brought into the range of the step field, and a
// laser level beyond any drive into 1000 V; the drive itself is limited to the board's 0..5 V.
SessionSettings currentSettings();
void applySettings(const SessionSettings& settings);

std::string formatSettingsLine(const SessionSettings& settings);

// Parses as sscanf does: the first mismatch ends it, and the fields behind keep their values.
void parseSettingsLine(const char* line, SessionSettings& settings);

// Reads the first line of the file into the records; false when the file cannot be opened.
bool readSettingsFile(const std::wstring& path);
void writeSettingsFile(const std::wstring& path);
