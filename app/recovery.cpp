// Asks the kind of measurement that a journal is of.
#include "app/recovery.h"

#include "lists/list_record.h"
#include "mapping/scan_continuation.h"
#include "platform/text_format.h"
#include "screen/screen.h"
#include "session/day_log.h"
#include "session/document.h"
#include "session/journal.h"
#include "spectroscopy/sweep_journal.h"

namespace {

bool holdsCurve(const LeftJournal& left) {
    return left.kind == sweepJournalKind || left.kind == seriesJournalKind;
}

} // namespace

std::string leftNotice() {
    std::string notice, fault;
    if (const std::optional<ListPlace> list = unfinishedList(fault))
        return formatted("A list was cut off: %d of %d rows. \"File\", \"Continue last list\"",
                         list->measured(), list->toMeasure());
    if (!fault.empty()) return "A list was cut off, whose Unfinished.txt is damaged: " + fault;
    for (const LeftJournal& left : leftJournals()) {
        notice = holdsCurve(left) ? sweepNotice(left) : scanNotice(left);
        if (!notice.empty()) return notice;
        logEvent("Journal: " + fileNameOf(left.path) + " cannot be read");
        notice = unreadableJournal;
    }
    return notice;
}

void recoverLast() {
    const char* left = "No measurement was cut off";
    for (const LeftJournal& each : leftJournals()) {
        if (holdsCurve(each) ? recoverSweep(each) : recoverScan(each)) return;
        left = unreadableJournal;
    }
    showInformation(left);
}
