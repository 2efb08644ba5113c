// Of a scan's spoilt points the screen says why; that and every loss stand in the log, too, unless
// it could not be written.
#include "tests/simulation/judge/judge.h"

#include <map>
#include <utility>

namespace {

class Named : public Checker {
public:
    explicit Named(Judge& all) : judge(all) {}

    // Also what is mended before the judge looks again.
    void broken() override { logWasRefused |= logIsRefused(); }

    void processBegins() override { marked.clear(); }
    void cellIsMarked(size_t, size_t, PointMark mark) override { ++marked[mark]; }

    void look() override {
        if (!std::exchange(boardWasLost, judge.boardSaidLost) && judge.boardSaidLost)
            lookAtLog(boardLostWords);
        if (!std::exchange(biasWasLost, judge.biasSaidLost) && judge.biasSaidLost)
            lookAtLog(biasMayBeOnWords);
        logWasRefused = logIsRefused();
    }

    void processEnds(const Cause& cause, const std::string& said) override {
        if (cause.what != scanName && cause.what != listName) return;
        for (auto [mark, words] : {std::pair(PointMark::Silent, ". No "),
                                   std::pair(PointMark::NotReached, ". Not reached"),
                                   std::pair(PointMark::Overloaded, ". Overload"),
                                   std::pair(PointMark::Unlit, ". Laser off or lamp on")}) {
            if (marked[mark] == 0) continue;
            if (said.find(words) == std::string::npos)
                judge.find(Rule::Named, std::string("not said: ") + words);
            lookAtLog(words);
        }
    }

private:
    static bool logIsRefused() { return foldersRefused || diskFull || !refusedFile.empty(); }

    void lookAtLog(const std::string& words) {
        if (logWasRefused || logIsRefused()) return;
        judge.count("said and logged");
        if (contentOf(logOfRandomDay).find(words) == std::string::npos)
            judge.find(Rule::Named, "not in the log: " + words);
    }

    Judge& judge;
    std::map<PointMark, int> marked; // in the process that runs, or ran last
    bool boardWasLost = false, biasWasLost = false;
    bool logWasRefused = false; // at the last look or since
};

} // namespace

std::unique_ptr<Checker> checkNamed(Judge& judge) {
    return std::make_unique<Named>(judge);
}
