// The scans of KST_Data and what the program has read of them. What was read is kept in
// KST_Data/Scans.index, which is only a cache: without it, and where it is damaged, old or says
// another size or time of change than the folder, the files are read again.
#pragma once

#include "archive/scan_row.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

class ScanIndex {
public:
    // Lists KST_Data and three floors of folders in it anew. Nothing is done yet.
    void begin();

    // Does a part of what is to be done, a little longer than `forMs`; returns whether something is
    // left. At the end the cache is written where something has changed.
    bool goOn(uint64_t forMs);

    // Folders below the root that could not be listed, each empty or with a backslash at its end:
    // what was read in them before stays.
    const std::vector<std::wstring>& notListed() const { return unlisted; }

    // All folders are listed: the rows are those that are there. Some may have to be read yet.
    bool isListed() const { return listed; }
    size_t toRead() const { return unread.size(); }
    const std::vector<ScanRow>& rows() const { return all; }

    // What the operator says of a scan is written beside it; false when that failed.
    bool say(size_t row, const ScanVerdict& verdict);

    // Into the cache, where something has changed since it was last written.
    void keep();

private:
    struct Folder {
        std::wstring path; // below the root, empty or with a backslash at its end
        int floor = 0;
    };
    using Rows = std::map<std::wstring, ScanRow>;

    void list(const Folder& folder);
    void takeListed();
    void read(ScanRow& row);

    std::vector<ScanRow> all;
    std::vector<size_t> unread; // of `all`, the next one last
    std::vector<Folder> folders;
    std::vector<std::wstring> unlisted;
    std::map<std::wstring, FileStamp> scansThere, verdictsThere;
    bool listed = false, cacheWasRead = false, changed = false;
};

// The cache as a file, and back: nothing of what is not whole.
std::string indexFile(const std::vector<ScanRow>& rows);
std::vector<ScanRow> rowsOfIndex(std::string_view bytes);
