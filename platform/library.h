// Vendors' libraries, loaded at run time so that the program runs with any subset of them.
#pragma once

struct NativeLibrary;
using LibraryHandle = NativeLibrary*;

// Looks in the folder of the executable first, then in the system's usual order; null when the
// library is not there. Shows nothing.
LibraryHandle loadLibrary(const char* fileName);

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
