// Operators who press anything at any time while anything breaks. The days of other seeds:
// simulation_tests --seeds=100..400 --gtest_filter=*RandomOperator*
#include "tests/doubles/doubles.h"
#include "tests/simulation/day/random_day.h"

#include <cstdio>
#include <cstdlib>

namespace {

unsigned firstSeed = 0, endSeed = 20;

class RandomOperatorTest : public LabTest, public testing::WithParamInterface<unsigned> {};

TEST_P(RandomOperatorTest, SeesTheTruthAndEndsWithTheLaserOff) {
    testing::internal::CaptureStdout();
    const RandomDay day = liveRandomDay(GetParam());
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(day.findings.empty()) << told(day);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomOperatorTest, testing::ValuesIn([] {
                             std::vector<unsigned> seeds;
                             for (unsigned seed = firstSeed; seed < endSeed; ++seed)
                                 seeds.push_back(seed);
                             return seeds;
                         }()));

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) std::sscanf(argv[i], "--seeds=%u..%u", &firstSeed, &endSeed);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
