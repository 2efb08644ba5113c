// Sizes the windows for their screens.
#include "window/fit_window.h"

#include "camera/picture.h"
#include "platform/win32/handles.h"
#include "platform/win32/scaled_view.h"
#include "screen/screen.h"
#include "ui/commands.h"
#include "window/control_column.h"
#include "window/main_window.h"

#include <algorithm>
#include <utility>

namespace {

struct {
    bool fitted = false;
    bool sharp = false;   // drawn in the screen's own pixels
    Fit main;             // as it is laid out
    bool laidOut = false; // in that font
    ScreenArea fittedTo;
    bool wasIconic = false; // it could not be sized then
} state;

// Since Windows 10; where one is not known, Windows stretches the windows as ever.
template <class Function> Function* ofUser32(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), name)));
}

using SetContext = DPI_AWARENESS_CONTEXT WINAPI(DPI_AWARENESS_CONTEXT);

bool becomeSharp() {
    auto* const set = ofUser32<SetContext>("SetThreadDpiAwarenessContext");
    auto* const get = ofUser32<DPI_AWARENESS_CONTEXT WINAPI()>("GetThreadDpiAwarenessContext");
    auto* const kind = ofUser32<DPI_AWARENESS WINAPI(DPI_AWARENESS_CONTEXT)>(
        "GetAwarenessFromDpiAwarenessContext");
    if (!set || !get || !kind || !ofUser32<UINT WINAPI(HWND)>("GetDpiForWindow")) return false;
    // The first Windows 10 knows the older of the two only: its frames keep their size.
    if (!set(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2))
        set(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE);
    return kind(get()) == DPI_AWARENESS_PER_MONITOR_AWARE; // Wine refuses what holds already
}

int dpiOf(HWND window) {
    auto* const ask = ofUser32<UINT WINAPI(HWND)>("GetDpiForWindow");
    const UINT dpi = state.sharp && ask ? ask(window) : 0;
    return dpi > 0 ? static_cast<int>(dpi) : unscaledDpi;
}

ScreenArea areaFrom(const RECT& rect) {
    return {rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top};
}

MONITORINFO monitorOf(HWND window) {
    MONITORINFO info{};
    info.cbSize = sizeof info;
    GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST), &info);
    return info;
}

ScreenArea screenOf(HWND window) {
    return areaFrom(monitorOf(window).rcWork);
}

// Whether what is drawn at 96 dpi appears larger there: the screen then has more pixels of its own.
bool isStretched(HWND window) {
    auto* const set = ofUser32<SetContext>("SetThreadDpiAwarenessContext");
    if (!set) return false;
    const RECT told = monitorOf(window).rcMonitor;
    const DPI_AWARENESS_CONTEXT before = set(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);
    const RECT real = monitorOf(window).rcMonitor;
    if (before) set(before);
    return !EqualRect(&told, &real);
}

Extent clientOf(HWND window) {
    RECT client{};
    GetClientRect(window, &client);
    return {client.right, client.bottom};
}

// What a window's border, caption and menu take at that resolution.
Extent frameOf(HWND window, int dpi) {
    const auto style = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE));
    const auto extended = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_EXSTYLE));
    const BOOL hasMenu = GetMenu(window) != nullptr;
    RECT frame{};
    auto* const adjust =
        ofUser32<BOOL WINAPI(RECT*, DWORD, BOOL, DWORD, UINT)>("AdjustWindowRectExForDpi");
    if (adjust)
        adjust(&frame, style, hasMenu, extended, static_cast<UINT>(dpi));
    else
        AdjustWindowRectEx(&frame, style, hasMenu, extended);
    return {frame.right - frame.left, frame.bottom - frame.top};
}

Extent less(Extent whole, Extent part) {
    return {whole.width - part.width, whole.height - part.height};
}

Extent plus(Extent a, Extent b) {
    return {a.width + b.width, a.height + b.height};
}

void layOut(HWND window, const Fit& fit) {
    if (state.laidOut && fit == state.main) return;
    state.main = fit;
    state.laidOut = true;
    layOutControlColumn(fit);
    if (fit.picture == 1.0)
        drawUnscaled(window);
    else if (scaleDrawing(window, {imageWidth, imageHeight}, fit.shownPicture()))
        onPaint();
    InvalidateRect(window, nullptr, TRUE);
}

void resize(HWND window, bool movesInto) {
    const int dpi = dpiOf(window);
    const Extent full = scaled(mainWindowSize, static_cast<double>(dpi) / unscaledDpi);
    const ScreenArea screen = screenOf(window);
    state.fittedTo = screen;
    ScreenArea place = areaOf(window);
    place.width = full.width;
    place.height = full.height;
    if (state.fitted) {
        const Extent frame = less({areaOf(window).width, areaOf(window).height}, clientOf(window));
        const Extent room{std::min(full.width, screen.width), std::min(full.height, screen.height)};
        const Extent outer = plus(fittedClient(less(room, frame), dpi), frame);
        place.width = outer.width;
        place.height = outer.height;
        if (movesInto) place = movedInto(screen, place);
    }
    SetWindowPos(window, nullptr, place.left, place.top, place.width, place.height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

} // namespace

bool windowsAreScaled() {
    return state.fitted || state.sharp;
}

const Fit& mainFit() {
    return state.main;
}

bool fitToScreen(bool fitted) {
    HWND window = native(windows.main);
    if (!window) {
        state.sharp = fitted && becomeSharp();
        state.fitted = fitted;
        return true;
    }
    state.fitted = fitted;
    fitMainWindow(window);
    if (!windowsAreScaled()) layOut(window, Fit());
    return !fitted || state.sharp || !isStretched(window);
}

void fitMainWindow(HWND window) {
    const bool hasItsSize = !IsIconic(window) && !IsZoomed(window);
    if (hasItsSize) resize(window, true);
    refit(window);
}

void refit(HWND window) {
    if (!windowsAreScaled()) return;
    const bool isBack = std::exchange(state.wasIconic, IsIconic(window) != FALSE);
    if (state.wasIconic) return;
    if (isBack) refitToScreen(window);
    const int dpi = dpiOf(window);
    layOut(window, state.fitted ? fitInto(clientOf(window), dpi) : fullSize(dpi));
}

void refitToScreen(HWND window) {
    if (windowsAreScaled() && !(state.fittedTo == screenOf(window))) fitMainWindow(window);
}

void refitToDpi(HWND window, WPARAM, LPARAM lParam) {
    const ScreenArea wanted = areaFrom(*reinterpret_cast<const RECT*>(lParam));
    SetWindowPos(window, nullptr, wanted.left, wanted.top, wanted.width, wanted.height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    // Under the hand that moves it it stays where that is, until it is let go.
    if (!IsIconic(window) && !IsZoomed(window)) resize(window, false);
    state.fittedTo = {};
    refit(window);
}

OwnScale scaleOwnWindow(HWND window, Extent outer) {
    if (!windowsAreScaled()) return {1.0, outer};
    const int dpi = dpiOf(native(windows.main));
    const Extent client = less(outer, frameOf(window, unscaledDpi));
    const Extent frame = frameOf(window, dpi);
    const ScreenArea screen = screenOf(native(windows.main));
    const Extent room = less({screen.width, screen.height}, frame);
    const double factor =
        state.fitted ? scaleOf(client, room, dpi) : static_cast<double>(dpi) / unscaledDpi;
    return {factor, plus(scaled(client, factor), frame)};
}

bool scaleDrawingBy(HWND window, double factor) {
    const Extent client = clientOf(window);
    if (factor == 1.0) return drawUnscaled(window), false; // WM_PAINT follows
    return scaleDrawing(window, scaled(client, 1.0 / factor), client);
}

int rightOfMainPicture() {
    POINT right{state.main.shownPicture().width, 0};
    ClientToScreen(native(windows.main), &right);
    return right.x;
}

std::vector<ScreenArea> screensForWindows() {
    std::vector<ScreenArea> screens;
    EnumDisplayMonitors(
        nullptr, nullptr,
        [](HMONITOR monitor, HDC, RECT*, LPARAM list) -> BOOL {
            MONITORINFO info{};
            info.cbSize = sizeof info;
            if (GetMonitorInfoW(monitor, &info))
                reinterpret_cast<std::vector<ScreenArea>*>(list)->push_back(areaFrom(info.rcWork));
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&screens));
    const ScreenArea own = screenOf(native(windows.main));
    std::erase(screens, own);
    std::stable_partition(screens.begin(), screens.end(),
                          [&](const ScreenArea& screen) { return screen.left >= own.right(); });
    screens.insert(screens.begin(), own);
    return screens;
}

ScreenArea areaOf(HWND window) {
    RECT rect{};
    GetWindowRect(window, &rect);
    return areaFrom(rect);
}

HFONT makeFont(double factor) {
    if (factor == 1.0 && !state.sharp) return nullptr;
    LOGFONTW font{};
    GetObjectW(GetStockObject(DEFAULT_GUI_FONT), sizeof font, &font);
    font.lfHeight = -fontHeight(factor);
    font.lfWidth = 0;
    return CreateFontIndirectW(&font);
}
