// The thread's window messages: take one, dispatch it, sleep until one comes.
#pragma once

#include "platform/window_handle.h"

#include <cstdint>

struct Message {
    WindowHandle window = nullptr;
    uint32_t id = 0;
    uintptr_t wParam = 0;
    intptr_t lParam = 0;
};

// The message numbers and virtual keys that the core looks at (values of the Windows API).
constexpr uint32_t messageKeyDown = 0x0100;
constexpr uint32_t messageLeftButtonDown = 0x0201;
constexpr uint32_t messageLeftButtonUp = 0x0202;
constexpr uintptr_t keyPageUp = 0x21;
constexpr uintptr_t keyPageDown = 0x22;
constexpr uintptr_t keyLeft = 0x25;
constexpr uintptr_t keyUp = 0x26;
constexpr uintptr_t keyRight = 0x27;
constexpr uintptr_t keyDown = 0x28;

// Removes the next message of any window of this thread; false when there is none. A request to
// quit is never handed out: it stays pending for the message loop.
bool takeMessage(Message& message);

// Translates the message (keys to characters) and calls its window procedure. The Tab key goes to
// the next control instead.
void dispatchMessage(const Message& message);

// Whether this is the thread that the program's windows belong to: the one that it began with. From
// any other, a call that touches a window waits until that thread takes messages.
bool onWindowThread();

// The left mouse button itself, whatever messages are still waiting.
bool leftButtonIsDown();

// Sleeps until a message is waiting or the tick count reaches `untilTick`.
void waitForMessage(uint64_t untilTick);

// Takes and dispatches messages, accelerators first, until the main window is gone; returns the
// exit code.
int runMessageLoop();
