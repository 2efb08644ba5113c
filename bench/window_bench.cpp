// What the operator waits for in the real windows: a live row, a live-view tick, a map point, and
// what a waiting program costs. With the laboratory's DLLs beside it the map points are measured
// too; `window_bench scan` tells where the time of a whole scan goes, in nine minutes, and
// `window_bench stage` what a point costs with slow calls to its stage. Run it under
// tests/window/run_under_wine.sh --cable, or on Windows.
#include "app/program.h"
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "instruments/ammeter.h"
#include "mapping/map_document.h"
#include "mapping/map_rendering.h"
#include "mapping/raster_scan.h"
#include "mapping/scan_area.h"
#include "mapping/scan_journal.h"
#include "mapping/scan_map.h"
#include "mapping/scan_options.h"
#include "motion/stage.h"
#include "platform/files.h"
#include "platform/win32/handles.h"
#include "platform/win32/scaled_view.h"
#include "screen/screen.h"
#include "session/data_folders.h"
#include "session/process.h"
#include "session/responsive_wait.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

double nowMs() {
    LARGE_INTEGER count, frequency;
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

// Median of single runs, ms.
double medianMs(int runs, const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const double start = nowMs();
        work();
        GdiFlush();
        times.push_back(nowMs() - start);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[static_cast<size_t>(runs / 2)];
}

void setGrid(int columns, int rows, double step) {
    scanArea.scanStep = step;
    computeScanArea(scanArea);
    const double px = static_cast<double>(scanArea.stepPx);
    scanArea.rectX1 = 616;
    scanArea.rectY1 = 514;
    scanArea.rectX2 = 616 + static_cast<int>(px * (columns - 1) + 1);
    scanArea.rectY2 = 514 - static_cast<int>(rows > 1 ? px * (rows - 1) + 1 : 0);
    computeScanArea(scanArea);
    allocateMaps();
}

// The same squares as drawMapRow, pixel by pixel.
void drawRowBySetPixel(const Map& map, int row) {
    HWND window = native(windows.map);
    HDC dc = GetDC(window);
    float lowest = map[0][static_cast<size_t>(row)], highest = lowest;
    for (const auto& column : map) {
        lowest = std::min(lowest, column[static_cast<size_t>(row)]);
        highest = std::max(highest, column[static_cast<size_t>(row)]);
    }
    const int cell = scanArea.cellPx;
    for (size_t column = 0; column < map.size(); ++column) {
        const float value = map[column][static_cast<size_t>(row)];
        const auto level = static_cast<int>((value - lowest) * 1023.0f / (highest - lowest));
        for (int i = 0; i < cell; ++i)
            for (int j = 0; j < cell; ++j)
                SetPixel(dc, static_cast<int>(column) * cell + i, row * cell + j, colourOf(level));
    }
    ReleaseDC(window, dc);
}

std::vector<COLORREF> pixelsOfRow(int row) {
    HDC dc = GetDC(native(windows.map));
    const int cell = scanArea.cellPx;
    std::vector<COLORREF> pixels;
    for (int y = row * cell; y < (row + 1) * cell; ++y)
        for (int x = 0; x < scanArea.cols * cell; ++x) pixels.push_back(GetPixel(dc, x, y));
    ReleaseDC(native(windows.map), dc);
    return pixels;
}

bool benchRows() {
    setGrid(40, 30, 1.0);
    Map& map = scanMap.maps[planePhotocurrent];
    for (size_t column = 0; column < map.size(); ++column)
        for (size_t row = 0; row < map[column].size(); ++row)
            map[column][row] = static_cast<float>((column * 37 + row * 91) % 101);
    showMapWindow(channelPhotocurrent);
    paintPending(windows.map);

    drawMapRow(windows.map, map, 3);
    const std::vector<COLORREF> atOnce = pixelsOfRow(3);
    drawMapRow(windows.map, map, 4); // something else in between
    drawRowBySetPixel(map, 3);
    const bool same = atOnce == pixelsOfRow(3);

    const double row = medianMs(201, [&] { drawMapRow(windows.map, map, 5); });
    const double bySetPixel = medianMs(21, [&] { drawRowBySetPixel(map, 5); });
    std::printf("row of %d cells of %d px: drawMapRow %.3f ms, SetPixel %.3f ms, ratio %.0f "
                "(wanted: at least 30), same pixels: %s\n",
                scanArea.cols, scanArea.cellPx, row, bySetPixel, bySetPixel / row,
                same ? "yes" : "NO");
    return same;
}

void benchTick() {
    const double convert = medianMs(
        101, [] { convertBayerFrame(cameraImage, cameraState.frame, cameraImage.pixels.get()); });
    const double draw = medianMs(101, [] { drawCameraFrame(cameraImage.pixels.get(), 0); });
    std::printf("live-view tick: convert %.2f ms + draw %.2f ms = %.1f %% of 100 ms (wanted: under "
                "5 %%)\n",
                convert, draw, convert + draw);
    // "Fit to screen": on 1366 x 768, and at 150 %.
    for (const Extent shown : {Extent{850, 709}, Extent{1848, 1542}}) {
        HWND window = native(windows.main);
        scaleDrawing(window, {imageWidth, imageHeight}, shown);
        const double scaled = medianMs(101, [] {
            drawCameraFrame(cameraImage.pixels.get(), 0);
            paintPending(windows.main);
        });
        std::printf("live-view tick, shown in %d x %d pixels: draw %.2f ms\n", shown.width,
                    shown.height, scaled);
        drawUnscaled(window);
    }
}

double processCpuMs() {
    FILETIME created, ended, kernel, user;
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto ms = [](FILETIME time) {
        return (static_cast<double>(time.dwHighDateTime) * 4294967296.0 + time.dwLowDateTime) / 1e4;
    };
    return ms(kernel) + ms(user);
}

void benchWaiting() {
    session.processRunning = 1;
    const double cpu = processCpuMs(), start = nowMs();
    for (int i = 0; i < 60; ++i) waitResponsive(50);
    const double elapsed = nowMs() - start;
    std::printf("waiting: 60 waits of 50 ms took %.0f ms and %.2f %% of a core (wanted: under 3 "
                "%%)\n",
                elapsed, (processCpuMs() - cpu) / elapsed * 100.0);
    session.processRunning = 0;
}

double mappingMs(int columns, int rows = 1) {
    setGrid(columns, rows, 2.0);
    std::atomic<bool> done{false};
    std::thread operatorSaysYes([&] {
        while (!done) {
            if (HWND box = FindWindowA("#32770", "Scan area checking"))
                PostMessageA(box, WM_COMMAND, IDYES, 0);
            Sleep(10);
        }
    });
    instrumentLink.biasVoltage += 0.1f; // no source hears it, and no two maps get the same name
    session.processRunning = 1;
    session.stopRequested = 0;
    const double start = nowMs();
    runMapping();
    const double elapsed = nowMs() - start;
    session.processRunning = 0;
    done = true;
    operatorSaysYes.join();
    return elapsed;
}

struct Meter {
    const char* name;
    int32_t kind;
    int32_t readings; // a point
};

// Both ways of looking for the arrival, with an instrument that answers at once (there is none
// behind this kind), one of 20 ms and one of 200 ms.
// Returns the fastest point that was measured, ms.
double benchPoints() {
    double fastest = 1e9;
    constexpr Meter meters[] = {
        {"none", kindNiDaq, 1}, {"board", kindArduino, 1}, {"board, 10 readings", kindArduino, 10}};
    constexpr double travel = 2.0 / (motorSpeed * umPerFullStep) * 1000.0;
    scanSettings.confocalEnabled = 0;
    for (const Meter& meter : meters) {
        instrumentLink.ammeterKind = meter.kind;
        const double reading = medianMs(51, [] { readPhotocurrent(); }) * meter.readings;
        double points[2] = {};
        for (const bool early : {false, true}) {
            scanSettings.options = {.looksEarly = early, .readingsPerPoint = meter.readings};
            const double few = mappingMs(10);
            const double many = mappingMs(210);
            // The way home is as much longer as the row is.
            points[early] = (many - few) / 200.0 - travel;
            fastest = std::min(fastest, points[early]);
            const double demanded = (early ? 12.0 : 62.0) + travel + reading;
            std::printf("map point, %s, %s: %.2f ms; demanded: %d ms of waits + %.1f ms travel of "
                        "2 um + %.2f ms reading = %.2f ms; ratio %.3f (wanted: at most %.2f)\n",
                        meter.name, early ? "early looks" : "every 50 ms", points[early],
                        early ? 12 : 62, travel, reading, demanded, points[early] / demanded,
                        early ? 1.10 : 1.05);
        }
        std::printf("map point, %s: early looks give %.2f times the points a minute\n", meter.name,
                    points[false] / points[true]);
    }
    scanSettings.options = {};
    instrumentLink.ammeterKind = kindArduino;
    return fastest;
}

// What each call to a stage controller takes from now on: the laboratory reads it beside its DLLs.
void setCallMs(int ms) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring faults = path;
    faults.resize(faults.find_last_of(L'\\') + 1);
    faults += L"virtual_lab.txt";
    if (const File file = openFile(faults, L"wb")) std::fprintf(file.get(), "stage calls %d\n", ms);
    Sleep(200); // it looks ten times a second
    readPosition(stageX);
}

// A point of an instrument that answers at once, through controllers on USB and on the network.
void benchStageCalls() {
    scanSettings.confocalEnabled = 0;
    instrumentLink.ammeterKind = kindNiDaq;
    for (const int callMs : {0, 5}) {
        setCallMs(callMs);
        const double call = medianMs(51, [] { readRestingPosition(stageY); });
        for (const bool early : {false, true}) {
            scanSettings.options = {.looksEarly = early};
            const double few = mappingMs(10);
            const double many = mappingMs(210);
            std::printf("map point, %s, %.1f ms a call to the stage: %.2f ms\n",
                        early ? "early looks" : "every 50 ms", call, (many - few) / 200.0);
        }
    }
    setCallMs(0);
    scanSettings.options = {};
    instrumentLink.ammeterKind = kindArduino;
}

// A point's line, and its share of the row's way to the disk.
void benchJournal(double pointMs) {
    constexpr int columns = 40, rows = 30;
    setGrid(columns, rows, 1.0);
    scanMap.conditions = conditionsOf(presentPlan());
    ensureSessionFolder(dataFolders);
    beginScanJournal();
    std::vector<double> flushes;
    const double start = nowMs();
    for (size_t row = 0; row < rows; ++row) {
        for (size_t column = 0; column < columns; ++column) journalPoint(column, row);
        const double before = nowMs();
        flushJournal();
        flushes.push_back(nowMs() - before);
    }
    const double each = (nowMs() - start) / (columns * rows);
    std::nth_element(flushes.begin(), flushes.begin() + rows / 2, flushes.end());
    std::printf("journal: %.4f ms a point in rows of %d, a flush %.3f ms; %.2f %% of the fastest "
                "map point (wanted: under 1 %%)%s\n",
                each, columns, flushes[rows / 2], each / pointMs * 100.0,
                journalIsBroken() ? " BROKEN" : "");
    removeJournal();
}

// A large map on the screen and in its text file, beside a plain copy of as many pixels and a plain
// write of the same bytes.
void benchLargeMap() {
    constexpr int side = 1000;
    scanArea.cols = scanArea.rows = side;
    scanArea.totalPoints = side * side;
    allocateMaps();
    Map& map = scanMap.maps[planePhotocurrent];
    for (size_t column = 0; column < side; ++column)
        for (size_t row = 0; row < side; ++row)
            map[column][row] = static_cast<float>((column * 37 + row * 91) % 1013) / 1013.0f;
    showMapWindow(channelPhotocurrent);
    paintPending(windows.map);
    const double draw = medianMs(11, [] { drawMap(windows.map, channelPhotocurrent); });
    const std::vector<uint32_t> pixels(size_t{side} * side, 0x808080);
    const double copy = medianMs(11, [&] {
        const WindowContext view(windows.map);
        putPixels(view.context, 0, 0, side, side, pixels.data());
    });
    ensureSessionFolder(dataFolders);
    const std::wstring path = dataFolders.sessionFolder + L"\\large.txt";
    const double save = medianMs(5, [&] { writeMapFile(path, map); });
    const std::string text = contentOfFile(path).value_or("");
    const double plain = medianMs(5, [&] {
        const File file = openFile(path, L"wb");
        if (file) std::fwrite(text.data(), 1, text.size(), file.get());
    });
    std::printf("map of %d x %d points: drawn in %.1f ms (wanted: at most 50), %.1f times a plain "
                "copy; text of %.1f MB saved in %.0f ms (wanted: at most 500), %.1f times writing "
                "the same bytes\n",
                side, side, draw, draw / copy, static_cast<double>(text.size()) / 1e6, save,
                save / plain);
    removeFile(path);
}

// Where the time of a whole scan goes: its parts, measured one by one and counted, as shares of the
// scan that then runs.
void benchScan(bool confocal) {
    constexpr int columns = 60, rows = 40, points = columns * rows;
    scanSettings.options = {};
    scanSettings.confocalEnabled = confocal ? 1 : 0;
    const double whole = mappingMs(columns, rows);
    const Map& map = scanMap.maps[planePhotocurrent];
    const double travel = 2.0 / (motorSpeed * umPerFullStep) * 1000.0;
    const double reading = medianMs(51, [] { readPhotocurrent(); });
    const double frame = medianMs(51, [] {
        grabFrames(cameraState, 1);
        showSpotColour(sampleSpotColour(cameraState.laserOffset, cameraState.cameraAperture));
    });
    const double rowDrawn = medianMs(51, [&] {
        drawMapRow(windows.map, map, 5);
        if (scanSettings.confocalEnabled) drawConfocalRow(windows.confocal, 5);
    });
    const double saving = medianMs(1, [&] {
        const std::wstring path = dataFolders.sessionFolder + L"\\again.txt";
        for (int plane = 0; plane < (scanSettings.confocalEnabled ? 4 : 1); ++plane)
            writeMapFile(path, map);
        saveMapDocument(scanMap, {});
        saveMapImage(windows.map, channelPhotocurrent, "KST");
        for (int image = 0; scanSettings.confocalEnabled && image < 4; ++image)
            saveMapImage(windows.confocal, channelConfocal, "CONFOCAL");
        removeFile(path);
    });
    beginScanJournal();
    for (size_t column = 0; column < columns; ++column) journalPoint(column, 0);
    const double flushing = medianMs(11, [] {
        for (size_t column = 0; column < columns; ++column) journalPoint(column, 0);
        flushJournal();
    });
    removeJournal();
    std::printf("scan of %d x %d points, confocal %s: %.1f s\n", columns, rows,
                confocal ? "on" : "off", whole / 1000.0);
    double told = 0;
    const auto tell = [&](const char* part, double ms) {
        told += ms;
        std::printf("  %-40s %8.2f s  %5.2f %%\n", part, ms / 1000.0, ms / whole * 100.0);
    };
    tell("travel of 2 um", points * travel);
    tell("waits (62 ms a point)", points * 62.0);
    tell("readings", (points + rows) * reading);
    if (confocal) tell("frames and their colours", points * frame);
    tell("drawing rows", rows * rowDrawn);
    tell("journal", rows * flushing);
    tell("saving files and images", saving);
    tell("rest: ways back, swing, question, polls", whole - told);
}

} // namespace

int main(int argc, char** argv) {
    if (!startUp(SW_SHOW)) return 1;
    if (argc > 1 && std::string(argv[1]) == "scan") {
        benchLargeMap();
        for (const bool confocal : {false, true}) benchScan(confocal);
        std::fflush(stdout);
        destroyMainWindow();
        shutDown();
        return 0;
    }
    if (argc > 1 && std::string(argv[1]) == "stage") {
        benchStageCalls();
        std::fflush(stdout);
        destroyMainWindow();
        shutDown();
        return 0;
    }
    const bool same = benchRows();
    benchLargeMap();
    benchTick();
    benchWaiting();
    if (stageX.axisNumber != 0) benchJournal(benchPoints());
    std::fflush(stdout);
    destroyMainWindow();
    shutDown();
    return same ? 0 : 1;
}
