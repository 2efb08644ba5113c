// No file is overwritten.
#include "tests/simulation/judge/judge.h"

namespace {

class Files : public Checker {
public:
    explicit Files(Judge& all) : judge(all) {}

    void look() override {
        if (overwrittenFiles.empty()) return;
        judge.find(Rule::Files, "overwritten: " + overwrittenFiles.back());
        overwrittenFiles.clear();
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkFiles(Judge& judge) {
    return std::make_unique<Files>(judge);
}
