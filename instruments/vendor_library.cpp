// Loads a vendor's library aloud.
#include "instruments/vendor_library.h"

#include "session/refusals.h"

LibraryHandle loadVendorLibrary(const char* name, const char* fileName) {
    LibraryHandle library = loadLibrary(fileName);
    printRefusal(name, library ? libraryPath(library)
                               : std::string(fileName) +
                                     " not found, neither beside the program nor by the system");
    return library;
}

bool heedMissingFunctions(const char* name, LibraryHandle library, bool whole) {
    if (!whole) printRefusal(name, libraryPath(library) + " lacks functions and is not used");
    return whole;
}
