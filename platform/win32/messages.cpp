// The thread's message queue.
#include "platform/messages.h"

#include "platform/clock.h"
#include "platform/win32/handles.h"
#include "platform/win32/timer_period.h"

#include <algorithm>
#include <optional>

// The exit code of a quit that a wait came across; the message loop ends with it.
static std::optional<int> pendingQuit;

bool takeMessage(Message& message) {
    MSG next;
    while (PeekMessageW(&next, nullptr, 0, 0, PM_REMOVE)) {
        if (next.message == WM_QUIT) {
            pendingQuit = static_cast<int>(next.wParam);
            continue;
        }
        message = {opaque(next.hwnd), next.message, next.wParam, next.lParam};
        return true;
    }
    return false;
}

static bool isRadioButton(HWND control) {
    return (SendMessageW(control, WM_GETDLGCODE, 0, 0) & DLGC_RADIOBUTTON) != 0;
}

// To the next control of the window that the message is for. What the system does with Tab for
// dialogs is not enough: a radio button that is checked becomes a stop by itself, and one that gets
// the focus by a key counts as clicked, which would switch a light. Arrows, Enter and Escape have a
// meaning of their own in this program's windows.
static bool movesFocus(const MSG& message) {
    if (message.message != WM_KEYDOWN || message.wParam != VK_TAB) return false;
    HWND window = GetAncestor(message.hwnd, GA_ROOT);
    const BOOL backwards = GetKeyState(VK_SHIFT) < 0;
    HWND from = message.hwnd == window ? nullptr : message.hwnd;
    HWND next = GetNextDlgTabItem(window, from, backwards);
    for (HWND first = next; next && isRadioButton(next);) {
        next = GetNextDlgTabItem(window, next, backwards);
        if (next == first) return true;
    }
    if (!next) return true;
    SetFocus(next);
    if (SendMessageW(next, WM_GETDLGCODE, 0, 0) & DLGC_HASSETSEL)
        SendMessageW(next, EM_SETSEL, 0, -1);
    return true;
}

void dispatchMessage(const Message& message) {
    MSG native{};
    native.hwnd = ::native(message.window);
    native.message = message.id;
    native.wParam = message.wParam;
    native.lParam = message.lParam;
    if (movesFocus(native)) return;
    TranslateMessage(&native);
    DispatchMessageW(&native);
}

static const DWORD firstThread = GetCurrentThreadId(); // the one that initialises the program

bool onWindowThread() {
    return GetCurrentThreadId() == firstThread;
}

bool leftButtonIsDown() {
    return GetAsyncKeyState(VK_LBUTTON) < 0;
}

void waitForMessage(uint64_t untilTick) {
    constexpr uint64_t longestSingleWaitMs = 60'000;
    for (uint64_t now; (now = tickCountMs()) < untilTick;) {
        // A wait that ends a fraction early goes round once more, so that the caller never spins.
        uint64_t waitMs = std::min(untilTick - now, longestSingleWaitMs);
        FineTimerPeriod fine(waitMs);
        DWORD result = MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(waitMs),
                                                   QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        if (result != WAIT_TIMEOUT) return;
    }
}

int runMessageLoop() {
    constexpr WORD acceleratorTable = 109; // a resource of the program
    HACCEL accelerators =
        LoadAcceleratorsW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(acceleratorTable));
    MSG message{};
    while (!pendingQuit && GetMessageW(&message, nullptr, 0, 0) > 0) {
        // The message's own window, not the main one: the keys of an edit stay with the edit.
        if (TranslateAcceleratorW(message.hwnd, accelerators, &message)) continue;
        if (movesFocus(message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    return pendingQuit ? *pendingQuit : static_cast<int>(message.wParam);
}
