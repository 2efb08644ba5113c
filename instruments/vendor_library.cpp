// Loads a vendor's library, and reports which file it was or why there is none.
#include "instruments/vendor_library.h"

#include "session/device_report.h"
#include "session/refusals.h"

LibraryHandle loadVendorLibrary(const char* name, const char* fileName) {
    LibraryHandle library = loadLibrary(fileName);
    printNews(name, reportLibrary(name, library, {fileName}));
    return library;
}

bool requireFunctions(const char* name, LibraryHandle library, bool whole) {
    if (!whole) printRefusal(name, libraryPath(library) + " lacks functions and is not used");
    return whole;
}
