// Saves the map in memory whole: its text files, the document with units, the pictures.
#pragma once

#include "mapping/scan_map.h"

enum class Asking {
    WithBoxes, // a text file that fails raises one
    Quietly,   // nobody may be there
};
SavedFiles saveScan(Asking asking);

// "Save Maps" while nothing runs: the same with boxes, without pictures. A journal that was left
// because a file could not be written goes when all are.
bool saveMapsAgain();
