// What a long journal costs at the next start: writes one of a scan of a million points, or of as
// many million as told, and times its notice and its reading. Ends with 1 when a million points
// take more than 2 s or 200 MB.
#include "app/recovery.h"
#include "mapping/scan_journal.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

// The most that this process has held since the last call.
double peakMb() {
    double kb = 0;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") status >> kb;
    std::ofstream("/proc/self/clear_refs") << 5;
    return kb / 1024;
}

double secondsOf(auto work) {
    const auto began = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

void writeJournal(int millions) {
    ensureSessionFolder(dataFolders);
    scanArea.scanStep = 0.1;
    scanArea.viewScale = 3;
    const double side = std::sqrt(millions * 1e6) * scanArea.scanStep; // um
    const auto pixels = static_cast<int32_t>(side * 1232 / 180 / 3);
    scanArea.rectX1 = scanArea.rectY1 = 100;
    scanArea.rectX2 = scanArea.rectY2 = 100 + pixels;
    computeScanArea(scanArea);
    allocateMaps();
    scanMap.conditions = conditionsOf(presentPlan());
    beginScanJournal();
    const auto columns = static_cast<size_t>(scanArea.cols);
    for (size_t row = static_cast<size_t>(scanArea.rows); row-- > 1;) // the last is still to come
        for (size_t column = 0; column < columns; ++column) {
            scanMap.maps[planePhotocurrent][column][row] =
                1.0f / static_cast<float>(row * columns + column + 3);
            scanMap.marks[column][row] = PointMark::Measured;
            journalPoint(column, row);
        }
    leaveJournal();
}

} // namespace

int main(int argc, char** argv) {
    const int millions = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 1;
    prepareWorld();
    const double writing = secondsOf([&] { writeJournal(millions); });
    scanMap = {};
    peakMb();
    std::string notice;
    const double before = peakMb();
    const double noticing = secondsOf([&] { notice = leftNotice(); });
    const double afterNotice = peakMb() - before;
    std::optional<JournaledScan> scan;
    const double reading = secondsOf([&] { scan = readScanJournal(leftJournals().front()); });
    const double afterReading = peakMb() - before;
    std::printf("%s\n", notice.c_str());
    std::printf("%d points: written in %.2f s, notice in %.4f s and %.1f MB, read in %.2f s and "
                "%.1f MB (its maps are %.1f MB)\n",
                scan->points, writing, noticing, afterNotice, reading, afterReading,
                scan->points * (4.0 * sizeof(float) + 1) / 1e6);
    removeTempDesktop();
    const double perMillion = std::max(millions, 1);
    return noticing + reading > 2 * perMillion || afterReading > 200 * perMillion;
}
