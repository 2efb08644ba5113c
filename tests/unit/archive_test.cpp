// The .gwy files read back, the index of the scans, its rows and the operator's marks.
#include "archive/scan_file.h"
#include "archive/scan_index.h"
#include "archive/scan_verdict.h"
#include "mapping/gwy_reading.h"
#include "mapping/map_place.h"
#include "mapping/map_profile.h"
#include "mapping/map_rendering.h"
#include "mapping/sample_place.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

#include <cmath>
#include <filesystem>

namespace {

GwyChannel channelOf(const std::string& title, std::vector<double> values) {
    return {.title = title, .palette = "Gray", .unit = "A", .values = std::move(values)};
}

std::string smallFile(const std::string& note = "a note", double factor = 1e-9) {
    GwyChannel current = channelOf("Photocurrent", {});
    for (int i = 0; i < 6; ++i) current.values.push_back(i * factor);
    current.unmeasured = {0, 0, 0, 0, 1, 0};
    current.conditions = {{"Started", "2026-11-27 07:45:00"},
                          {"Instrument", "USB Sourcemeter"},
                          {"Bias", "0.5 V"},
                          {"Laser intensity", "16 uA"},
                          {"Step", "2 um"},
                          {"Note", note}};
    return gwyFile({3, 2, 6e-6, 4e-6, 1e-5, -2e-5},
                   {current, channelOf("Other", {1, 2, 3, 4, 5, 6})});
}

std::string faultIn(const std::string& bytes) {
    return contentsOf(sourceOf(bytes)).fault;
}

TEST(GwyReading, SaysWhatIsDamaged) {
    const std::string sound = smallFile();
    ASSERT_EQ(faultIn(sound), "");
    EXPECT_EQ(faultIn(""), "the file is empty");
    EXPECT_EQ(faultIn("GIF89a"), "it is no GWY file");
    EXPECT_EQ(faultIn(sound + "xyz"), "3 bytes too many at its end");
    // Wherever it is cut: words, and no map that looks whole.
    for (size_t length = 0; length < sound.size(); ++length)
        EXPECT_NE(faultIn(sound.substr(0, length)), "") << length;
    const auto changed = [&](const std::string& what, const std::string& by, size_t behind = 0) {
        std::string file = sound;
        file.replace(file.find(what) + what.size() + behind, by.size(), by);
        return faultIn(file);
    };
    using namespace std::string_literals;
    EXPECT_EQ(changed("xres\0i"s, "\4"s), "6 numbers for 4 x 2 points");
    EXPECT_EQ(changed("xres\0i"s, "\0"s), "\"/0/data\" is no map");
    EXPECT_EQ(changed("xres\0i"s, "\0\0\0\x70"s), "it has more than 36 million points");
    EXPECT_EQ(changed("xres\0"s, "x"s), "\"xres\" has an unknown type");
    EXPECT_EQ(changed("data\0D"s, "\xff\xff\xff\xff"s), "\"data\" is longer than what it lies in");
    EXPECT_EQ(changed("xreal\0d"s, "\0\0\0\0\0\0\xf8\x7f"s), "\"/0/data\" has no size");
    // A mask of another shape would hide other cells than it means.
    EXPECT_EQ(changed("/0/mask"s, "\1\0\0\0"s, 1 + 1 + 13 + 4 + 6), "6 numbers for 1 x 2 points");
}

TEST(GwyReading, PassesOverWhatOtherProgramsAdd) {
    std::string file = smallFile();
    using namespace std::string_literals;
    const std::string added = "/filename\0sa name\0"s + "/0/graph\0oGwyGraph\0\2\0\0\0xy"s +
                              "texts\0S\2\0\0\0a\0b\0"s + "objects\0O\1\0\0\0Some\0\1\0\0\0x"s;
    const size_t head = 4 + sizeof "GwyContainer";
    file.insert(head + 4, added);
    const auto length = static_cast<uint32_t>(file.size() - head - 4);
    for (size_t i = 0; i < 4; ++i) file[head + i] = static_cast<char>(length >> 8 * i & 0xFF);
    const GwyContents contents = contentsOf(sourceOf(file));
    EXPECT_EQ(contents.fault, "");
    ASSERT_EQ(contents.channels.size(), 2u);
    EXPECT_EQ(contents.channels[1].title, "Other");
    std::vector<double> values;
    ASSERT_TRUE(readRow(sourceOf(file), contents.channels[1].data, 1, values));
    EXPECT_EQ(values, (std::vector<double>{4, 5, 6}));
}

class ArchiveTest : public WindowTest {
protected:
    static std::vector<ScanRow> listed(ScanIndex& index) {
        index.begin();
        while (index.goOn(1)) {
        }
        return index.rows();
    }
    static const ScanRow& named(const std::vector<ScanRow>& rows, const std::wstring& name) {
        for (const ScanRow& row : rows)
            if (row.path == name) return row;
        ADD_FAILURE() << "no such row";
        return rows.front();
    }
};

TEST_F(ArchiveTest, MapHasUnitsThatFitAndNoMaskedCell) {
    writeDesktopFile("KST_Data/a.gwy", smallFile());
    std::string fault;
    const std::optional<ScanMap> map = mapOfFile(dataFolders.dataRoot + L"\\a.gwy", fault);
    ASSERT_TRUE(map) << fault;
    ASSERT_EQ(map->planes.size(), 2u);
    EXPECT_STREQ(map->planes[0].unit->name, "nA");
    EXPECT_EQ(map->maps[planePhotocurrent][2][1], 5.0f);
    EXPECT_EQ(map->marks[1][1], PointMark::NotMeasured);
    EXPECT_EQ(map->marks[2][1], PointMark::Measured);
    EXPECT_DOUBLE_EQ(map->conditions->firstXUm(), 11.0);
    EXPECT_DOUBLE_EQ(map->conditions->firstYUm(), 17.0);
    EXPECT_EQ(map->maps.back()[0][1], 4.0f);
}

// 3 x 2 points, 2 um apart by its texts, in a frame of that width.
std::string placedFile(double widthUm, const Conditions& further, double homeSteps = 0.0) {
    GwyChannel current = channelOf("Photocurrent", {0, 1, 2, 3, 4, 5});
    current.conditions = {{"Step", "2 um"},
                          {"Stage X at the start", "11 um"},
                          {"Stage Y at the start", "17 um"},
                          {"Controller's count at X 0", "0 um"},
                          {"Controller's count at Y 0", "0 um"}};
    current.conditions.insert(current.conditions.end(), further.begin(), further.end());
    addPlace(current.conditions, {.x = {11 + homeSteps, 1, "COM3"},
                                  .y = {17, 1, "COM4"},
                                  .light = {0, 0},
                                  .objective = "20x"});
    GwyChannel height = channelOf("Height", {0.25, 2, 3, 4, 5, std::nan("")});
    height.unit = "m";
    height.unmeasured = {0, 1, 0, 0, 0, 0};
    return gwyFile({3, 2, widthUm * 1e-6, 4e-6, 1e-5, -2e-5}, {current, height});
}

TEST_F(ArchiveTest, PlaceIsOnlyKnownWhereTheFileAgreesWithItself) {
    const auto grid = [](const std::string& file) { return gridOf(contentsOf(sourceOf(file))); };
    EXPECT_TRUE(grid(placedFile(6, {})).home.isKnown());
    // Resampled by another program, one way: its texts do not tell where a point lies.
    const ScanConditions resampled = grid(placedFile(12, {}));
    EXPECT_FALSE(resampled.home.isKnown());
    EXPECT_DOUBLE_EQ(resampled.area.scanStep, 4.0);
    // Behind a restart the sample was brought to another count than that of the start.
    EXPECT_FALSE(grid(placedFile(6, {}, 3.0)).home.isKnown());
    const ScanConditions continued =
        grid(placedFile(6, {{"Continued", "2026-11-27 08:00:00 after row 1"}}, 3.0));
    EXPECT_TRUE(continued.home.isKnown());
    EXPECT_DOUBLE_EQ(continued.home.x.steps, 14.0);

    writeDesktopFile("KST_Data/b.gwy", placedFile(6, {}));
    std::string fault;
    std::optional<ScanMap> map = mapOfFile(dataFolders.dataRoot + L"\\b.gwy", fault);
    ASSERT_TRUE(map) << fault;
    map->file = "b.gwy";
    EXPECT_FALSE(isInScale(*map, 1, 0, firstFurtherMap));
    showFileMap(std::move(*map), "b");
    EXPECT_EQ(valueText({0, 0}, channelFurther), "250 mm");
    EXPECT_EQ(valueText({1, 0}, channelFurther), "no value"); // masked
    EXPECT_EQ(valueText({2, 1}, channelFurther), "no value"); // no number
    EXPECT_EQ(profileAlong({1, 0}, {2, 0}, channelFurther).notes[0], "no value");
    forgetFileMap();
}

TEST_F(ArchiveTest, IndexIsOnlyACache) {
    const std::string folder = "KST_Data/261127_07-45/";
    writeDesktopFile(folder + "one.gwy", smallFile());
    writeDesktopFile(folder + "deeper/two.GWY", smallFile("second"));
    writeDesktopFile(folder + "broken.gwy", smallFile().substr(0, 300));
    writeDesktopFile(folder + "one.mark.txt", "bad: drifted\r\n");
    ScanIndex index;
    const std::vector<ScanRow> first = listed(index);
    ASSERT_EQ(first.size(), 3u);
    const ScanRow& one = named(first, L"261127_07-45\\one.gwy");
    EXPECT_EQ(one.verdict, (ScanVerdict{ScanVerdict::Mark::Bad, "drifted"}));
    EXPECT_EQ(cellOf(one, ScanColumn::Size), "3 x 2");
    const ScanRow& broken = named(first, L"261127_07-45\\broken.gwy");
    EXPECT_TRUE(cellOf(broken, ScanColumn::Note).starts_with("DAMAGED: cut short: 300 of "));
    EXPECT_EQ(broken.started, "2026-11-27 07:45");

    // With the cache no file is opened again; a new content is seen, a scan that is gone too.
    unreadableFile = ".gwy";
    ScanIndex again;
    EXPECT_EQ(named(listed(again), one.path).note, "a note");
    unreadableFile.clear();
    writeDesktopFile(folder + "one.gwy", smallFile("another note"));
    std::filesystem::remove(pathOnDesktop(folder + "deeper/two.GWY"));
    ScanIndex changed;
    const std::vector<ScanRow> now = listed(changed);
    EXPECT_EQ(now.size(), 2u);
    EXPECT_EQ(named(now, one.path).note, "another note");

    // A folder that cannot be listed is said, and what was read in it before stays.
    unreadableFile = "261127_07-45";
    ScanIndex unlisted;
    EXPECT_EQ(listed(unlisted).size(), 2u);
    EXPECT_EQ(unlisted.notListed(), std::vector<std::wstring>{L"261127_07-45\\"});
    unreadableFile = ".gwy";
    ScanIndex back;
    EXPECT_EQ(named(listed(back), one.path).note, "another note");
    EXPECT_TRUE(back.notListed().empty());

    // One that another program holds is not damaged for ever.
    const std::wstring three = L"261127_07-45\\three.gwy";
    writeDesktopFile(folder + "three.gwy", smallFile("third"));
    unreadableFile = "three.gwy";
    ScanIndex held;
    EXPECT_TRUE(cellOf(named(listed(held), three), ScanColumn::Note).starts_with("DAMAGED"));
    unreadableFile.clear();
    ScanIndex free;
    EXPECT_EQ(named(listed(free), three).note, "third");
    std::filesystem::remove(pathOnDesktop(folder + "three.gwy"));
    ScanIndex without;
    EXPECT_EQ(listed(without).size(), 2u);

    // A damaged cache counts as none: each byte of its beginning, and any in the middle.
    const std::string cache = contentOf("KST_Data/Scans.index");
    ASSERT_EQ(rowsOfIndex(cache).size(), 2u);
    for (size_t i = 0; i < cache.size(); i += i < 40 ? 1 : 97) {
        std::string damaged = cache;
        damaged[i] ^= 0x20;
        EXPECT_TRUE(rowsOfIndex(damaged).empty()) << i;
        EXPECT_TRUE(rowsOfIndex(cache.substr(0, i)).empty() || i == 25) << i;
    }
    writeDesktopFile("KST_Data/Scans.index", cache.substr(0, 1000));
    ScanIndex rebuilt;
    EXPECT_EQ(listed(rebuilt).size(), 2u);
}

TEST_F(ArchiveTest, MarkLiesBesideTheScan) {
    const std::string name = "KST_Data/261127_07-45/one";
    writeDesktopFile(name + ".gwy", smallFile());
    ScanIndex index;
    listed(index);
    ASSERT_TRUE(index.say(0, {ScanVerdict::Mark::Good, "for the paper"}));
    EXPECT_EQ(contentOf(name + ".mark.txt"), "good: for the paper\n");
    EXPECT_EQ(contentOf(name + ".gwy"), smallFile());
    ScanIndex again;
    EXPECT_EQ(cellOf(listed(again).front(), ScanColumn::Verdict), "good: for the paper");
    writeDesktopFile(name + ".mark.txt", "perhaps");
    ScanIndex other;
    EXPECT_EQ(listed(other).front().verdict.mark, ScanVerdict::Mark::Unreadable);
    ASSERT_TRUE(other.say(0, {}));
    EXPECT_FALSE(fileExists(dataFolders.dataRoot + L"\\261127_07-45\\one.mark.txt"));
    refusedFile = "one.mark.txt";
    EXPECT_FALSE(other.say(0, {ScanVerdict::Mark::Bad, {}}));
}

TEST(ScanRows, AreFoundByWordsAndSortedBySize) {
    std::vector<ScanRow> rows(4);
    const char* samples[] = {"MoS2 flake", "graphene", "MoS2 strip", ""};
    const std::optional<double> biases[] = {0.5, -2.0, 10.0, {}};
    for (size_t i = 0; i < rows.size(); ++i) {
        rows[i].isRead = true;
        rows[i].path = L"26112" + std::to_wstring(i) + L"_07-45\\scan.gwy";
        rows[i].started = timeOfFolder(rows[i].path);
        rows[i].sample = samples[i];
        rows[i].biasVolts = biases[i];
    }
    using Rows = std::vector<size_t>;
    EXPECT_EQ(rowsShown(rows, "", ScanColumn::Time, true), (Rows{3, 2, 1, 0}));
    EXPECT_EQ(rowsShown(rows, "mos2", ScanColumn::Time, false), (Rows{0, 2}));
    EXPECT_EQ(rowsShown(rows, " STRIP  2026-11-22 ", ScanColumn::Time, false), (Rows{2}));
    EXPECT_EQ(rowsShown(rows, "", ScanColumn::Bias, false), (Rows{1, 0, 2, 3}));
    EXPECT_EQ(rowsShown(rows, "", ScanColumn::Bias, true), (Rows{2, 0, 1, 3}));
    EXPECT_EQ(timeOfFolder(L"my scans\\a.gwy"), "");
    EXPECT_EQ(timeOfFolder(L"a.gwy"), "");
    EXPECT_EQ(timeOfFolder(L"261122_07-45(1)\\a.gwy"), "2026-11-22 07:45");
}

} // namespace
