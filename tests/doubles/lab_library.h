// The vendors' libraries of the native tests: the laboratory's functions, any of them missing or
// replaced.
#pragma once

#include "platform/library.h"

#include <map>
#include <set>
#include <string>
#include <vector>

// What goes wrong with a vendor's function, from its n-th call on.
struct CallFault {
    std::string function;
    int from = 1;
    bool fails = true;       // it returns -1, or null
    bool carriedOut = false; // and has done what it was asked all the same
    double lateMs = 0;       // what each call takes
};

struct LibraryDouble {
    bool callsMayFail = false; // set before the program loads a library
    std::vector<CallFault> callFaults;
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

// The functions that may have a CallFault: those of the stage, the camera and the USB instruments.
// The bus keeps its errors beside the calls: its faults are the laboratory's.
std::vector<std::string> faultyFunctions(const std::string& library);

template <class Function> void replaceFunction(const char* name, Function* function) {
    libraries.replaced[name] = reinterpret_cast<void*>(function);
}
