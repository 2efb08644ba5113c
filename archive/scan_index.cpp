// Lists folders, reads what is new in them, and keeps the cache.
#include "archive/scan_index.h"

#include "archive/scan_file.h"
#include "archive/scan_verdict.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "session/data_folders.h"
#include "session/document.h"
#include "session/journal.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr int deepestFloor = 3;
constexpr uint64_t largestCache = 200'000'000; // bytes
constexpr std::string_view firstWords = "Lumascan scans 1\n";
constexpr size_t longestText = 1 << 16;

std::wstring rootPath() {
    return dataFolders.dataRoot + L"\\";
}

std::wstring cachePath() {
    return rootPath() + L"Scans.index";
}

// One way through a row, for whoever writes and for whoever reads.
template <class Row, class Visit> void eachValue(Row& row, Visit& visit) {
    visit(row.path);
    visit(row.file.size);
    visit(row.file.changed);
    visit(row.markFile.size);
    visit(row.markFile.changed);
    visit(row.fault);
    visit(row.started);
    visit(row.columns);
    visit(row.rows);
    visit(row.stepUm);
    visit(row.biasVolts);
    visit(row.laserUa);
    visit(row.instrument);
    visit(row.sample);
    visit(row.note);
    visit(row.verdict.mark);
    visit(row.verdict.word);
    visit(row.picture);
}

class Bytes {
public:
    void operator()(uint64_t value) {
        for (int i = 0; i < 8; ++i) all += static_cast<char>(value >> 8 * i & 0xFF);
    }
    void operator()(int32_t value) { (*this)(uint64_t{static_cast<uint32_t>(value)}); }
    void operator()(ScanVerdict::Mark mark) { (*this)(static_cast<int32_t>(mark)); }
    void operator()(const std::string& text) {
        (*this)(uint64_t{text.size()});
        all += text;
    }
    void operator()(const std::wstring& text) {
        (*this)(uint64_t{text.size()});
        for (const wchar_t letter : text) (*this)(static_cast<int32_t>(letter));
    }
    void operator()(const std::optional<double>& number) {
        (*this)(int32_t{number.has_value()});
        (*this)(std::bit_cast<uint64_t>(number.value_or(0.0)));
    }
    void operator()(const ScanPicture& picture) {
        all.append(reinterpret_cast<const char*>(picture.data()), picture.size());
    }

    std::string all;
};

class BytesBack {
public:
    explicit BytesBack(std::string_view of) : left(of) {}

    void operator()(uint64_t& value) {
        value = 0;
        const std::string_view field = taken(8);
        for (size_t i = field.size(); i-- > 0;) value = value << 8 | static_cast<uint8_t>(field[i]);
    }
    void operator()(int32_t& value) {
        uint64_t wide = 0;
        (*this)(wide);
        value = static_cast<int32_t>(wide);
    }
    void operator()(ScanVerdict::Mark& mark) {
        int32_t number = 0;
        (*this)(number);
        whole =
            whole && number >= 0 && number <= static_cast<int32_t>(ScanVerdict::Mark::Unreadable);
        mark = whole ? static_cast<ScanVerdict::Mark>(number) : ScanVerdict::Mark::None;
    }
    void operator()(std::string& text) { text = taken(count()); }
    void operator()(std::wstring& text) {
        text.clear();
        for (size_t i = count(); i > 0 && whole; --i) {
            int32_t letter = 0;
            (*this)(letter);
            text += static_cast<wchar_t>(letter);
        }
    }
    void operator()(std::optional<double>& number) {
        int32_t has = 0;
        uint64_t bits = 0;
        (*this)(has);
        (*this)(bits);
        number.reset();
        if (has != 0) number = std::bit_cast<double>(bits);
    }
    void operator()(ScanPicture& picture) {
        const std::string_view field = taken(picture.size());
        if (whole) std::memcpy(picture.data(), field.data(), field.size());
    }

    bool isWhole() const { return whole; }
    bool isEmpty() const { return left.empty(); }

private:
    size_t count() {
        uint64_t value = 0;
        (*this)(value);
        whole = whole && value <= longestText;
        return whole ? static_cast<size_t>(value) : 0;
    }
    std::string_view taken(size_t length) {
        whole = whole && length <= left.size();
        if (!whole) return {};
        const std::string_view field = left.substr(0, length);
        left.remove_prefix(length);
        return field;
    }

    std::string_view left;
    bool whole = true;
};

std::vector<ScanRow> cachedRows() {
    {
        const File file = openFile(cachePath(), L"rb");
        if (!file || lengthOfFile(file.get()) > largestCache) return {};
    }
    return rowsOfIndex(contentOfFile(cachePath()).value_or(""));
}

} // namespace

std::string indexFile(const std::vector<ScanRow>& rows) {
    Bytes bytes;
    for (const ScanRow& row : rows)
        if (row.isRead) eachValue(row, bytes);
    const uint64_t sum = checksumOf(bytes.all);
    Bytes head;
    head.all = firstWords;
    head(sum);
    return head.all + bytes.all;
}

std::vector<ScanRow> rowsOfIndex(std::string_view bytes) {
    if (!bytes.starts_with(firstWords)) return {};
    bytes.remove_prefix(firstWords.size());
    uint64_t sum = 0;
    BytesBack head(bytes);
    head(sum);
    if (!head.isWhole()) return {};
    bytes.remove_prefix(sizeof sum);
    if (checksumOf(bytes) != sum) return {};
    std::vector<ScanRow> rows;
    for (BytesBack back(bytes); !back.isEmpty();) {
        ScanRow row;
        row.isRead = true;
        eachValue(row, back);
        if (!back.isWhole()) return {};
        rows.push_back(std::move(row));
    }
    return rows;
}

void ScanIndex::begin() {
    if (!std::exchange(cacheWasRead, true)) all = cachedRows();
    listed = false;
    unread.clear();
    unlisted.clear();
    scansThere.clear();
    verdictsThere.clear();
    folders = {{}};
}

void ScanIndex::list(const Folder& folder) {
    const auto entries = entriesOf(rootPath() + folder.path);
    if (!entries) return unlisted.push_back(folder.path);
    for (const FolderEntry& entry : *entries) {
        const std::wstring path = folder.path + entry.name;
        if (entry.isFolder && folder.floor < deepestFloor)
            folders.push_back({path + L"\\", folder.floor + 1});
        if (entry.isFolder) continue;
        if (isScanPath(path)) scansThere[path] = {entry.size, entry.changed};
        if (isVerdictPath(path)) verdictsThere[path] = {entry.size, entry.changed};
    }
}

void ScanIndex::takeListed() {
    Rows known;
    for (ScanRow& row : all)
        if (row.isRead && !row.isUnreadable()) known[row.path] = std::move(row);
    all.clear();
    for (const auto& [path, stamp] : scansThere) {
        const auto verdict = verdictsThere.find(verdictPath(path));
        const FileStamp markFile = verdict == verdictsThere.end() ? FileStamp() : verdict->second;
        const auto found = known.find(path);
        const bool isKnown = found != known.end() && found->second.file == stamp;
        all.push_back(isKnown
                          ? std::move(found->second)
                          : ScanRow{.path = path, .file = stamp, .started = timeOfFolder(path)});
        if (isKnown) known.erase(found);
        ScanRow& row = all.back();
        if (row.markFile == markFile) continue;
        row.markFile = markFile;
        row.verdict =
            markFile == FileStamp() ? ScanVerdict() : readVerdict(rootPath() + verdictPath(path));
        if (row.verdict.mark == ScanVerdict::Mark::Unreadable) row.markFile = noFileStamp;
        changed = true;
    }
    for (auto& each : known) {
        const bool stays = std::any_of(unlisted.begin(), unlisted.end(), [&](const auto& folder) {
            return each.first.starts_with(folder);
        });
        if (stays) all.push_back(std::move(each.second));
        changed |= !stays;
    }
    for (size_t i = 0; i < all.size(); ++i)
        if (!all[i].isRead) unread.push_back(i);
    listed = true;
}

void ScanIndex::read(ScanRow& row) {
    describeScan(rootPath() + row.path, row);
    changed = true;
}

bool ScanIndex::goOn(uint64_t forMs) {
    const uint64_t end = tickCountMs() + forMs;
    do {
        if (!folders.empty()) {
            const Folder next = folders.back();
            folders.pop_back();
            list(next);
        } else if (!listed) {
            takeListed();
        } else if (!unread.empty()) {
            read(all[unread.back()]);
            unread.pop_back();
        } else {
            keep();
            return false;
        }
    } while (tickCountMs() < end);
    return true;
}

bool ScanIndex::say(size_t row, const ScanVerdict& verdict) {
    ScanRow& of = all[row];
    if (!writeVerdict(rootPath() + verdictPath(of.path), verdict)) return false;
    of.verdict = verdict;
    of.markFile = noFileStamp; // the next listing finds it changed, and reads it
    changed = true;
    return true;
}

void ScanIndex::keep() {
    if (std::exchange(changed, false)) writeDocument(cachePath(), indexFile(all), L"wb");
}
