// A list of measurements for a night: each row a map, an I-V curve or a time evolution at its place
// on the stage. It is a text file of its own, one row a line, that can also be written by hand.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

enum class ListKind { Map, IvCurve, Series };
constexpr int listKindCount = 3;
const char* nameOf(ListKind kind); // "map", "I-V", "series"

struct ListRow {
    bool on = true;
    ListKind kind = ListKind::Map;
    // The first point of the map, or the place of the curve, um by the controllers' own count:
    // neither "Set Zero" nor a restart moves it.
    double xUm = 0.0, yUm = 0.0;
    std::optional<double> zUm; // likewise; none: as Z stands when the list starts
    double columns = 1.0, rows = 1.0, stepUm = 1.0; // of a map
    double laserUa = 16.0;                          // as the window shows it
    double biasVolts = 0.0, limitAmperes = 1e-4;
    double channel = 0.0;                     // of a lock-in amplifier, by number: R, X, Y, theta
    double repeats = 1.0, everyMinutes = 0.0; // from one start to the next; 0: at once
    double rangeVolts = 0.5, quarterPoints = 50.0;               // of an I-V curve
    double onSeconds = 5.0, offSeconds = 2.0, lightCycles = 3.0; // of a series
};

// The numbers among them, as they stand in the file and in the window.
struct ListNumber {
    const char* name;
    double ListRow::*value;
    double lowest, highest;
    bool isWhole;
    unsigned kinds; // that have it, a bit each by ListKind
    bool isOf(ListKind kind) const { return (kinds >> static_cast<unsigned>(kind) & 1u) != 0; }
};
std::span<const ListNumber> listNumbers();

struct ScanList {
    std::string name = "list"; // of its file, without the ending
    bool goesOnAfterFailure = true;
    bool keepsBiasInAPause = false;
    bool followsDrift = false;
    std::string sample, note;
    std::string setUpInForce; // its words as the rows were made; empty: nobody knows
    std::vector<ListRow> rows;
};
constexpr size_t mostListRows = 10000;

// What is wrong with it: "columns is 1 to 100000"; empty when nothing is.
std::string faultIn(const ListRow& row);

// The file's text, and the list of such a text. Of one that cannot be taken `fault` says the line
// and why, and there is no list: half a night is none.
std::string textOf(const ScanList& list);
std::optional<ScanList> listOf(const std::string& text, std::string& fault);

// One row as its line, without the line end.
std::string lineOf(const ListRow& row);

// Rows from one, with a value from a to b in `steps` equal steps, or in equal ratios; `andBack`
// adds the way back without the turning point. Nothing, and `fault` says why, where a ratio has
// none (a or b not above 0) or a value is not allowed.
struct RowSeries {
    const ListNumber* number = nullptr; // null: Z
    double from = 0.0, to = 0.0;
    int32_t steps = 2; // 2 to 1000
    bool inRatios = false, andBack = false;
};
std::vector<ListRow> seriesOf(const ListRow& row, const RowSeries& series, std::string& fault);
