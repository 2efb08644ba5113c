// The operating system's handles behind the core's opaque ones.
#pragma once

#include "platform/library.h"
#include "platform/serial_port.h"
#include "platform/surface.h"
#include "platform/window_handle.h"

#include <windows.h>

inline HWND native(WindowHandle window) {
    return reinterpret_cast<HWND>(window);
}
inline WindowHandle opaque(HWND window) {
    return reinterpret_cast<WindowHandle>(window);
}

inline HDC native(ContextHandle context) {
    return reinterpret_cast<HDC>(context);
}
inline ContextHandle opaque(HDC context) {
    return reinterpret_cast<ContextHandle>(context);
}

inline HBITMAP native(BitmapHandle bitmap) {
    return reinterpret_cast<HBITMAP>(bitmap);
}
inline BitmapHandle opaque(HBITMAP bitmap) {
    return reinterpret_cast<BitmapHandle>(bitmap);
}

inline HANDLE native(PortHandle port) {
    return reinterpret_cast<HANDLE>(port);
}

inline HMODULE native(LibraryHandle library) {
    return reinterpret_cast<HMODULE>(library);
}
inline LibraryHandle opaque(HMODULE library) {
    return reinterpret_cast<LibraryHandle>(library);
}
