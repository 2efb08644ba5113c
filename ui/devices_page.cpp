// Puts the page of the devices together.
#include "ui/devices_page.h"

#include "session/device_report.h"

#include <algorithm>

namespace {

// A device, and the names under which its links report.
struct Section {
    const char* title;
    std::vector<const char*> names;
};

std::vector<const DeviceReport*> reportsOf(const Section& section) {
    std::vector<const DeviceReport*> found;
    for (const char* name : section.names)
        for (const DeviceReport& report : deviceReports())
            if (report.name == name) found.push_back(&report);
    return found;
}

// Lines of one kind; who says it is named unless it is the device itself.
void addLines(std::string& page, const Section& section, const char* label,
              std::string DeviceReport::*part) {
    for (const DeviceReport* report : reportsOf(section)) {
        const std::string& words = report->*part;
        if (words.empty()) continue;
        const bool itself = report->name == section.title || part == &DeviceReport::library;
        page +=
            std::string("  ") + label + words + (itself ? "" : "  [" + report->name + "]") + "\n";
    }
}

} // namespace

std::string devicesPage() {
    const Section sections[] = {
        {"Stage", {"Stage library", "Stage", "Stage X", "Stage Y", "Stage Z"}},
        {"Laser board", {"Laser board"}},
        {"Camera", {"Camera library", "Camera", "Camera frame"}},
        {"GPIB instrument", {"GPIB library", "GPIB instrument"}},
        {"USB sourcemeter", {"VISA library", "USB sourcemeter"}},
        {"Oscilloscope", {"VISA library", "Oscilloscope"}},
        {"Parameter analyzer", {"Parameter analyzer library", "Parameter analyzer"}},
    };
    std::string page;
    for (const Section& section : sections) {
        page += std::string(page.empty() ? "" : "\n") + section.title + "\n";
        const std::vector<const DeviceReport*> reports = reportsOf(section);
        const bool asked =
            std::any_of(reports.begin(), reports.end(),
                        [&](const DeviceReport* report) { return report->name == section.title; });
        if (!asked) {
            page += "  not looked for: it is not the chosen instrument\n";
            continue;
        }
        addLines(page, section, "Looked for   ", &DeviceReport::lookedFor);
        addLines(page, section, "Library      ", &DeviceReport::library);
        addLines(page, section, "Answered     ", &DeviceReport::answered);
        addLines(page, section, "Failed last  ", &DeviceReport::failed);
    }
    return page;
}
