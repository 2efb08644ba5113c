// A list that runs, as the judge knows it apart from the program, and what its record must say.
#pragma once

#include "lists/scan_list.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

struct ListAtWork {
    ScanList list;
    std::vector<std::array<double, 2>> places; // of the rows, by the program's zero, um
    std::optional<size_t> beyondLimit;         // this row is
};

constexpr const char* listFolder = "KST_Data/Scan lists/";

// A line of a record that is about a row.
struct RecordedRow {
    int row = 0, repeat = 0; // from 1
    std::string how, folder;
    bool isDone() const; // not to be measured again
    bool isSound() const { return how == "finished"; }
};
std::vector<RecordedRow> rowsIn(const std::string& record);

std::vector<std::string> recordsOnDesktop(); // their names

// The maps in the folder that a record names: its .gwy files.
std::vector<std::string> mapsIn(const std::string& folder);

// What is wrong with a record by itself: no folder is named by two rows, a row that is done is not
// measured again, and the end of a list whose rows all ran names each row once per repeat.
std::vector<std::string> wrongIn(const std::string& record, const ListAtWork& of, bool skipsRows);
