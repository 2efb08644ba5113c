// No file is overwritten, and no text file of a map has fewer rows than its name says.
#include "tests/simulation/judge/judge.h"

#include <algorithm>
#include <cstdio>

namespace {

class Files : public Checker {
public:
    explicit Files(Judge& all) : judge(all) {}

    void look() override {
        if (overwrittenFiles.empty()) return;
        judge.find(Rule::Files, "overwritten: " + overwrittenFiles.back());
        overwrittenFiles.clear();
    }

    void ends() override {
        for (const std::string& name : filesOnDesktop()) {
            const size_t step = name.rfind(")Step");
            int cols = 0, rows = 0;
            if (step == std::string::npos || !name.ends_with(".txt") ||
                std::sscanf(name.c_str() + name.rfind('(', step), "(%dX%d)", &cols, &rows) != 2)
                continue;
            const std::string text = contentOf(name);
            if (std::count(text.begin(), text.end(), '\n') != rows)
                judge.find(Rule::Files, "not whole: " + name);
            judge.count("map files looked at");
        }
    }

private:
    Judge& judge;
};

} // namespace

std::unique_ptr<Checker> checkFiles(Judge& judge) {
    return std::make_unique<Files>(judge);
}
