// Loads "libraries" out of the virtual laboratory.
#include "tests/doubles/lab_library.h"

#include "virtual_lab/lab.h"

#include <cstring>
#include <fstream>

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
    return virtualLabFunction(library->fileName, found.c_str());
}
