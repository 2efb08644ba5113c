// The main window's size.
#pragma once

#include "platform/surface.h"

constexpr Extent mainWindowSize{1462, 1108}; // unscaled, frame and menu included
