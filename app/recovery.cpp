// Asks the kind of measurement that a journal is of.
#include "app/recovery.h"

#include "mapping/scan_journal.h"
#include "screen/screen.h"
#include "session/journal.h"
#include "spectroscopy/sweep_journal.h"

#include <optional>

std::string leftNotice() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return {};
    return left->kind == sweepJournalKind || left->kind == seriesJournalKind ? sweepNotice(*left)
                                                                             : scanNotice(*left);
}

void recoverLast() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return showInformation("No measurement was cut off");
    if (left->kind == sweepJournalKind || left->kind == seriesJournalKind)
        return recoverSweep(*left);
    recoverScan(*left);
}
