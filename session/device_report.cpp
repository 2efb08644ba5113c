// Keeps what is known of each device.
#include "session/device_report.h"

#include "platform/messages.h"
#include "screen/screen.h"
#include "session/day_log.h"

#include <algorithm>

namespace {

std::vector<DeviceReport> reports;

DeviceReport& reportOf(const char* device) {
    const auto found = std::find_if(reports.begin(), reports.end(),
                                    [&](const DeviceReport& each) { return each.name == device; });
    if (found != reports.end()) return *found;
    reports.push_back({});
    reports.back().name = device;
    return reports.back();
}

void note(const char* device, std::string DeviceReport::*part, const std::string& words) {
    if (onWindowThread()) reportOf(device).*part = clockText() + "  " + inOneLine(words);
}

std::string whyMissing(const std::vector<std::string>& fileNames) {
    std::string names;
    for (const std::string& fileName : fileNames) {
        std::string trouble = libraryTrouble(fileName.c_str());
        if (!trouble.empty()) return trouble;
        names += (names.empty() ? "" : ", ") + fileName;
    }
    if (fileNames.size() == 1)
        return names + " not found, neither beside the program nor by the system";
    return "not found, neither beside the program nor by the system: " + names;
}

} // namespace

const std::vector<DeviceReport>& deviceReports() {
    return reports;
}

void forgetDeviceReports() {
    reports.clear();
}

void forgetAnswer(const char* device) {
    if (onWindowThread()) reportOf(device).answered.clear();
}

void reportSearch(const char* device, const std::string& lookedFor) {
    forgetAnswer(device);
    note(device, &DeviceReport::lookedFor, lookedFor);
    const std::string line = std::string(device) + ": looking for " + lookedFor;
    logEvent(line);
    if (!windows.main) showAtStartup(line.c_str());
}

void reportAnswer(const char* device, const std::string& words) {
    note(device, &DeviceReport::answered, words);
    logEvent(std::string(device) + ": " + words);
}

void reportFailure(const char* device, const std::string& words) {
    note(device, &DeviceReport::failed, words);
}

std::string reportLibrary(const char* name, LibraryHandle library,
                          const std::vector<std::string>& fileNames) {
    std::string words;
    if (library) {
        const std::string version = libraryVersion(library);
        words = libraryPath(library) + (version.empty() ? "" : ", version " + version);
    } else {
        words = whyMissing(fileNames);
    }
    if (onWindowThread()) reportOf(name).library = words;
    return words;
}
