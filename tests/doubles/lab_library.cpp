// Loads "libraries" out of the virtual laboratory.
#include "tests/doubles/lab_library.h"

#include "virtual_lab/lab.h"

#include <cstring>

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

// The release of the stage library whose ordinals the program knows, and the VISA standard's.
static const std::map<unsigned, const char*> ximcOrdinals = {
    {11, "set_engine_settings"}, {13, "get_engine_settings"},
    {61, "command_stop"},        {63, "command_move"},
    {504, "open_device"},        {506, "close_device"},
    {508, "enumerate_devices"},  {509, "free_enumerate_devices"},
    {513, "get_status"},         {517, "get_device_count"},
    {518, "get_device_name"},    {520, "ximc_version"},
    {540, "set_bindy_key"}};
static const std::map<unsigned, const char*> visaOrdinals = {
    {129, "viFindRsrc"},   {130, "viFindNext"},     {131, "viOpen"},
    {132, "viClose"},      {134, "viSetAttribute"}, {141, "viOpenDefaultRM"},
    {142, "viStatusDesc"}, {256, "viRead"},         {257, "viWrite"}};

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

void* findFunction(LibraryHandle library, const char* name, unsigned ordinal) {
    if (libraries.functionsMissing.count(name) != 0) return nullptr;
    if (libraries.namesMissing) {
        const bool isXimc = std::strcmp(library->fileName, "libximc.dll") == 0;
        const auto& ordinals = isXimc ? ximcOrdinals : visaOrdinals;
        const auto found = ordinals.find(ordinal);
        if (found == ordinals.end()) return nullptr;
        name = found->second;
    }
    const auto replaced = libraries.replaced.find(name);
    if (replaced != libraries.replaced.end()) return replaced->second;
    return virtualLabFunction(library->fileName, name);
}
