// The journal of a running measurement: KST_Data/Journal has one file of it, written as it goes and
// flushed to the disk by a timer, so that a power cut takes two seconds of it at most, whatever box
// is open.
//
// Each line ends with its checksum (CRC-32 of the text before the blank, eight hexadecimal digits).
// What is read back ends before the first line that is cut or changed. A journal may have millions
// of lines: none is kept in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// CRC-32, as IEEE 802.3 has it.
uint32_t checksumOf(std::string_view text);

// A new file whose first line names its `kind` and the format's version. False when it cannot be
// made or written; then the other functions do nothing until the next begin.
bool beginJournal(const std::string& kind);

// `text` has no line ends. Flushed with the next flush, or when the last one is two seconds ago.
void journalLine(std::string_view text);
void flushJournal();

// A tick of the journal's timer, which runs while one is written: flushes what waits to be.
void journalTick();

// Whether a line or a flush has failed since the journal was begun, or there is none: the
// measurement goes on without it.
bool journalIsBroken();

// Keeps `picture` in a file beside the journal that is being written, which goes with it. A failure
// is only logged.
void keepJournalPicture(const std::string& picture);

// What was measured is saved elsewhere: the file goes.
void removeJournal();

// The file stays, and the next start finds it.
void leaveJournal();

// Of what is written; earlier ones are read.
constexpr int journalVersion = 2;

struct LeftJournal {
    std::wstring path;
    std::string kind; // empty when the first line cannot be read or is of a newer version
    int version = 0;
};

// Those that earlier runs left, the latest first; not the running measurement's own.
std::vector<LeftJournal> leftJournals();

// Gives at each call the next line behind the first, without its checksum, until it can be read no
// further. What it gives holds until the next call.
using NextLine = std::function<std::optional<std::string_view>()>;
NextLine linesOfJournal(const LeftJournal& journal);

// The last line that is whole, found without reading those before it; nothing when there is none
// among the last few thousand bytes. Whether all before it is whole too nobody knows.
std::optional<std::string> lastLineOfJournal(const LeftJournal& journal);

// What was kept with it; empty when there is none, or it was cut or changed.
std::string journalPicture(const LeftJournal& journal);

// The measurement goes on: the journal is replaced by one of these lines, the whole file or nothing
// of it, and the lines that follow go behind them. False when that failed: the old one is as it
// was, the other functions write nothing, and removeJournal still removes it.
bool continueJournal(const LeftJournal& journal, const NextLine& lines);

void removeLeftJournal(const LeftJournal& journal);
