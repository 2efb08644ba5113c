// Says which file a vendor's library came from.
#pragma once

#include "platform/library.h"

// Loads a library of the bus or of an instrument and prints which file it was, or that there is
// none. `name` is what the operator knows it as, as "GPIB library".
LibraryHandle loadVendorLibrary(const char* name, const char* fileName);

// Prints that the library is not used because it lacks functions, when it was found and is not
// `whole`. Returns `whole`.
bool requireFunctions(const char* name, LibraryHandle library, bool whole);
