// What the operator says of a scan afterwards, in a file of its own beside it: the scan's stays as
// it was written, to the byte.
#pragma once

#include "archive/scan_row.h"

#include <string>

// "<scan>.mark.txt" beside "<scan>.gwy".
std::wstring verdictPath(const std::wstring& scanPath);
bool isVerdictPath(const std::wstring& path);
bool isScanPath(const std::wstring& path);

// Unreadable where the file does not begin with "good" or "bad".
ScanVerdict readVerdict(const std::wstring& path);

// Without a mark the file is removed. False when that failed.
bool writeVerdict(const std::wstring& path, const ScanVerdict& verdict);
