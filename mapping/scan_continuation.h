// A scan that was cut off: going on with it, or saving what there is, from its journal.
#pragma once

#include "mapping/scan_journal.h"

// Selects and connects the scan's instrument, with the boxes of connectInstrument, asks it for a
// reading, and takes over the scan's settings, its area and its map. False, with a word in the
// information text and all settings as they were, when the stage has another axis order or the
// instrument does not answer.
bool takeOverScan(JournaledScan scan);

// Writes the files and images of the scan, as itself would have, into its own session folder, and
// removes the journal when all numbers were written. It is then the map in memory. False, and
// nothing happens, when the journal cannot be read.
bool recoverScan(const LeftJournal& left);
