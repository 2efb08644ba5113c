// The picture windows: they float above the main window, which owns them, and closing one hides it.
#include "window/picture_windows.h"

#include "mapping/map_rendering.h"
#include "platform/win32/handles.h"
#include "screen/screen.h"

static void repaint(WindowHandle window) {
    if (window == windows.map) repaintMapWindow();
    if (window == windows.confocal) repaintConfocalWindow();
}

LRESULT CALLBACK pictureWindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_PAINT: {
        PAINTSTRUCT paint;
        BeginPaint(window, &paint);
        EndPaint(window, &paint);
        repaint(opaque(window));
        return 0;
    }
    case WM_CLOSE:
        focusMainWindow(); // first, or the system may hand the focus to another program
        ShowWindow(window, SW_HIDE);
        return 0;
    case WM_DESTROY:
        if (opaque(window) == windows.map) windows.map = nullptr;
        if (opaque(window) == windows.confocal) windows.confocal = nullptr;
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

static void place(WindowHandle& picture, const wchar_t* className, const wchar_t* title, int x,
                  int y, int width, int height) {
    if (!windows.main) return;
    if (!picture) {
        picture = opaque(CreateWindowExW(0, className, title, WS_OVERLAPPEDWINDOW, x, y, width,
                                         height, native(windows.main), nullptr,
                                         GetModuleHandleW(nullptr), nullptr));
    }
    HWND window = native(picture);
    if (IsIconic(window) || IsZoomed(window)) ShowWindow(window, SW_SHOWNOACTIVATE);
    // Without activation: the arrow keys go on moving the stage.
    SetWindowPos(window, nullptr, x, y, width, height,
                 SWP_NOZORDER | SWP_NOACTIVATE | SWP_SHOWWINDOW);
}

void placeMapWindow(int x, int y, int width, int height) {
    place(windows.map, L"Kestrel", L"Photocurrent map", x, y, width, height);
}

void placeConfocalWindow(int x, int y, int width, int height) {
    place(windows.confocal, L"CFI", L"Confocal image", x, y, width, height);
}

void paintPending(WindowHandle window) {
    if (window) UpdateWindow(native(window));
}
