// How the program begins: what it leaves alone, and what it keeps others from.
#include "tests/window/program_run.h"

#include <map>

namespace fs = std::filesystem;

using Start = ProgramRun;

// Every file below the folders, but what a program prints.
static std::map<std::string, std::string> filesBelow(const std::vector<fs::path>& folders) {
    std::map<std::string, std::string> files;
    for (const fs::path& folder : folders)
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file() && entry.path().extension() != ".out")
                files[entry.path().string()] = contentOf(entry.path());
    return files;
}

TEST_F(Start, ASecondProgramTouchesNothingAndShowsTheFirst) {
    ASSERT_NO_FATAL_FAILURE(writeSettings("step:2.0, laser:4.00, laser correct:(0,0), Ammeter:4"));
    program = startProgram(layDesk(true), "first.out");
    ASSERT_TRUE(awaitMainWindow(program, patiently));
    ASSERT_TRUE(awaitPicture());
    const auto before = filesBelow({program.folder, dataRoot()});
    ASSERT_NE(before.at((program.folder / "instrument_commands.log").string()), "");
    ASSERT_NE(before.at((program.folder / "board_commands.log").string()), "");

    Program second = startProgram(program.folder, "second.out");
    const Box box = awaitBox(second, patiently);
    EXPECT_EQ(box.text, "Lumascan runs already, and only one may drive the instruments.");
    EXPECT_NE(GetForegroundWindow(), program.window);
    EXPECT_TRUE(answerBox(box, IDOK));
    EXPECT_EQ(awaitExit(second, patiently), 0);
    EXPECT_FALSE(topWindow(second, "LUMA"));
    endProgram(second);
    EXPECT_TRUE(await([&] { return GetForegroundWindow() == program.window; }, quickly));
    EXPECT_EQ(filesBelow({program.folder, dataRoot()}), before);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}

// Whoever can write there could otherwise put another library before the vendor's.
TEST_F(Start, LoadsNoLibraryFromTheFolderItWasStartedIn) {
    const fs::path desk = layDesk(true), elsewhere = desk.parent_path() / "elsewhere";
    fs::remove_all(elsewhere);
    fs::rename(desk, elsewhere);
    program = startProgram(layDesk(false), "output.txt", elsewhere);
    answer("Scanner Error", "No devices found", "OK", IDOK);
}
