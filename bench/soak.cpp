// Maps for weeks of virtual time in one run of the program, past the 49.7 days after which the low
// 32 bits of the system's tick count begin anew: `soak [days] [ms to wait at each point]`, 60 and
// 10000 unless told. Or lists of maps and curves, with pauses: `soak lists [days]`, 7 unless told.
// Prints what the program held after the first day and at the end, and ends with 1 when it grew,
// when a point was read sooner than its waits allow, or when a list's map is not the sample's.
#include "app/program.h"
#include "instruments/kinds.h"
#include "lists/list_run.h"
#include "mapping/scan_map.h"
#include "motion/axis.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/pause.h"
#include "session/process.h"
#include "tests/doubles/doubles.h"
#include "tests/simulation/saved_map.h"
#include "tests/simulation/whole_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <malloc.h>
#include <set>
#include <string>

namespace {

constexpr double msPerDay = 24.0 * 3600 * 1000;
constexpr int columns = 60; // of the scan, with the rectangle below

struct Held {
    double heapKb = 0; // without what the laboratory and the doubles keep
    long files = 0;    // open
    int contexts = 0, bitmaps = 0;
    size_t journals = 0;
};

double days = 60, pointMs = 10000;
Held afterFirstDay, atEnd;
bool firstDayIsOver = false;
size_t scans = 0, points = 0, readsSeen = 0, tooSoon = 0;
double shortestMs = 1e18;
int unexpected = 0;

long openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void forgetWhatDoublesKeep() {
    for (int field = 0; field <= static_cast<int>(Field::PauseButton); ++field) {
        std::vector<std::string>& history = historyOf(static_cast<Field>(field));
        if (history.empty()) continue;
        std::vector<std::string>{history.back()}.swap(history);
    }
    std::vector<ShownBox>().swap(shownBoxes);
    std::vector<std::string>().swap(serial.writes);
}

// As the allocator counts them: in steps of 16, each with its length before it.
double bytesOf(const std::vector<std::string>& texts) {
    double bytes = static_cast<double>(texts.capacity() * sizeof(std::string));
    for (const std::string& text : texts)
        if (text.capacity() > 15) // not in place
            bytes += static_cast<double>(malloc_usable_size(const_cast<char*>(text.data())) +
                                         sizeof(size_t));
    return bytes;
}

Held held() {
    forgetWhatDoublesKeep();
    Held now;
    const double lab = static_cast<double>(labReads().capacity() * sizeof(LabRead) +
                                           labMeasurements().capacity() * sizeof(LabMeasurement)) +
                       bytesOf(labBoardCommands()) +
                       bytesOf(labInstrumentCommands(labUsbSourcemeter));
    now.heapKb = (static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd) - lab) / 1024;
    now.files = openFiles();
    now.contexts = liveContexts;
    now.bitmaps = liveBitmaps;
    for (const std::string& name : filesOnDesktop())
        now.journals += name.starts_with("KST_Data/Journal/") && name.back() != '/';
    return now;
}

// The wall clock goes with the virtual time.
void setWallClock() {
    std::tm date{};
    date.tm_year = 2026 - 1900;
    date.tm_mon = 2;
    date.tm_mday = 7;
    date.tm_sec = static_cast<int>(testTimeMs() / 1000);
    timegm(&date);
    wallTime = {date.tm_year + 1900, date.tm_mon + 1, date.tm_mday,
                date.tm_hour,        date.tm_min,     date.tm_sec};
}

// A row begins with a reading that no cell keeps; all others come behind the waits of a point.
void lookAtReads() {
    const std::vector<LabRead>& reads = labReads();
    for (size_t i = readsSeen; i < reads.size(); ++i) {
        if ((i - readsSeen) % (columns + 1) == 0) continue;
        const double ms = reads[i].timeMs - reads[i - 1].timeMs;
        shortestMs = std::min(shortestMs, ms);
        tooSoon += ms < pointMs;
    }
    readsSeen = reads.size();
}

void onScanEnd() {
    ++scans;
    for (const auto& column : scanMap.marks)
        points +=
            static_cast<size_t>(std::count(column.begin(), column.end(), PointMark::Measured));
    if (scanMap.marks.size() != columns) ++unexpected;
    lookAtReads();
    if (!firstDayIsOver && testTimeMs() >= msPerDay) {
        firstDayIsOver = true;
        afterFirstDay = held();
    }
    forgetWhatDoublesKeep();
    if (testTimeMs() < days * msPerDay) return postCommand(idStart);
    atEnd = held();
    post(messageClose);
}

void watchScan() {
    when(
        [] {
            return textIn(Field::Information).starts_with("Mapping finished") &&
                   !session.processRunning;
        },
        [] {
            onScanEnd();
            when([] { return session.processRunning != 0; }, watchScan);
        });
}

// --- Lists ---------------------------------------------------------------------------------------

ListRow mapAt(double dx, double dy, double biasVolts) {
    ListRow row = mapRowAt(dx, dy, biasVolts);
    row.repeats = 8;
    row.everyMinutes = 40;
    return row;
}

ScanList listOfTheDay() {
    ScanList list{.name = "day", .rows = {mapAt(20, 10, 0.0), mapAt(-30, 25, 0.4)}};
    ListRow& curve = list.rows.emplace_back(mapAt(20, 10, 0.0));
    curve.kind = ListKind::IvCurve;
    curve.quarterPoints = 5;
    return list;
}

// The maps of the list that has ended, cell by cell; their folders go.
void lookAtFolders() {
    std::set<std::string> folders;
    for (const std::string& name : filesOnDesktop())
        if (name.starts_with("KST_Data/26") && name.find('/', 9) != std::string::npos)
            folders.insert(name.substr(9, name.find('/', 9) - 9));
    for (const std::string& folder : folders) {
        bool isMap = false;
        for (const std::string& name : filesOnDesktop())
            isMap |= name.starts_with("KST_Data/" + folder + "/Lumascan");
        if (isMap) {
            ++scans;
            const SavedMap map(folder + "/");
            const double bias = map.condition("Bias").starts_with("0 ") ? 0.0 : 0.4;
            unexpected += map.columns != 6 || map.rows != 4 || map.maskedCells(0) != 0;
            map.expectCells(0, [&](double value, LabPoint at) {
                ++points;
                const double truth = expectedCurrent(at.x, at.y, 4.0, labStageUm(labZ), bias);
                return std::fabs(value - truth) < 0.02e-6 + 0.01 * std::fabs(truth);
            });
        }
        std::filesystem::remove_all(pathOnDesktop("KST_Data/" + folder));
    }
}

void runLists() {
    // A pause in the middle of each list.
    when(
        [] {
            return listUnderWay().find("row 2 of 3, repeat 3") != std::string::npos &&
                   textIn(Field::Progress).starts_with("Mapping: 50%");
        },
        [] {
            postCommand(idPause);
            when([] { return isPaused(); }, [] { in(90 * 60000.0, [] { postCommand(idPause); }); });
        });
    postCall([] {
        const auto outcome = runProcess(
            "Scan list", [] { return startScanList(listOfTheDay()); }, saveRowAtForcedEnd);
        unexpected += !outcome || !outcome->isSound();
        lookAtFolders();
        if (!firstDayIsOver && testTimeMs() >= msPerDay) {
            firstDayIsOver = true;
            afterFirstDay = held();
        }
        forgetWhatDoublesKeep();
        if (testTimeMs() < days * msPerDay) return runLists();
        atEnd = held();
        post(messageClose);
    });
}

size_t largestLog() {
    size_t largest = 0;
    const std::string folder = pathOnDesktop("KST_Data/Log");
    for (const auto& file : std::filesystem::directory_iterator(folder))
        largest = std::max<size_t>(largest, file.file_size());
    return largest;
}

} // namespace

int main(int argc, char** argv) {
    const bool lists = argc > 1 && std::string(argv[1]) == "lists";
    if (lists) {
        days = argc > 2 ? std::atof(argv[2]) : 7;
        pointMs = 10;
    } else {
        if (argc > 1) days = std::atof(argv[1]);
        if (argc > 2) pointMs = std::atof(argv[2]);
    }
    prepareWorld();
    nobodyLooks = true;
    setLabRowsAroundSpot(104);
    deadlineMs = (days + 1) * msPerDay;
    onlooker.waits = setWallClock;
    answerOthers = [](const ShownBox&) { return BoxAnswer::Yes; };
    const LabPixel spot = labSpotPixel();
    writeDesktopFile("KST_Data/Config.txt",
                     formatted("step:2.0, laser:4.00, laser correct:(%d,%d), Ammeter:%d, GPIB:18, "
                               "IP:192,168,0,10,1225, Standa:2, arduino_LD:10, %d\n",
                               spot.column, spot.row, lists ? kindUsbSourcemeter : 0, !lists));
    writeDesktopFile("KST_Data/Options.ini",
                     formatted("wait after arrival (ms) = %.0f\n", pointMs));
    when([] { return timerRuns(); },
         [=] {
             if (lists) return runLists();
             const int halfWidth = static_cast<int>(120 / labUmPerPixel / 2);
             const int halfHeight = static_cast<int>(80 / labUmPerPixel / 2);
             postDrag(616 + halfWidth, 514 + halfHeight, 616 - halfWidth, 514 - halfHeight);
             postCommand(idStart);
             watchScan();
         });
    std::freopen("/dev/null", "w", stdout);
    const int code = runProgram(1);
    std::fprintf(stderr, "%.1f days, %zu scans, %zu points measured\n", testTimeMs() / msPerDay,
                 scans, points);
    if (!lists)
        std::fprintf(stderr, "shortest way from a reading to the next point's: %.1f ms\n",
                     shortestMs);
    for (const Held* each : {&afterFirstDay, &atEnd})
        std::fprintf(stderr,
                     "%-15s heap %.0f kB, %ld open files, %d contexts, %d bitmaps, %zu journals\n",
                     each == &atEnd ? "at the end:" : "after a day:", each->heapKb, each->files,
                     each->contexts, each->bitmaps, each->journals);
    std::fprintf(stderr, "largest log of a day: %zu bytes\n", largestLog());
    removeTempDesktop();
    const bool grew = atEnd.heapKb > afterFirstDay.heapKb + 64 ||
                      atEnd.files > afterFirstDay.files ||
                      atEnd.contexts > afterFirstDay.contexts ||
                      atEnd.bitmaps > afterFirstDay.bitmaps || atEnd.journals > 0;
    const bool untrue = testing::UnitTest::GetInstance()->Failed();
    std::fprintf(stderr, "%d unexpected, maps %s\n", unexpected, untrue ? "untrue" : "true");
    return code == 0 && !grew && tooSoon == 0 && unexpected == 0 && !untrue ? 0 : 1;
}
