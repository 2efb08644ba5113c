// What many scans cost: writes 5000 of 60 x 40 points with their colours, each in a folder of its
// own, or as many as told, and times their list without and with the cache, its order, a filter and
// one map. Ends with 1 when the list with the cache takes more than 2 s.
#include "archive/scan_file.h"
#include "archive/scan_index.h"
#include "mapping/map_document.h"
#include "platform/text_format.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

double secondsOf(auto work) {
    const auto began = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

void writeScans(int count) {
    scanArea.cols = 60;
    scanArea.rows = 40;
    scanArea.scanStep = 2.0;
    scanSettings.confocalEnabled = 1;
    beginMap(conditionsOf(presentPlan()));
    for (auto& column : scanMap.marks) column.assign(40, PointMark::Measured);
    for (int i = 0; i < count; ++i) {
        scanMap.maps[planePhotocurrent][static_cast<size_t>(i % 60)][static_cast<size_t>(i % 40)] =
            1.0f + static_cast<float>(i);
        scanMap.conditions->occasion.sample = formatted("sample %d", i % 40);
        writeDesktopFile(formatted("KST_Data/26%02d%02d_%02d-%02d/Lumascan", 1 + i / 1000 % 12,
                                   1 + i / 40 % 25, i / 60 % 24, i % 60) +
                             std::to_string(i) + ".gwy",
                         mapDocument(scanMap, {}));
    }
}

void list(ScanIndex& index) {
    index.begin();
    while (index.goOn(1000)) {
    }
}

} // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 5000;
    prepareWorld();
    writeScans(count);
    ScanIndex first, again;
    const double without = secondsOf([&] { list(first); });
    const double with = secondsOf([&] { list(again); });
    size_t found = 0;
    const double seeking = secondsOf(
        [&] { found = rowsShown(again.rows(), "sample 7", ScanColumn::Time, true).size(); });
    std::string fault;
    const double map = secondsOf(
        [&] { mapOfFile(dataFolders.dataRoot + L"\\" + again.rows().front().path, fault); });
    std::printf("%u scans: listed in %.2f s, with the cache (%.1f MB) in %.2f s; %u found in %.3f "
                "s; a map read in %.4f s\n",
                static_cast<unsigned>(again.rows().size()), without,
                static_cast<double>(contentOf("KST_Data/Scans.index").size()) / 1e6, with,
                static_cast<unsigned>(found), seeking, map);
    removeTempDesktop();
    return with > 2.0;
}
