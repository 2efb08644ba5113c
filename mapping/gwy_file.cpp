// Writes the format component by component.
#include "mapping/gwy_file.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <stdexcept>

namespace {

class Writer {
public:
    explicit Writer(size_t expectedLength) { bytes.reserve(expectedLength); }

    void flag(const std::string& name, bool value) {
        component(name, 'b');
        bytes.push_back(value ? 1 : 0);
    }
    void integer(const std::string& name, int32_t value) {
        component(name, 'i');
        number(static_cast<uint32_t>(value));
    }
    void real(const std::string& name, double value) {
        component(name, 'd');
        number(std::bit_cast<uint64_t>(value));
    }
    void text(const std::string& name, const std::string& value) {
        component(name, 's');
        terminated(value);
    }
    template <typename T> void reals(const std::string& name, const std::vector<T>& values) {
        component(name, 'D');
        number(narrowed(values.size()));
        for (T value : values) number(std::bit_cast<uint64_t>(static_cast<double>(value)));
    }

    // An object whose components are what `content` writes.
    template <typename Content>
    void object(const std::string& name, const char* type, const Content& content) {
        component(name, 'o');
        objectItself(type, content);
    }
    template <typename Content> void objectItself(const char* type, const Content& content) {
        terminated(type);
        const size_t place = bytes.size();
        number(uint32_t{0}); // its length, which is known afterwards
        const size_t start = bytes.size();
        content();
        const uint32_t length = narrowed(bytes.size() - start);
        for (size_t i = 0; i < sizeof length; ++i) bytes[place + i] = octet(length, i);
    }

    void magic(const char* word) { bytes += word; }
    std::string take() { return std::move(bytes); }

private:
    static uint32_t narrowed(size_t length) {
        if (length > std::numeric_limits<uint32_t>::max())
            throw std::length_error("too long for the format");
        return static_cast<uint32_t>(length);
    }
    // Counted from the lowest one.
    template <typename Unsigned> static char octet(Unsigned value, size_t index) {
        return static_cast<char>(static_cast<uint8_t>(value >> (8 * index)));
    }
    template <typename Unsigned> void number(Unsigned value) {
        for (size_t i = 0; i < sizeof value; ++i) bytes.push_back(octet(value, i));
    }
    void terminated(const std::string& value) {
        bytes += value.c_str(); // up to a zero byte, which no text of the format can hold
        bytes.push_back('\0');
    }
    void component(const std::string& name, char type) {
        terminated(name);
        bytes.push_back(type);
    }

    std::string bytes;
};

template <typename T>
void writeField(Writer& file, const std::string& name, const GwyFrame& frame,
                const std::string& unit, const std::vector<T>& values) {
    const auto siUnit = [&file](const char* member, const std::string& symbol) {
        file.object(member, "GwySIUnit", [&] { file.text("unitstr", symbol); });
    };
    file.object(name, "GwyDataField", [&] {
        file.integer("xres", frame.columns);
        file.integer("yres", frame.rows);
        file.real("xreal", frame.width);
        file.real("yreal", frame.height);
        file.real("xoff", frame.left);
        file.real("yoff", frame.top);
        siUnit("si_unit_xy", "m");
        siUnit("si_unit_z", unit);
        file.reals("data", values);
    });
}

void writeChannel(Writer& file, const std::string& key, const GwyFrame& frame,
                  const GwyChannel& channel) {
    const std::vector<uint8_t>& mask = channel.unmeasured;
    writeField(file, key + "/data", frame, channel.unit, channel.values);
    file.text(key + "/data/title", channel.title);
    file.flag(key + "/data/visible", true);
    file.text(key + "/base/palette", channel.palette);
    if (std::find(mask.begin(), mask.end(), 1) != mask.end())
        writeField(file, key + "/mask", frame, "", mask);
    file.object(key + "/meta", "GwyContainer", [&] {
        for (const auto& [name, value] : channel.conditions) file.text(name, value);
    });
}

} // namespace

std::string gwyFile(const GwyFrame& frame, const std::vector<GwyChannel>& channels) {
    size_t length = 0;
    for (const GwyChannel& channel : channels)
        length += 2 * channel.values.size() * sizeof(double) + 8192;
    Writer file(length);
    file.magic("GWYP");
    file.objectItself("GwyContainer", [&] {
        for (size_t i = 0; i < channels.size(); ++i)
            writeChannel(file, "/" + std::to_string(i), frame, channels[i]);
    });
    return file.take();
}
