// Vendors' libraries, loaded at run time so that the program runs with any subset of them.
#pragma once

#include <string>

struct NativeLibrary;
using LibraryHandle = NativeLibrary*;

enum class LibraryPlace { BesideProgram, SystemOrder };

// Null when the library is not there. Shows nothing.
LibraryHandle loadLibrary(const char* fileName, LibraryPlace place);

// Looks in the folder of the executable first, then in the system's usual order.
inline LibraryHandle loadLibrary(const char* fileName) {
    LibraryHandle library = loadLibrary(fileName, LibraryPlace::BesideProgram);
    return library ? library : loadLibrary(fileName, LibraryPlace::SystemOrder);
}

// The full path of the file that was loaded.
std::string libraryPath(LibraryHandle library);

// The version in the file's resources, as "7.5.0.15658"; empty when it has none.
std::string libraryVersion(LibraryHandle library);

// Why the file of that name beside the program does not load, in the system's words behind its full
// path; empty when there is no such file.
std::string libraryTrouble(const char* fileName);

// The address of a function by name; when the library has no such name and `ordinal` is not 0, by
// ordinal. Null when neither is there.
void* findFunction(LibraryHandle library, const char* name, unsigned ordinal = 0);

// Points `function` at the library's function, or leaves it as it is when there is none. Returns
// whether it was found.
template <class Function>
bool bindFunction(Function*& function, LibraryHandle library, const char* name,
                  unsigned ordinal = 0) {
    void* address = findFunction(library, name, ordinal);
    if (!address) return false;
    function = reinterpret_cast<Function*>(address);
    return true;
}
