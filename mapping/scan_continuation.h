// Going on with a scan that was cut off: what is taken over from its journal.
#pragma once

#include "mapping/scan_journal.h"

// Selects and connects the scan's instrument, with the boxes of connectInstrument, asks it for a
// reading, and takes over the scan's settings, its area and its map. False, with a word in the
// information text and all settings as they were, when the stage has another axis order or the
// instrument does not answer.
bool takeOverScan(JournaledScan scan);
