// Reads and writes the scan options.
#include "mapping/scan_options.h"

#include "platform/text_format.h"
#include "platform/typed_number.h"
#include "session/options.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

ScanSettings scanSettings;

namespace {

constexpr char arrivalName[] = "look for arrival";
constexpr char every50Ms[] = "every 50 ms";
constexpr char early[] = "as soon as it can be there";
constexpr char unitFileName[] = "write .gwy";
constexpr char mainChannelName[] = "lock-in main channel";
constexpr char auxChannelName[] = "lock-in aux 1 as channel";
constexpr char pauseBiasName[] = "bias in a pause", stays[] = "stays", zero[] = "0 V";
constexpr char yes[] = "yes";
constexpr char no[] = "no";

void take(const ScanNumber& of) {
    const std::string text = readOption(of.option);
    if (text.empty()) return;
    const std::optional<int32_t> number = of.typed(text);
    if (number && of.textOf(*number) == text)
        scanSettings.options.*of.value = *number;
    else
        tellUnknownOption(of.option, text);
}

void takeMainChannel() {
    const std::string text = readOption(mainChannelName);
    if (text.empty()) return;
    const auto* const found = std::find(std::begin(mainChannels), std::end(mainChannels), text);
    if (found == std::end(mainChannels)) return tellUnknownOption(mainChannelName, text);
    scanSettings.options.mainChannel = static_cast<int32_t>(found - std::begin(mainChannels));
}

} // namespace

std::string ScanNumber::textOf(int32_t number) const {
    return inTenths ? formatted("%g", number / 10.0) : std::to_string(number);
}

std::optional<int32_t> ScanNumber::typed(const std::string& text) const {
    std::optional<int32_t> number;
    if (!inTenths) {
        number = typedInteger(text);
    } else if (const std::optional<float> value = typedNumber(text)) {
        number = truncated(std::round(static_cast<double>(*value) * 10.0));
    }
    return number && allows(*number) ? number : std::nullopt;
}

double runInOf(const ScanOptions& options, double stepUm) {
    return options.runInUm == 0 ? stepUm : options.runInUm;
}

void readScanOptions() {
    scanSettings.options = {};
    takeOption(arrivalName, scanSettings.options.looksEarly, early, every50Ms);
    for (const ScanNumber& number : scanNumbers) take(number);
    takeOption(unitFileName, scanSettings.options.writesUnitFile, yes, no);
    takeMainChannel();
    takeOption(auxChannelName, scanSettings.options.auxChannel, yes, no);
    takeOption(pauseBiasName, scanSettings.options.keepsBiasInAPause, stays, zero);
}

bool writeScanOptions() {
    std::vector<Option> options{{arrivalName, scanSettings.options.looksEarly ? early : every50Ms}};
    for (const ScanNumber& number : scanNumbers)
        options.push_back({number.option, number.textOf(scanSettings.options.*number.value)});
    options.push_back({unitFileName, scanSettings.options.writesUnitFile ? yes : no});
    options.push_back({mainChannelName, mainChannels[scanSettings.options.mainChannel]});
    options.push_back({auxChannelName, scanSettings.options.auxChannel ? yes : no});
    options.push_back({pauseBiasName, scanSettings.options.keepsBiasInAPause ? stays : zero});
    return writeOptions(options);
}
