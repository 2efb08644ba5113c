// Carries out a list of scans.
#pragma once

#include "lists/list_record.h"
#include "mapping/scan_plan.h"
#include "session/outcome.h"

// Measures what of the list is not done yet, row by row, in the block of runProcess: each row in a
// session folder of its own, by its own settings, from where the stage stands; those of the program
// are back afterwards, the stage where it stood, laser off, bias 0. A row that fails is recorded
// with its cause, and the list goes on or ends as it says. A stop asks whether the row or the whole
// list ends.
// Its first map asks what "Start" asks, unless somebody has answered for it.
Outcome runScanList(ListPlace place, Consent consent);

// The same of a new list, from where the stage stands.
Outcome startScanList(const ScanList& list, Consent consent = Consent::OfTheOperator);

// The same of one that was cut off, which under another set-up is refused before anything moves:
// the stage goes to where it stood at the list's start, and the scan that was cut goes on in its
// own folder.
Outcome continueScanList(ListPlace place);

// Which list, row and repeat is measured now, for the files: "night, row 2 of 4, repeat 1 of 3";
// and when the whole list will have ended, as far as it is known.
std::string listUnderWay();

// How the rows of the list that runs, or ran last, have ended, for whoever shows them.
struct ListProgress {
    std::vector<std::string> hows; // by row; empty where it has not begun
    void (*changed)() = [] {};
    std::string howOf(size_t row) const { return row < hows.size() ? hows[row] : std::string(); }
};
extern ListProgress listProgress;

// At a forced end: what of the present row is measured.
void saveRowAtForcedEnd();

// What of the set-up is another than the list's rows were made under ("X um per turn: 250 became
// 500"): its places and heights would be elsewhere. Empty when nothing is, or nobody knows.
std::string otherSetUpOf(const ScanList& list);

// "a list of 40 rows was cut off, 3 are measured": what another list's begin would throw away.
// Empty when there is none.
std::string listThatWasCutOff();

// Why a row cannot be measured as the set-up and the stage are; empty when it can.
std::string whyNotMeasured(const ListRow& row);
