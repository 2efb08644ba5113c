// The dialog "Scan options": what it shows, and what it takes over.
#pragma once

// Opens the dialog. "OK" takes what stands in it, keeps it in Options.ini and closes it; a number
// out of its range is said instead, and the dialog stays. "Cancel" changes nothing.
void chooseScanOptions();

void onScanOptionsCommand(int id);
