// Fuzzes what a script may send, with the program's own table; nothing is carried out. The bytes
// come in two pieces, whose first byte says where they are parted.
#include "door/scpi_session.h"
#include "door/verbs.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

bool underWay = false;
size_t calls = 0;

Reply carryOut(const Call& call) {
    ++calls;
    if (call.numbers.size() != call.texts.size()) std::abort();
    underWay = !underWay;
    Reply reply = said("1");
    reply.waits = calls % 3 == 0;
    return reply;
}

// Each number within its bounds, whatever was written.
std::vector<Verb> harmless() {
    std::vector<Verb> verbs(verbTable().begin(), verbTable().end());
    for (Verb& verb : verbs) verb.carryOut = carryOut;
    return verbs;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<Verb> verbs = harmless();
    if (size < 1) return 0;
    underWay = false;
    ScpiSession session{{.verbs = verbs, .isUnderWay = [] { return underWay; }}};
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t part = std::min<size_t>(data[0], bytes.size());
    for (const std::string_view piece : {bytes.substr(0, part), bytes.substr(part)}) {
        session.receive(piece);
        while (session.step()) {
        }
        underWay = false;
    }
    while (session.step()) {
    }
    const size_t lines = static_cast<size_t>(std::count(bytes.begin(), bytes.end(), '\n'));
    const auto ends =
        static_cast<size_t>(std::count(session.output.begin(), session.output.end(), '\n'));
    if (ends > lines || session.output.size() > 2 * size + 2) std::abort(); // an answer a message
    while (session.status.nextError() != "0,\"No error\"") {
    }
    return 0;
}
