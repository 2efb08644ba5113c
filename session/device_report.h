// What is known of each device: what was looked for, in which library, what it answered, what
// failed last. News of it goes into the log of the day. From another thread than the windows' only
// the log is written.
#pragma once

#include "platform/library.h"

#include <string>
#include <vector>

// Each text is empty until there is one; all but `library` begin with the time.
struct DeviceReport {
    std::string name; // the device's or the library's own, as "Camera" or "Camera library"
    std::string lookedFor;
    std::string library; // full path and file version, or why there is none
    std::string answered;
    std::string failed;
};

// In the order in which they were first named.
const std::vector<DeviceReport>& deviceReports();
void forgetDeviceReports();

// A new search: what the device answered before no longer counts. Before there is a main window the
// search is told by showAtStartup.
void reportSearch(const char* device, const std::string& lookedFor);
void forgetAnswer(const char* device);
void reportAnswer(const char* device, const std::string& words);
void reportFailure(const char* device, const std::string& words); // not into the log

// Returns what is then on record of the library; this is not logged here. `fileNames`: those that
// were looked for. `library` may be null.
std::string reportLibrary(const char* name, LibraryHandle library,
                          const std::vector<std::string>& fileNames);
