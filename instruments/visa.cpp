// Finds the VISA functions in their library.
#include "instruments/visa.h"

#include "instruments/vendor_library.h"
#include "platform/text_format.h"
#include "session/refusals.h"

#include <cstring>

Visa loadVisa() {
    Visa found;
    constexpr const char* name = "VISA library";
    LibraryHandle library = loadVendorLibrary(name, "VISA64.dll");
    if (!library) return found;
    const bool whole = bindFunction(found.viOpenDefaultRM, library, "viOpenDefaultRM", 141) &&
                       bindFunction(found.viFindRsrc, library, "viFindRsrc", 129) &&
                       bindFunction(found.viFindNext, library, "viFindNext", 130) &&
                       bindFunction(found.viOpen, library, "viOpen", 131) &&
                       bindFunction(found.viClose, library, "viClose", 132) &&
                       bindFunction(found.viSetAttribute, library, "viSetAttribute", 134) &&
                       bindFunction(found.viStatusDesc, library, "viStatusDesc", 142) &&
                       bindFunction(found.viRead, library, "viRead", 256) &&
                       bindFunction(found.viWrite, library, "viWrite", 257);
    // What opens must also close.
    return heedMissingFunctions(name, library, whole) ? found : Visa();
}

bool visaPassed(const Visa& visa, const char* device, const char* call, ViSession object,
                ViStatus status) {
    if (status >= 0) return true;
    char text[viDescriptionSize] = {};
    if (visa.viStatusDesc(object, status, text) < 0) std::strcpy(text, "no VISA library");
    printRefusal(device, formatted("%s: %s (0x%08X)", call, text, static_cast<unsigned>(status)));
    return false;
}
