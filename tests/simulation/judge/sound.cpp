// Where nothing has broken since the day began, and nobody touched anything, every point of a scan
// counts.
#include "instruments/kinds.h"
#include "platform/text_format.h"
#include "screen/control_ids.h"
#include "session/process.h"
#include "tests/simulation/judge/judge.h"

namespace {

class Sound : public Checker {
public:
    explicit Sound(Judge& all) : judge(all) {}

    void commandComes(int id) override { touched = id != idStart || processUnderWay(); }
    void causeEnds() override { touched |= judge.causes.size() > 1; } // what came in its middle

    void cellIsMarked(size_t column, size_t row, PointMark mark) override {
        const bool readable = instrumentLink.opened || !instrumentKind(kindNow()).open;
        if (judge.devicesBroke || touched || !readable || !instrumentKind(kindNow()).read) return;
        if (mark == PointMark::Measured || mark == PointMark::Overloaded) return;
        // Another one may stand at its address.
        if (mark == PointMark::Silent && judge.instrumentChosen) return;
        judge.find(Rule::Sound,
                   formatted("cell %zu, %zu is marked %d", column, row, static_cast<int>(mark)));
    }

private:
    static int32_t kindNow() { return instrumentLink.ammeterKind; }

    Judge& judge;
    bool touched = false; // something, since the scan was asked for
};

} // namespace

std::unique_ptr<Checker> checkSound(Judge& judge) {
    return std::make_unique<Sound>(judge);
}
