// The program looks at its windows: whatever does not answer, it is deaf to a stop no longer than a
// few time-outs take.
#include "platform/text_format.h"
#include "tests/simulation/judge/judge.h"

#include <utility>

namespace {

constexpr double longestDeafMs = 45000;

class Alive : public Checker {
public:
    explicit Alive(Judge& all) : judge(all) {}

    void look() override {
        const double now = testTimeMs();
        const double deafMs = now - std::exchange(lookedMs, now);
        if (lookedMs != 0 && deafMs > longestDeafMs)
            judge.find(Rule::Alive, formatted("deaf for %.0f s", deafMs / 1000));
    }

private:
    Judge& judge;
    double lookedMs = 0;
};

} // namespace

std::unique_ptr<Checker> checkAlive(Judge& judge) {
    return std::make_unique<Alive>(judge);
}
