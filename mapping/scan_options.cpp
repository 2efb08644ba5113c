// Reads and writes the scan options.
#include "mapping/scan_options.h"

#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "session/announce.h"
#include "session/options.h"

#include <optional>
#include <string>
#include <vector>

ScanSettings scanSettings;

namespace {

constexpr char arrivalName[] = "look for arrival";
constexpr char every50Ms[] = "every 50 ms";
constexpr char early[] = "as soon as it can be there";
constexpr char unitFileName[] = "write .gwy";
constexpr char yes[] = "yes";
constexpr char no[] = "no";

void refuse(const char* name, const std::string& value) {
    announce(
        Severity::Trouble,
        formatted("Options.ini: \"%s = %s\" is not known, the default holds", name, value.c_str()));
}

void take(const char* name, bool& value, const char* whenTrue, const char* whenFalse) {
    const std::string text = readOption(name);
    if (text == whenTrue || text == whenFalse)
        value = text == whenTrue;
    else if (!text.empty())
        refuse(name, text);
}

void take(const ScanNumber& of) {
    const std::string text = readOption(of.option);
    if (text.empty()) return;
    const std::optional<int> number = typedInteger(text);
    if (number && of.allows(*number) && std::to_string(*number) == text)
        scanSettings.options.*of.value = *number;
    else
        refuse(of.option, text);
}

} // namespace

double runInOf(const ScanOptions& options, double stepUm) {
    return options.runInUm == 0 ? stepUm : options.runInUm;
}

void readScanOptions() {
    scanSettings.options = {};
    take(arrivalName, scanSettings.options.looksEarly, early, every50Ms);
    for (const ScanNumber& number : scanNumbers) take(number);
    take(unitFileName, scanSettings.options.writesUnitFile, yes, no);
}

bool writeScanOptions() {
    std::vector<Option> options{{arrivalName, scanSettings.options.looksEarly ? early : every50Ms}};
    for (const ScanNumber& number : scanNumbers)
        options.push_back({number.option, std::to_string(scanSettings.options.*number.value)});
    options.push_back({unitFileName, scanSettings.options.writesUnitFile ? yes : no});
    return writeOptions(options);
}
