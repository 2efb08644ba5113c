// The laboratory's functions by library and name, for programs that are linked with it.
#include "virtual_lab/faces.h"
#include "virtual_lab/lab.h"

#include <cctype>
#include <cstring>

struct NamedFunction {
    const char* library;
    const char* name;
    void* address;
};

#define LIBXIMC_ENTRY(name) {"libximc.dll", #name, reinterpret_cast<void*>(&::name)},
#define PYLON_ENTRY(name) {"pylonc_v9.dll", #name, reinterpret_cast<void*>(&::name)},
#define NI488_ENTRY(name) {"ni4882.dll", #name, reinterpret_cast<void*>(&::name)},
#define VISA_ENTRY(name) {"visa64.dll", #name, reinterpret_cast<void*>(&::name)},
#define KXCI_ENTRY(name) {"kxciclient64.dll", #name, reinterpret_cast<void*>(&::name)},
// clang-format off
static const NamedFunction functions[] = {
    LAB_LIBXIMC_FUNCTIONS(LIBXIMC_ENTRY) LAB_NAMED_LIBXIMC_FUNCTIONS(LIBXIMC_ENTRY)
    LAB_FURTHER_LIBXIMC_FUNCTIONS(LIBXIMC_ENTRY)
    LAB_PYLON_FUNCTIONS(PYLON_ENTRY) LAB_FURTHER_PYLON_FUNCTIONS(PYLON_ENTRY)
    LAB_NI488_FUNCTIONS(NI488_ENTRY) LAB_VISA_FUNCTIONS(VISA_ENTRY)
    LAB_KXCI_FUNCTIONS(KXCI_ENTRY)
};
// clang-format on

static bool sameFileName(const char* lower, const char* name) {
    for (; *lower && std::tolower(static_cast<unsigned char>(*name)) == *lower; ++lower) ++name;
    return *lower == *name;
}

void* virtualLabFunction(const char* library, const char* name) {
    for (const NamedFunction& function : functions)
        if (std::strcmp(function.name, name) == 0 && sameFileName(function.library, library))
            return function.address;
    return nullptr;
}
