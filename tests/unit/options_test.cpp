// Options.ini: what is kept under a name, and what else stands in the file.
#include "session/options.h"
#include "tests/doubles/doubles.h"

namespace {

using OptionsTest = LabTest;

constexpr char file[] = "KST_Data/Options.ini";

TEST_F(OptionsTest, KeepsWhatItDoesNotKnow) {
    EXPECT_EQ(readOption("a"), "") << "no file";
    ASSERT_TRUE(writeOptions({{"a", "1"}, {"b", "x = y"}}));
    EXPECT_EQ(contentOf(file), "a = 1\nb = x = y\n");
    // By hand, on another system, and by nobody who knew the format.
    writeDesktopFile(file,
                     std::string("# note\r\n\r\n  b=  old \t\r\n\x1a\x00=\na = 2\na = 3\nend", 42));
    EXPECT_EQ(readOption("b"), "old");
    EXPECT_EQ(readOption("a"), "2");
    EXPECT_EQ(readOption("end"), "");
    ASSERT_TRUE(writeOptions({{"b", "new"}, {"c", ""}}));
    EXPECT_EQ(contentOf(file),
              std::string("# note\n\nb = new\n\x1a\x00=\na = 2\na = 3\nend\nc = \n", 41));
}

TEST_F(OptionsTest, FailedWriteLeavesTheFileAsItWas) {
    ASSERT_TRUE(writeOptions({{"a", "1"}}));
    refusedFile = "Options.ini.new";
    testing::internal::CaptureStdout();
    EXPECT_FALSE(writeOptions({{"a", "2"}}));
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(contentOf(file), "a = 1\n");
}

} // namespace
