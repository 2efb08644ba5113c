// What a crash does last.
#pragma once

// From now on an unhandled exception on any thread, a stack that overflows included, and an end by
// force (forcedEnd.makeSafe) make the set-up safe and then leave a dump beside the log of the day.
// To be called once, at start.
void guardAgainstCrashes();
