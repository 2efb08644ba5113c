// A window of the operating system, opaque to the core.
#pragma once

struct NativeWindow;
using WindowHandle = NativeWindow*;
