// The journal of a sweep or a series: its conditions and each sample as it is taken, and the way
// back to its text files.
#pragma once

#include "session/journal.h"
#include "spectroscopy/sweep_record.h"

#include <optional>
#include <span>
#include <string>

constexpr char sweepJournalKind[] = "I-V curve";
constexpr char seriesJournalKind[] = "time evolution";

// For a record whose start is noted (noteStart); what it holds says of which kind it is.
void beginSweepJournal(const SweepRecord& record);

// `further`: what the instrument's channels gave, where it has several.
void journalSample(float x, float y, std::span<const float> further = {});

// The measurement is over: a journal whose curve is saved elsewhere goes, another one is offered
// again, and the information text says so, or that there was none. Returns `saved`.
bool endSweepJournal(SweepRecord& record, bool saved);

struct JournaledSweep {
    SweepRecord record; // with its conditions and samples, cut off
    std::string folder; // its session folder's name
};

// Of the lines behind the first of a journal of that kind; nothing when they do not hold a curve's
// conditions whole.
std::optional<JournaledSweep> curveOfLines(const std::string& kind, const NextLine& next);

// "An I-V curve of 2026-11-25 12:30 was cut off ..."; empty when it cannot be read.
std::string sweepNotice(const LeftJournal& left);

// Writes the text files of the curve, as its measurement would have, under the next free name in
// its own session folder, and removes the journal when both were written. The curve in memory
// stays. False, and nothing happens, when the journal cannot be read.
bool recoverSweep(const LeftJournal& left);
