// Takes the format apart.
#include "tests/doubles/gwy_reader.h"

#include <bit>
#include <cstdint>
#include <stdexcept>

namespace {

class Reader {
public:
    Reader(const std::string& bytes, GwyContent& content) : bytes(bytes), content(content) {}

    void file() {
        if (bytes.substr(0, 4) != "GWYP") throw std::runtime_error("no GWYP");
        place = 4;
        object("");
        if (place != bytes.size()) throw std::runtime_error("bytes left over");
    }

private:
    void object(const std::string& name) {
        content.types[name] = text();
        const uint64_t length = number(4);
        const uint64_t end = place + length;
        const std::string prefix = name.empty() ? "" : name + " ";
        while (place < end) component(prefix + text());
        if (place != end) throw std::runtime_error("an object of another length: " + name);
    }
    void component(const std::string& name) {
        const char type = taken(1)[0];
        if (type == 's')
            content.texts[name] = text();
        else if (type == 'o')
            object(name);
        else if (type >= 'A' && type <= 'Z')
            for (uint64_t left = number(4); left > 0; --left)
                content.arrays[name].push_back(real(static_cast<char>(type - 'A' + 'a')));
        else
            content.numbers[name] = real(type);
    }
    double real(char type) {
        switch (type) {
        case 'b':
        case 'c':
            return static_cast<double>(number(1));
        case 'i':
            return static_cast<int32_t>(number(4));
        case 'q':
            return static_cast<double>(static_cast<int64_t>(number(8)));
        case 'd':
            return std::bit_cast<double>(number(8));
        default:
            throw std::runtime_error(std::string("an unknown type: ") + type);
        }
    }
    uint64_t number(size_t octets) {
        const std::string field = taken(octets);
        uint64_t value = 0;
        for (size_t i = octets; i-- > 0;) value = value << 8 | static_cast<uint8_t>(field[i]);
        return value;
    }
    std::string text() {
        const size_t zero = bytes.find('\0', place);
        if (zero == std::string::npos) throw std::runtime_error("a text without an end");
        const std::string found = taken(zero - place);
        ++place;
        return found;
    }
    std::string taken(size_t count) {
        if (count > bytes.size() - place) throw std::runtime_error("cut short");
        place += count;
        return bytes.substr(place - count, count);
    }

    const std::string& bytes;
    GwyContent& content;
    size_t place = 0;
};

} // namespace

GwyContent readGwy(const std::string& bytes) {
    GwyContent content;
    Reader(bytes, content).file();
    return content;
}
