// Walks through the format's components without a recursion: only the objects that a map has are
// looked into, each by its own function.
#include "mapping/gwy_reading.h"

#include "mapping/scan_area.h"
#include "platform/files.h"
#include "platform/text_format.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>

namespace {

constexpr size_t longestName = 255;
constexpr size_t longestText = 4096; // that is kept; longer ones are cut
constexpr int mostComponents = 100'000;
constexpr size_t mostConditions = 500;
constexpr size_t sizeOfReal = 8;

struct Fault {
    std::string words;
};

// Of the file from one place on to another, both looked at by whoever made it.
struct Span {
    uint64_t at = 0, end = 0;
    uint64_t left() const { return end - at; }
};

struct Component {
    std::string name;
    char type = 0;
    std::string objectType; // of an object
    uint64_t count = 0;     // of an array
    Span body;              // of an object what stands in it, otherwise the value
};

class Walk {
public:
    explicit Walk(const GwySource& from) : source(from) {}

    // What stands behind the magic word and the head of the object that is the whole file.
    Span whole() {
        Span file{0, source.size};
        if (file.left() == 0) throw Fault{"the file is empty"};
        std::array<char, 4> magic{};
        if (file.left() < magic.size()) throw Fault{"it is no GWY file"};
        get(file, magic.data(), magic.size());
        if (std::string_view(magic.data(), magic.size()) != "GWYP")
            throw Fault{"it is no GWY file"};
        if (text(file, longestName) != "GwyContainer") throw Fault{"it is no GWY file"};
        const uint64_t length = number(file, 4);
        if (length > file.left())
            throw Fault{formatted("cut short: %.0f of %.0f bytes", static_cast<double>(source.size),
                                  static_cast<double>(source.size - file.left() + length))};
        if (length < file.left())
            throw Fault{formatted("%.0f bytes too many at its end",
                                  static_cast<double>(file.left() - length))};
        return file;
    }

    // The next one; `in` stands behind it then.
    Component next(Span& in) {
        if (++components > mostComponents) throw Fault{"it has more than 100000 components"};
        Component found;
        found.name = text(in, longestName);
        found.type = static_cast<char>(number(in, 1));
        if (found.type == 'o') {
            found.objectType = text(in, longestName);
            found.body = part(in, number(in, 4), found.name);
        } else if (found.type >= 'A' && found.type <= 'Z') {
            found.count = number(in, 4);
            found.body = items(in, found);
        } else if (found.type == 's') {
            found.body.at = in.at;
            passText(in);
            found.body.end = in.at;
        } else {
            found.body = part(in, sizeOf(found.type, found.name), found.name);
        }
        return found;
    }

    int32_t integer(const Component& of) {
        require(of, 'i');
        Span body = of.body;
        return static_cast<int32_t>(number(body, 4));
    }
    double real(const Component& of) {
        require(of, 'd');
        Span body = of.body;
        return std::bit_cast<double>(number(body, sizeOfReal));
    }
    std::string words(const Component& of) {
        require(of, 's');
        std::string found(std::min<uint64_t>(of.body.left() - 1, longestText), '\0');
        Span body = of.body;
        get(body, found.data(), found.size());
        for (char& letter : found)
            if (letter >= 0 && letter < ' ') letter = ' '; // a line of another program's
        return found;
    }
    static void require(const Component& of, char type) {
        if (of.type != type) throw Fault{"\"" + of.name + "\" is of another type"};
    }

private:
    void get(Span& from, char* to, size_t count) {
        if (count > from.left()) throw Fault{"a part is longer than what it lies in"};
        for (size_t done = 0; done < count;) {
            const uint64_t offset = from.at - windowAt;
            if (from.at < windowAt || offset >= windowSize) {
                fill(from.at);
                continue;
            }
            const size_t some =
                std::min<size_t>(count - done, windowSize - static_cast<size_t>(offset));
            std::memcpy(to + done, window.data() + offset, some);
            done += some;
            from.at += some;
        }
    }
    void fill(uint64_t at) {
        windowAt = at;
        windowSize = static_cast<size_t>(std::min<uint64_t>(window.size(), source.size - at));
        if (!source.read(at, window.data(), windowSize)) {
            windowSize = 0;
            throw Fault{"it cannot be read"};
        }
    }
    uint64_t number(Span& in, size_t octets) {
        std::array<char, sizeOfReal> field{};
        get(in, field.data(), octets);
        uint64_t value = 0;
        for (size_t i = octets; i-- > 0;) value = value << 8 | static_cast<uint8_t>(field[i]);
        return value;
    }
    // With the zero behind it.
    std::string text(Span& in, size_t longest) {
        std::string found;
        for (char letter = 0;;) {
            if (in.left() == 0) throw Fault{"a name has no end"};
            get(in, &letter, 1);
            if (letter == 0) return found;
            if (found.size() == longest) throw Fault{"a name is too long"};
            found += letter;
        }
    }
    void passText(Span& in) {
        for (char letter = 1; letter != 0;) {
            if (in.left() == 0) throw Fault{"a text has no end"};
            get(in, &letter, 1); // the window is around it from here on
            const size_t from = static_cast<size_t>(in.at - windowAt);
            const size_t ahead = std::min<uint64_t>(windowSize - from, in.left());
            if (letter == 0 || ahead == 0) continue;
            const char* const begin = window.data() + from;
            const void* const zero = std::memchr(begin, 0, ahead);
            in.at += zero ? static_cast<size_t>(static_cast<const char*>(zero) - begin) : ahead;
        }
    }
    static Span part(Span& in, uint64_t length, const std::string& name) {
        if (length > in.left()) throw Fault{"\"" + name + "\" is longer than what it lies in"};
        const Span found{in.at, in.at + length};
        in.at = found.end;
        return found;
    }
    static uint64_t sizeOf(char type, const std::string& name) {
        switch (type) {
        case 'b':
        case 'c':
            return 1;
        case 'i':
            return 4;
        case 'q':
        case 'd':
            return 8;
        default:
            throw Fault{"\"" + name + "\" has an unknown type"};
        }
    }
    // Numbers follow each other; texts and objects are passed over one by one.
    Span items(Span& in, const Component& of) {
        const auto itemType = static_cast<char>(of.type - 'A' + 'a');
        if (itemType != 's' && itemType != 'o')
            return part(in, of.count * sizeOf(itemType, of.name), of.name);
        Span found{in.at, in.at};
        if (of.count > in.left()) throw Fault{"\"" + of.name + "\" is longer than its place"};
        for (uint64_t i = 0; i < of.count; ++i) {
            if (++components > mostComponents) throw Fault{"it has more than 100000 components"};
            if (itemType == 's') {
                passText(in);
            } else {
                text(in, longestName);
                part(in, number(in, 4), of.name);
            }
        }
        found.end = in.at;
        return found;
    }

    const GwySource& source;
    std::array<char, 4096> window{}; // of the file, from `windowAt` on
    uint64_t windowAt = 0;
    size_t windowSize = 0;
    int components = 0;
};

std::string unitIn(Walk& walk, Span body) {
    std::string unit;
    while (body.left() > 0) {
        const Component part = walk.next(body);
        if (part.name == "unitstr") unit = walk.words(part);
    }
    return unit;
}

GwyField fieldIn(Walk& walk, const Component& of) {
    Walk::require(of, 'o');
    const Fault none{"\"" + of.name + "\" is no map"};
    if (of.objectType != "GwyDataField") throw none;
    GwyField field;
    GwyFrame& frame = field.frame;
    uint64_t count = 0;
    Span body = of.body;
    while (body.left() > 0) {
        const Component part = walk.next(body);
        if (part.name == "xres") frame.columns = walk.integer(part);
        if (part.name == "yres") frame.rows = walk.integer(part);
        if (part.name == "xreal") frame.width = walk.real(part);
        if (part.name == "yreal") frame.height = walk.real(part);
        if (part.name == "xoff") frame.left = walk.real(part);
        if (part.name == "yoff") frame.top = walk.real(part);
        if (part.name == "si_unit_z" && part.type == 'o') field.unit = unitIn(walk, part.body);
        if (part.name != "data") continue;
        Walk::require(part, 'D');
        field.valuesAt = part.body.at;
        count = part.count;
    }
    if (frame.columns < 1 || frame.rows < 1 || field.valuesAt == 0) throw none;
    const bool sized = frame.width > 0.0 && frame.height > 0.0 && std::isfinite(frame.width) &&
                       std::isfinite(frame.height) && std::isfinite(frame.left) &&
                       std::isfinite(frame.top);
    if (!sized) throw Fault{"\"" + of.name + "\" has no size"};
    const int64_t points = int64_t{frame.columns} * frame.rows;
    if (points > mostScanPoints) throw Fault{"it has more than 36 million points"};
    if (count != static_cast<uint64_t>(points))
        throw Fault{formatted("%.0f numbers for %d x %d points", static_cast<double>(count),
                              frame.columns, frame.rows)};
    return field;
}

Conditions textsIn(Walk& walk, const Component& of) {
    Conditions texts;
    if (of.type != 'o' || of.objectType != "GwyContainer") return texts;
    Span body = of.body;
    while (body.left() > 0) {
        const Component part = walk.next(body);
        if (part.type == 's' && texts.size() < mostConditions)
            texts.emplace_back(part.name, walk.words(part));
    }
    return texts;
}

// "/12/data/title" is "/data/title" of channel 12; nothing of what belongs to none.
std::optional<std::pair<int, std::string>> keyOf(const std::string& name) {
    int number = 0;
    if (name.size() < 3 || name[0] != '/') return {};
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + 1, end, number);
    if (error != std::errc() || stop == end || *stop != '/' || number < 0) return {};
    return std::pair{number, std::string(stop, end)};
}

struct Parts {
    GwyChannelThere channel;
    bool hasData = false;
};

std::vector<GwyChannelThere> channelsIn(Walk& walk) {
    std::map<int, Parts> found;
    Span file = walk.whole();
    while (file.left() > 0) {
        const Component part = walk.next(file);
        const auto key = keyOf(part.name);
        if (!key) continue;
        if (!found.contains(key->first) && found.size() == mostGwyChannels) continue;
        auto& [channel, hasData] = found[key->first];
        const std::string& what = key->second;
        if (what == "/data") {
            channel.data = fieldIn(walk, part);
            hasData = true;
        }
        if (what == "/mask") channel.mask = fieldIn(walk, part);
        if (what == "/data/title") channel.title = walk.words(part);
        if (what == "/base/palette") channel.palette = walk.words(part);
        if (what == "/meta") channel.conditions = textsIn(walk, part);
    }
    std::vector<GwyChannelThere> channels;
    for (auto& [number, parts] : found) {
        if (!parts.hasData) continue;
        const GwyFrame& frame = parts.channel.data.frame;
        const std::optional<GwyField>& mask = parts.channel.mask;
        if (mask && (mask->frame.columns != frame.columns || mask->frame.rows != frame.rows))
            throw Fault{"a mask is of another size than its map"};
        channels.push_back(std::move(parts.channel));
    }
    if (channels.empty()) throw Fault{"there is no map in it"};
    return channels;
}

} // namespace

GwySource sourceOf(std::string_view bytes) {
    return {bytes.size(), [bytes](uint64_t at, char* to, size_t count) {
                if (at > bytes.size() || count > bytes.size() - at) return false;
                std::memcpy(to, bytes.data() + at, count);
                return true;
            }};
}

GwySource sourceOf(FILE* file) {
    return {lengthOfFile(file), [file](uint64_t at, char* to, size_t count) {
                return seekInFile(file, at) && std::fread(to, 1, count, file) == count;
            }};
}

GwyContents contentsOf(const GwySource& source) {
    GwyContents contents;
    try {
        Walk walk(source);
        contents.channels = channelsIn(walk);
    } catch (const Fault& fault) {
        contents.fault = fault.words;
        for (char& letter : contents.fault) // names may hold any byte
            if (letter < ' ' || letter > '~') letter = '?';
    }
    return contents;
}

bool readRow(const GwySource& source, const GwyField& field, int32_t row,
             std::vector<double>& values) {
    static_assert(std::endian::native == std::endian::little);
    const auto columns = static_cast<size_t>(field.frame.columns);
    if (row < 0 || row >= field.frame.rows) return false;
    values.resize(columns);
    const size_t length = columns * sizeof(double);
    return source.read(field.valuesAt + static_cast<uint64_t>(row) * length,
                       reinterpret_cast<char*>(values.data()), length);
}

std::string valueIn(const Conditions& conditions, std::string_view name) {
    const auto found = std::find_if(conditions.begin(), conditions.end(),
                                    [&](const auto& each) { return each.first == name; });
    return found == conditions.end() ? std::string() : found->second;
}
