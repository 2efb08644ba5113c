// A scan of KST_Data as the row of a table: what it was taken with, a small picture, and what the
// operator has said of it. Sorting and filtering know nothing of files.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What the operator has said of a scan.
struct ScanVerdict {
    enum class Mark : uint8_t { None, Good, Bad, Unreadable };
    Mark mark = Mark::None;
    std::string word; // one line, printable ASCII
    bool operator==(const ScanVerdict&) const = default;
};

// Levels 0..254 of the colour scale, the top row first; 255 where there is nothing.
constexpr int scanPicturePx = 32; // to each side
constexpr uint8_t noLevel = 255;
using ScanPicture = std::array<uint8_t, size_t{scanPicturePx} * scanPicturePx>;

// A file as its folder lists it.
struct FileStamp {
    uint64_t size = 0, changed = 0; // both 0: there is none
    bool operator==(const FileStamp&) const = default;
};

constexpr FileStamp noFileStamp{~uint64_t{0}, ~uint64_t{0}}; // of no file: what is listed differs

// Of a file that another program held, or whose disk did not answer: it may be sound.
inline constexpr char cannotBeRead[] = "it cannot be read";

struct ScanRow {
    std::wstring path; // of the .gwy file, below KST_Data
    FileStamp file, markFile;
    bool isRead = false; // otherwise only what follows from the path is known
    std::string fault;   // what is damaged; empty of a sound file
    bool isUnreadable() const { return fault == cannotBeRead; }
    std::string started; // "2026-11-27 07:45:00", of a damaged file no seconds; empty: not known
    int32_t columns = 0, rows = 0;
    std::optional<double> stepUm, biasVolts, laserUa; // nothing where it is not known or was none
    std::string instrument, sample, note;
    ScanVerdict verdict;
    ScanPicture picture{};
};

enum class ScanColumn {
    Picture,
    Time,
    Size,
    Step,
    Instrument,
    Bias,
    Laser,
    Sample,
    Note,
    Verdict,
    Place,
};

// As the table shows it; nothing for the picture.
std::string cellOf(const ScanRow& row, ScanColumn column);

// Which rows hold each word that is typed, in whatever cell and case, in their order: numbers by
// their size, what is not known last, the rest by letters.
std::vector<size_t> rowsShown(const std::vector<ScanRow>& rows, const std::string& typed,
                              ScanColumn by, bool descending);

// When a scan in that folder was, by its name (YYMMDD_hh-mm): "2026-11-27 07:45"; empty otherwise.
std::string timeOfFolder(const std::wstring& path);
