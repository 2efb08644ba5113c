// Loads "libraries" out of the virtual laboratory.
#include "tests/doubles/lab_library.h"

#include "tests/doubles/virtual_clock.h"
#include "virtual_lab/faces.h"
#include "virtual_lab/lab.h"

#include <cstring>
#include <fstream>
#include <type_traits>

struct NativeLibrary {
    const char* fileName;
    const char* anyFunction; // the library is there when the laboratory has this one
};

LibraryDouble libraries;

static NativeLibrary onPath = {"PylonC_v9.dll", "PylonInitialize"};
static NativeLibrary known[] = {{"libximc.dll", "open_device"},
                                {"PylonC_v9.dll", "PylonInitialize"},
                                {"ni4882.dll", "ibdev"},
                                {"VISA64.dll", "viOpen"},
                                {"KXCIclient64.dll", "OpenKXCIConnection_C"}};

// From the files that the DLLs on Windows are made of: lines of "name = virtual_lab.name @number".
static std::string nameOfOrdinal(const std::string& definition, unsigned ordinal) {
    std::ifstream file(std::string(LAB_DEFINITIONS) + definition);
    const std::string wanted = "@" + std::to_string(ordinal);
    for (std::string name, sign, target, number; file >> name;)
        if (name.starts_with("EXPORTS"))
            while (file >> name >> sign >> target >> number)
                if (number == wanted) return name;
    return {};
}

// The laboratory's function behind its faults.
template <auto function> struct Faulty;
template <class Result, class... Arguments, Result (*function)(Arguments...)>
struct Faulty<function> {
    inline static const char* name;

    static Result call(Arguments... arguments) {
        for (CallFault& fault : libraries.callFaults) {
            if (fault.function != name || --fault.from > 0) continue;
            if (fault.lateMs > 0) advanceVirtualTime(fault.lateMs);
            if (!fault.fails) break;
            if (fault.carriedOut) function(arguments...);
            if constexpr (std::is_integral_v<Result>) return static_cast<Result>(-1);
            if constexpr (!std::is_integral_v<Result>) return Result();
        }
        return function(arguments...);
    }
};

struct FaultyFunction {
    const char* library;
    const char* name;
    void* address;
};

template <auto function> static FaultyFunction faulty(const char* library, const char* name) {
    Faulty<function>::name = name;
    return {library, name, reinterpret_cast<void*>(&Faulty<function>::call)};
}

static const std::vector<FaultyFunction>& allFaulty() {
#define STAGE_ENTRY(name) faulty<&::name>("libximc.dll", #name),
#define CAMERA_ENTRY(name) faulty<&::name>("PylonC_v9.dll", #name),
#define VISA_ENTRY(name) faulty<&::name>("VISA64.dll", #name),
    static const std::vector<FaultyFunction> all = {LAB_LIBXIMC_FUNCTIONS(
        STAGE_ENTRY) LAB_PYLON_FUNCTIONS(CAMERA_ENTRY) LAB_VISA_FUNCTIONS(VISA_ENTRY)};
    return all;
}

std::vector<std::string> faultyFunctions(const std::string& library) {
    std::vector<std::string> names;
    for (const FaultyFunction& each : allFaulty())
        if (each.library == library) names.emplace_back(each.name);
    return names;
}

LibraryHandle loadLibrary(const char* fileName, LibraryPlace place) {
    if (libraries.allAbsent || libraries.absent.count(fileName) != 0) return nullptr;
    if (place == LibraryPlace::SystemOrder) return libraries.onPath == fileName ? &onPath : nullptr;
    for (NativeLibrary& library : known) {
        const bool same = std::strcmp(library.fileName, fileName) == 0;
        if (same && virtualLabFunction(fileName, library.anyFunction)) return &library;
    }
    return nullptr;
}

std::string libraryPath(LibraryHandle library) {
    if (library == &onPath) return "C:\\Path\\" + libraries.onPath;
    return std::string("C:\\Lumascan\\") + library->fileName;
}

std::string libraryVersion(LibraryHandle) {
    return libraries.version;
}

std::string libraryTrouble(const char*) {
    return libraries.trouble;
}

void* findFunction(LibraryHandle library, const char* name, unsigned ordinal) {
    if (libraries.functionsMissing.count(name) != 0) return nullptr;
    std::string found = name;
    if (libraries.namesMissing) {
        const bool isXimc = std::strcmp(library->fileName, "libximc.dll") == 0;
        found = nameOfOrdinal(isXimc ? libraries.ximcDefinition : "VISA64.def", ordinal);
    }
    const auto replaced = libraries.replaced.find(found);
    if (replaced != libraries.replaced.end()) return replaced->second;
    for (const FaultyFunction& each : allFaulty())
        if (libraries.callsMayFail && found == each.name) return each.address;
    return virtualLabFunction(library->fileName, found.c_str());
}
