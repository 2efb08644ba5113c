// The next scan area: the question about what was drawn, and what comes of a Yes.
#pragma once

#include "mapping/scan_area.h"

bool areaConfirmed(double widthUm, double heightUm);

// Makes it the scan area: its points, the expected time, the emptied maps, a picture of it.
void takeScanArea(const ScanArea& area);
