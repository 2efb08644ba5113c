// Reads and writes the scan options.
#include "mapping/scan_options.h"

#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "screen/screen.h"
#include "session/options.h"

#include <cstdio>
#include <optional>
#include <string>

ScanOptions scanOptions;

namespace {

constexpr char arrivalName[] = "look for arrival";
constexpr char every50Ms[] = "every 50 ms";
constexpr char early[] = "as soon as it can be there";
constexpr char settleName[] = "wait after arrival (ms)";
constexpr char beforeReadingName[] = "wait before reading (ms)";
constexpr char readingsName[] = "readings per point";
constexpr char unitFileName[] = "write .gwy";
constexpr char yes[] = "yes";
constexpr char no[] = "no";

void sayBad(const char* name, const std::string& value) {
    const std::string text =
        formatted("Options.ini: \"%s = %s\" is not known, the default holds", name, value.c_str());
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
    showInformation(text.c_str());
}

void take(const char* name, bool& value, const char* whenTrue, const char* whenFalse) {
    const std::string text = readOption(name);
    if (text == whenTrue || text == whenFalse)
        value = text == whenTrue;
    else if (!text.empty())
        sayBad(name, text);
}

void take(const char* name, int32_t& value, int32_t lowest, int32_t highest) {
    const std::string text = readOption(name);
    if (text.empty()) return;
    const std::optional<int> number = typedInteger(text);
    if (number && *number >= lowest && *number <= highest && std::to_string(*number) == text)
        value = *number;
    else
        sayBad(name, text);
}

} // namespace

void readScanOptions() {
    scanOptions = {};
    take(arrivalName, scanOptions.looksEarly, early, every50Ms);
    take(settleName, scanOptions.settleMs, 0, longestScanWaitMs);
    take(beforeReadingName, scanOptions.beforeReadingMs, 0, longestScanWaitMs);
    take(readingsName, scanOptions.readingsPerPoint, 1, mostReadingsPerPoint);
    take(unitFileName, scanOptions.writesUnitFile, yes, no);
}

bool writeScanOptions() {
    return writeOptions({{arrivalName, scanOptions.looksEarly ? early : every50Ms},
                         {settleName, std::to_string(scanOptions.settleMs)},
                         {beforeReadingName, std::to_string(scanOptions.beforeReadingMs)},
                         {readingsName, std::to_string(scanOptions.readingsPerPoint)},
                         {unitFileName, scanOptions.writesUnitFile ? yes : no}});
}
