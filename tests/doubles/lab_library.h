// The vendors' libraries of the native tests: the laboratory's functions, any of them missing or
// replaced.
#pragma once

#include "platform/library.h"

#include <map>
#include <set>
#include <string>

struct LibraryDouble {
    bool allAbsent = false;
    std::set<std::string> absent;               // by file name
    std::string onPath;                         // another name of the camera's, found by the system
    bool namesMissing = false;                  // functions are found by ordinal alone
    std::set<std::string> functionsMissing;     // these not at all
    std::string version;                        // of each
    std::string trouble;                        // why those that are absent do not load
    std::map<std::string, void*> replaced;      // by function name
    std::string ximcDefinition = "libximc.def"; // the stage library's release
};

extern LibraryDouble libraries;

template <class Function> void replaceFunction(const char* name, Function* function) {
    libraries.replaced[name] = reinterpret_cast<void*>(function);
}
