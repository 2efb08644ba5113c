// Finds the VISA functions in their library.
#include "instruments/visa.h"

#include "platform/library.h"

Visa loadVisa() {
    Visa found;
    LibraryHandle library = loadLibrary("VISA64.dll");
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
    return whole ? found : Visa(); // what opens must also close
}
