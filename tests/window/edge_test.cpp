// What the program asks of Windows itself, where Windows or another program makes it hard.
#include "instruments/number_extraction.h"
#include "platform/files.h"
#include "platform/text_format.h"
#include "platform/typed_number.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

// `parser` needs this; no number here is too long.
void endProgram(const char*) {
    std::abort();
}

TEST(Edge, GetsAtFilesThatAnotherProgramStillReads) {
    const fs::path folder = fs::temp_directory_path() / "files";
    fs::remove_all(folder);
    fs::create_directories(folder);
    const fs::path from = folder / "new.tmp", to = folder / "old.txt";
    const auto whileHeld = [](const fs::path& file, DWORD ms, auto work) {
        std::ofstream(file) << "held";
        HANDLE held = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(held, INVALID_HANDLE_VALUE);
        std::thread scanner([=] {
            Sleep(ms);
            CloseHandle(held);
        });
        work();
        scanner.join();
    };
    std::ofstream(from) << "new";
    whileHeld(to, 150, [&] { EXPECT_TRUE(replaceFile(from.wstring(), to.wstring())); });
    whileHeld(from, 150, [&] { EXPECT_TRUE(replaceFile(from.wstring(), to.wstring())); });
    whileHeld(to, 150, [&] { removeFile(to.wstring()); });
    EXPECT_FALSE(fs::exists(to));
    std::ofstream(from) << "new";
    whileHeld(to, 900, [&] { EXPECT_FALSE(replaceFile(from.wstring(), to.wstring())); });
    EXPECT_TRUE(fs::exists(from)) << "both are as they were";
}

TEST(Edge, ReadsAndWritesNumbersWithAPointWhateverALibraryHasSet) {
    const char* const set = std::setlocale(LC_ALL, "German_Germany");
    ASSERT_TRUE(set);
    char text[8];
    std::snprintf(text, sizeof text, "%.1f", 0.5);
    ASSERT_STREQ(text, "0,5");
    EXPECT_EQ(formatted("%.2f", 1.25), "1.25");
    for (const auto& read :
         {+[] { return typedNumber("1.25").value_or(0.0f); },
          +[] { return extractNumber("NDCA+1.25E+00\n", 14, ReplyKind::Multimeter).value(); }}) {
        std::setlocale(LC_ALL, "German_Germany");
        EXPECT_EQ(read(), 1.25f);
    }
}
