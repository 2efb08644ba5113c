// Keeps the maps and writes them as text.
#include "mapping/scan_map.h"

#include "camera/camera.h"
#include "instruments/ammeter.h"
#include "instruments/laser_link.h"
#include "instruments/lights.h"
#include "mapping/scan_area.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/message_box.h"
#include "platform/text_format.h"
#include "platform/widen.h"
#include "screen/screen.h"
#include "session/data_folders.h"

ScanMap scanMap;

void allocateMaps() {
    const auto columns = static_cast<size_t>(scanArea.cols);
    const auto rows = static_cast<size_t>(scanArea.rows);
    for (Map& map : scanMap.maps) map.assign(columns, std::vector<float>(rows, 0.0f));
    scanMap.marks.assign(columns, std::vector<PointMark>(rows, PointMark::NotMeasured));
    scanMap.deviation.clear();
    scanMap.conditions.reset();
}

ScanConditions presentConditions() {
    ScanConditions now;
    now.started = localTime();
    now.cols = scanArea.cols;
    now.rows = scanArea.rows;
    now.stepUm = scanArea.scanStep;
    now.laserLevel = laserLevel;
    now.biasVoltage = instrumentLink.biasVoltage;
    now.currentLimit = instrumentLink.currentLimit;
    now.ammeterKind = instrumentLink.ammeterKind;
    now.unit = selectedInstrument().unit->name;
    now.confocal = confocalEnabled != 0;
    now.homeXUm = stageX.positionUm;
    now.homeYUm = stageY.positionUm;
    now.homeZUm = stageZ.positionUm;
    now.offsetXUm = scanArea.offsetXUm;
    now.offsetYUm = scanArea.offsetYUm;
    now.gain = cameraState.gain;
    now.exposureUs = cameraState.exposureUs;
    now.aperturePx = cameraAperture;
    now.laserSpot = laserOffset;
    now.options = scanOptions;
    return now;
}

ScanConditions mapConditions() {
    return scanMap.conditions.value_or(presentConditions());
}

std::wstring makeMapFileName(const char* prefix) {
    const std::wstring folder = dataFolders.sessionFolder + L"\\";
    const ScanConditions scan = mapConditions();
    // The numbered form has a colon behind "Step" where the plain form has none.
    const auto name = [&](const std::string& number, const char* colon) {
        return widened(formatted("%s%s(%dX%d)Step%s%.1fum LaserIntensity%.1f Bias%.1fV.txt", prefix,
                                 number.c_str(), scan.cols, scan.rows, colon, scan.stepUm,
                                 scan.laserLevel * laserScaleFactor,
                                 static_cast<double>(scan.biasVoltage)));
    };
    std::wstring path = folder + name("", "");
    for (int number = 0; fileExists(path); ++number)
        path = folder + name(formatted("(%d)", number), ":");
    return path;
}

namespace {

void reportFailure() {
    showMessageBox(mainWindow, "File saving error. New folder will be made.", "Image save Process",
                   BoxButtons::Ok);
}

bool writeRows(FILE* file, const Map& map) {
    const size_t rows = map.empty() ? 0 : map.front().size();
    for (size_t row = 0; row < rows; ++row) {
        for (const std::vector<float>& column : map)
            if (std::fprintf(file, "%f,", static_cast<double>(column[row])) < 0) return false;
        if (std::fprintf(file, "\n") < 0) return false;
    }
    return std::fflush(file) == 0;
}

// A failure lets the next save make a new folder.
bool writeMap(const std::wstring& path, const Map& map) {
    File file = openFile(path, L"w");
    if (file && writeRows(file.get(), map)) return true;
    dataFolders.sessionFolderMade = 0;
    return false;
}

// A map that finds no place in the session folder goes into the new one. There is none within the
// minute that names the folder: then the map stays in memory for the next save.
bool saveWith(bool (*write)(const std::wstring& path, const Map& map)) {
    constexpr const char* prefixes[] = {"Kestrel", "ConfocalR", "ConfocalG", "ConfocalB"};
    ensureSessionFolder(dataFolders);
    const size_t planes = mapConditions().confocal ? 4 : 1;
    bool all = true;
    for (size_t plane = 0; plane < planes; ++plane) {
        if (write(makeMapFileName(prefixes[plane]), scanMap.maps[plane])) continue;
        ensureSessionFolder(dataFolders);
        all &= writeMap(makeMapFileName(prefixes[plane]), scanMap.maps[plane]);
    }
    scanMap.saveCount += 1;
    return all;
}

} // namespace

bool writeMapFile(const std::wstring& path, const Map& map) {
    const bool written = writeMap(path, map);
    if (!written) reportFailure();
    return written;
}

void saveMapFiles() {
    saveWith(writeMapFile);
}

bool saveMapFilesQuietly() {
    return saveWith(writeMap);
}
