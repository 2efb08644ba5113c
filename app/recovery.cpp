// Asks the kind of measurement that a journal is of.
#include "app/recovery.h"

#include "mapping/scan_journal.h"
#include "screen/screen.h"
#include "session/journal.h"
#include "spectroscopy/sweep_journal.h"

#include <optional>

static bool holdsCurve(const LeftJournal& left) {
    return left.kind == sweepJournalKind || left.kind == seriesJournalKind;
}

std::string leftNotice() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return {};
    return holdsCurve(*left) ? sweepNotice(*left) : scanNotice(*left);
}

void recoverLast() {
    const std::optional<LeftJournal> left = findLeftJournal();
    if (!left) return showInformation("No measurement was cut off");
    holdsCurve(*left) ? recoverSweep(*left) : recoverScan(*left);
}
