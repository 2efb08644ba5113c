// Fuzzes what reads the scans of earlier days: .gwy files, whoever wrote them, and the index. The
// first byte chooses; the rest is the file, in the second case with its length put right, so that
// what lies deeper is reached as well.
#include "archive/scan_index.h"
#include "mapping/gwy_reading.h"
#include "mapping/scan_area.h"
#include "session/journal.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void readScan(const std::string& bytes) {
    const GwySource source = sourceOf(bytes);
    const GwyContents contents = contentsOf(source);
    require(contents.fault.empty() != contents.channels.empty());
    std::vector<double> values;
    for (const GwyChannelThere& channel : contents.channels) {
        const GwyFrame& frame = channel.data.frame;
        require(frame.columns >= 1 && frame.rows >= 1);
        require(int64_t{frame.columns} * frame.rows <= mostScanPoints);
        for (const int32_t row : {0, frame.rows - 1}) {
            require(readRow(source, channel.data, row, values));
            require(!channel.mask || readRow(source, *channel.mask, row, values));
        }
        require(!readRow(source, channel.data, frame.rows, values));
    }
}

std::string withItsLength(std::string bytes) {
    constexpr size_t head = 4 + sizeof "GwyContainer";
    if (bytes.size() < head + 4) return bytes;
    const size_t length = bytes.size() - head - 4;
    for (size_t i = 0; i < 4; ++i) bytes[head + i] = static_cast<char>(length >> 8 * i & 0xFF);
    return bytes;
}

// What is read of an index is written the same way again.
void readIndex(const std::string& body) {
    std::string bytes = "Lumascan scans 1\n";
    const uint64_t sum = checksumOf(body);
    for (int i = 0; i < 8; ++i) bytes += static_cast<char>(sum >> 8 * i & 0xFF);
    bytes += body;
    const std::vector<ScanRow> rows = rowsOfIndex(bytes);
    require(rowsOfIndex(indexFile(rows)).size() == rows.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 3 == 0) readScan(bytes);
    if (data[0] % 3 == 1) readScan(withItsLength(bytes));
    if (data[0] % 3 == 2) readIndex(bytes);
    return 0;
}
