// Saves maps with their pictures.
#include "mapping/map_saving.h"

#include "mapping/map_rendering.h"
#include "mapping/scan_journal.h"
#include "screen/screen.h"

namespace {

bool saveConfocalImage(int channel, const char* label) {
    drawMap(windows.confocal, channel);
    return saveMapImage(windows.confocal, channel, label);
}

// Whether all were saved that have a window.
bool saveImages() {
    placePictureWindows(); // they may have been closed since
    drawMapWithScale(channelPhotocurrent);
    bool saved = true;
    for (const Plane& plane : planesOf(scanMap)) {
        if (plane.of == Plane::Of::Channel)
            saved &= saveMapImage(windows.map, channelOf(plane), plane.pictureName);
        if (plane.of == Plane::Of::Colour)
            saved &= saveConfocalImage(channelOf(plane), plane.pictureName);
    }
    if (mapIsConfocal()) saved &= saveConfocalImage(channelConfocal, "CONFOCAL");
    return saved;
}

} // namespace

SavedFiles saveScan(Asking asking) {
    SavedFiles saved = asking == Asking::Quietly ? saveMapFilesQuietly() : saveMapFiles();
    if (!saveImages()) saved.notWritten.emplace_back("a picture");
    return saved;
}

bool saveMapsAgain() {
    const bool wereLacking = scanMap.lacksFiles;
    if (!saveMapFiles().numbers) return false;
    if (scanMap.onlyInJournal)
        for (const LeftJournal& left : leftJournals())
            if (isJournalOf(left, *scanMap.conditions)) removeLeftJournal(left);
    scanMap.onlyInJournal = false;
    if (wereLacking) showInformation("Saved"); // over what was said of them
    return true;
}
