// What the laser board's program does that the simulator cannot show: other references.
#include "tests/firmware/host_chip.h"

#include <gtest/gtest.h>

TEST(BoardOnTheComputer, ReadingsAreStepsOfFiveVoltsWhateverTheReference) {
    struct {
        int millivolts, counts;
        const char* readings;
        const char* reply;
    } cases[] = {
        {5000, 512, "1", "512"},    {4096, 500, "1", "410"},   {4096, 1, "1", "01"},
        {4096, 1022, "1", "837"},   {4096, 1023, "1", "1023"}, // above the reference: no value
        {4096, 1022, "100", "837"}, {1000, 1023, "2", "1023"},
    };
    for (const auto& [millivolts, counts, readings, reply] : cases) {
        chip = {};
        chip.referenceMillivolts = static_cast<uint16_t>(millivolts);
        startBoard(0);
        receiveText(std::string("R0 ") + readings + '\0');
        for (int i = std::stoi(readings); i > 0; --i) takeConversion(static_cast<uint16_t>(counts));
        EXPECT_EQ(takeSent(), reply);
        takeConversion(1);
        EXPECT_EQ(takeSent(), "") << "nothing was asked";
    }
}
