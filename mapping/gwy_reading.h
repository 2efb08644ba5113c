// Reads a GWY file, whoever wrote it: first what stands in it and where, then its numbers row by
// row, so that a file of any size takes little memory. Lengths are held against those of what they
// lie in, objects that a map does not need are passed over, and what is damaged is said.
#pragma once

#include "mapping/gwy_file.h"
#include "session/document.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Bytes that can be read from any place; `read` is false where they are not to be had.
struct GwySource {
    uint64_t size = 0;
    std::function<bool(uint64_t at, char* to, size_t count)> read;
};
GwySource sourceOf(std::string_view bytes); // which outlive it
GwySource sourceOf(FILE* file);             // likewise

// A field of numbers: its frame, as the writer has it, and the place of its first number.
struct GwyField {
    GwyFrame frame;
    std::string unit; // of the numbers, SI
    uint64_t valuesAt = 0;
};

struct GwyChannelThere {
    std::string title, palette;
    Conditions conditions; // texts of its meta, in their order, each at most 4096 bytes
    GwyField data;
    std::optional<GwyField> mask; // of the same columns and rows
};

constexpr size_t mostGwyChannels = 64;

struct GwyContents {
    std::vector<GwyChannelThere> channels; // by their numbers; at least one in a sound file
    std::string fault;                     // what is damaged, in a few words; empty of a sound file
};

// All that stands in it but the numbers. A file that has a fault has no channels.
GwyContents contentsOf(const GwySource& source);

// One row of a field's numbers, the top one being 0; false where they are not to be had.
bool readRow(const GwySource& source, const GwyField& field, int32_t row,
             std::vector<double>& values);

// The value under that name; empty without one.
std::string valueIn(const Conditions& conditions, std::string_view name);
