// The scans of earlier days in the real program's window: listed, filtered, shown, marked, reused.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <algorithm>
#include <fstream>

namespace fs = std::filesystem;

class ScansWindow : public ProgramRun {
protected:
    HWND scans = nullptr;

    HWND item(int id) const { return GetDlgItem(scans, id); }
    void press(int id) const { PostMessageW(scans, WM_COMMAND, static_cast<WPARAM>(id), 0); }
    int rows() const {
        constexpr UINT getItemCount = 0x1004; // LVM_GETITEMCOUNT
        return static_cast<int>(SendMessageW(item(idScansTable), getItemCount, 0, 0));
    }
    void key(WPARAM virtualKey) const {
        PostMessageW(item(idScansTable), WM_KEYDOWN, virtualKey, 0);
    }
    void type(int id, const char* text) const {
        SendMessageA(item(id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    }
    // The scan's own, beside the old one.
    static fs::path session() {
        const std::vector<fs::path> folders = sessionFolders();
        return folders.empty() ? fs::path() : *std::max_element(folders.begin(), folders.end());
    }
    std::string mapTitle() const { return textOf(topWindow(program, "Kestrel")); }
};

TEST_F(ScansWindow, ShowsMarksAndReusesAScan) {
    ASSERT_NO_FATAL_FAILURE(writeLabSettings(4.0));
    fs::create_directories(dataRoot() / "250101_00-00");
    std::ofstream(dataRoot() / "250101_00-00" / "old.gwy", std::ios::binary) << "GWYPGwyCont";
    program = startProgram(layDesk(true));
    ASSERT_TRUE(awaitMainWindow(program, patiently));
    ASSERT_TRUE(awaitPicture());
    ASSERT_NO_FATAL_FAILURE(selectArea(550, 480, 650, 560));
    ASSERT_NO_FATAL_FAILURE(startScan());
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());

    command(program, idScans);
    ASSERT_TRUE(await([&] { return (scans = topWindow(program, "IV")) != nullptr; }, quickly));
    EXPECT_TRUE(await([&] { return textOf(item(idScansCount)) == "2 scans"; }, patiently))
        << textOf(item(idScansCount));
    EXPECT_EQ(rows(), 2);
    type(idScansFilter, "damaged 2025");
    EXPECT_TRUE(await([&] { return rows() == 1; }, quickly));
    type(idScansFilter, "");
    EXPECT_TRUE(await([&] { return rows() == 2; }, quickly));

    // The newest is the first; Enter is a double click.
    key(VK_END);
    key(VK_HOME);
    key(VK_RETURN);
    EXPECT_TRUE(await(
        [&] {
            return mapTitle().starts_with(
                "Photocurrent - file " + session().string().substr(session().string().size() - 12));
        },
        patiently))
        << mapTitle();

    type(idScansWord, "as it should be");
    press(idScansGood);
    fs::path mark;
    EXPECT_TRUE(await(
        [&] {
            for (const std::string& name : filesIn(session()))
                if (name.ends_with(".mark.txt")) mark = session() / name;
            return !mark.empty();
        },
        patiently));
    EXPECT_EQ(contentOf(mark), "good: as it should be\r\n");

    press(idScansUse);
    const Box box = awaitBox(program, patiently);
    EXPECT_TRUE(box.text.starts_with("Taken: step 4 um, area ")) << box.text;
    EXPECT_EQ(box.text.find("Not taken"), std::string::npos) << box.text;
    ASSERT_TRUE(answerBox(box, IDOK));

    // The scan's own map is back before the next one begins.
    ASSERT_NO_FATAL_FAILURE(startScan());
    EXPECT_TRUE(await([&] { return mapTitle() == "Photocurrent map"; }, patiently)) << mapTitle();
    // The same names in the same folder.
    ASSERT_NO_FATAL_FAILURE(
        answer("Image save Process", "File saving error. New folder will be made.", "OK", IDOK));
    ASSERT_NO_FATAL_FAILURE(awaitScanEnd());
    PostMessageW(item(idScansFilter), WM_KEYDOWN, VK_ESCAPE, 0);
    EXPECT_TRUE(await([&] { return topWindow(program, "IV") == nullptr; }, quickly));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    EXPECT_TRUE(fs::exists(dataRoot() / "Scans.index"));
}
