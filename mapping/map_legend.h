// How large a map is, and what it was taken with: beside and below it.
#pragma once

#include "platform/surface.h"

// Beside the colour scale of the shown map: a bar of a round length, and the map's size in um. Only
// where there is room for it.
void drawMapScale(ContextHandle target);

// Below the map: its instrument, bias and laser, its place and its time. Nothing without a scan.
Extent legendExtent(); // pixels
void drawLegend(ContextHandle target, int top, const char* title);
