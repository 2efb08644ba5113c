// A scan's journal, cut and damaged at every place.
#include "mapping/scan_journal.h"

#include "app/recovery.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr char file[] = "KST_Data/Journal/journal0.txt";

class JournalTest : public LabTest {
protected:
    // Three columns and two rows, of which the last point is still to come.
    void SetUp() override {
        LabTest::SetUp();
        ensureSessionFolder(dataFolders);
        scanArea.rectX1 = 600, scanArea.rectX2 = 614;
        scanArea.rectY1 = 500, scanArea.rectY2 = 507;
        computeScanArea(scanArea);
        allocateMaps();
        ASSERT_EQ(scanArea.totalPoints, 6);
        scanMap.conditions = conditionsOf(presentPlan());
        beginScanJournal();
        for (size_t point = 0; point < 5; ++point) {
            const size_t column = point % 3, row = 1 - point / 3;
            for (size_t plane = 0; plane < 4; ++plane)
                scanMap.maps[plane][column][row] = 1.0f / static_cast<float>(point + plane + 3);
            scanMap.marks[column][row] = PointMark::Measured;
            journalPoint(column, row);
            lineEnds.push_back((flushJournal(), contentOf(file).size()));
        }
        leaveJournal(); // as a power cut does
    }

    // What is found in the journal: every point that lies whole before the damage, and no other
    // value.
    void expectPointsBefore(size_t damage) {
        const std::vector<LeftJournal> left = leftJournals();
        ASSERT_EQ(left.size(), 1u);
        const std::optional<JournaledScan> scan = readScanJournal(left.front());
        const auto whole = std::count_if(lineEnds.begin(), lineEnds.end(),
                                         [damage](size_t end) { return end <= damage; });
        ASSERT_TRUE(scan || whole == 0) << damage;
        if (!scan) return;
        ASSERT_EQ(scan->points, whole) << damage;
        for (size_t column = 0; column < 3; ++column)
            for (size_t row = 0; row < 2; ++row) {
                if (scan->map.marks[column][row] == PointMark::NotMeasured) continue;
                for (size_t plane = 0; plane < 4; ++plane)
                    ASSERT_EQ(scan->map.maps[plane][column][row], scanMap.maps[plane][column][row]);
            }
        ASSERT_EQ(scan->map.conditions->area.scanStep, scanMap.conditions->area.scanStep);
        ASSERT_EQ(scan->plan().area.offsetXUm, scanArea.offsetXUm);
    }

    std::vector<size_t> lineEnds; // of the points
};

TEST_F(JournalTest, EveryCutAndEveryChangedByteLosesOnlyWhatComesBehind) {
    const std::string whole = contentOf(file);
    expectPointsBefore(whole.size());
    for (size_t at = 0; at < whole.size(); ++at) {
        writeDesktopFile(file, whole.substr(0, at));
        expectPointsBefore(at);
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ (at % 2 ? 0x01 : 0x80));
        writeDesktopFile(file, changed);
        expectPointsBefore(at);
    }
    writeDesktopFile(file, "Lumascan journal 3 scan 00000000\n");
    EXPECT_TRUE(leftNotice().starts_with("A journal was left that cannot be read"));
}

// Its lines have a deviation also where each point has one reading.
TEST_F(JournalTest, TheFirstVersionIsStillRead) {
    const NextLine lines = linesOfJournal(leftJournals().front());
    std::string changed;
    const std::optional<JournaledScan> scan = scanOfLines(
        [&]() -> std::optional<std::string_view> {
            const std::optional<std::string_view> line = lines();
            if (!line || !std::isdigit(static_cast<unsigned char>(line->front()))) return line;
            const size_t mark = line->rfind(' ');
            return changed =
                       std::string(line->substr(0, mark)) + " 0" + std::string(line->substr(mark));
        },
        1);
    ASSERT_TRUE(scan);
    EXPECT_EQ(scan->points, 5);
    EXPECT_EQ(scan->map.maps, scanMap.maps);
    EXPECT_EQ(scan->map.marks, scanMap.marks);
}

TEST_F(JournalTest, FailuresAreSaidAndTheNextJournalHasANumberOfItsOwn) {
    const std::string left = contentOf(file);
    ASSERT_TRUE(beginJournal("scan"));
    EXPECT_EQ(contentOf(file), left);
    flushFails = true;
    testing::internal::CaptureStdout();
    flushJournal();
    journalLine("lost");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Journal: cannot be written\n");
    EXPECT_TRUE(journalIsBroken());
    removeJournal();
    EXPECT_EQ(contentOf(file), left);
    EXPECT_EQ(leftNotice(), "A scan of 2026-03-07 14:05 was cut off: 5 of 6 points. \"File\", "
                            "\"Continue last scan\" or \"Recover last scan\"");
}

} // namespace
