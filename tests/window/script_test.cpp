// A night by a script: the example of the guide, in Python over PyVISA, drives the real program.
#include "tests/window/program_run.h"
#include "virtual_lab/lab.h"

#include <cmath>
#include <cstdlib>

namespace fs = std::filesystem;

class Script : public ProgramRun {
protected:
    static void writeOptions() {
        fs::create_directories(dataRoot());
        std::FILE* file = _wfopen((dataRoot() / "Options.ini").c_str(), L"wb");
        ASSERT_TRUE(file);
        std::fprintf(file,
                     "port for scripts = %s\nscripts may connect = yes\n"
                     "scripts may switch laser and bias = yes\n",
                     std::getenv("LUMASCAN_PORT"));
        std::fclose(file);
    }

    // Of an area whose first point the stage reaches at (left, bottom); amperes.
    static void expectMap(const fs::path& path, double laserVolts, double left, double bottom) {
        const std::vector<std::vector<double>> map = readMap(path);
        ASSERT_EQ(map.size(), 6u) << path;
        const LabPixel spot = labSpotPixel();
        for (size_t r = 0; r < map.size(); ++r) {
            ASSERT_EQ(map[r].size(), 9u);
            for (size_t column = 0; column < map[r].size(); ++column) {
                const double x = left + 4.0 * static_cast<double>(column) +
                                 (spot.column - labCentreColumn) * labUmPerPixel;
                const double y = bottom + 4.0 * static_cast<double>(map.size() - 1 - r) +
                                 (spot.row - labCentreRow) * labUmPerPixel;
                double least = 9e9, most = -9e9;
                for (double dx : {-0.1, 0.0, 0.1})
                    for (double dy : {-0.1, 0.0, 0.1})
                        for (double z : {0.0, 0.4, 0.8}) {
                            const double amperes =
                                expectedCurrent(x + dx, y + dy, laserVolts, z, 0.0);
                            least = std::min(least, amperes);
                            most = std::max(most, amperes);
                        }
                EXPECT_GE(map[r][column], least - 1e-8) << path << column << ", " << r;
                EXPECT_LE(map[r][column], most + 1e-8) << path << column << ", " << r;
            }
        }
    }
};

TEST_F(Script, RunsTheNightOfTheGuide) {
    ASSERT_NO_FATAL_FAILURE(writeLabSettings(4.0));
    ASSERT_NO_FATAL_FAILURE(writeOptions());
    program = startProgram(layDesk(true));
    ASSERT_TRUE(awaitMainWindow(program, patiently));
    ASSERT_TRUE(
        await([&] { return textOf(program.window).find("script in command") != std::string::npos; },
              patiently));
    const fs::path night = std::getenv("LUMASCAN_NIGHT");
    ASSERT_TRUE(await([&] { return fs::exists(night / "night.json"); }, 4 * patiently))
        << contentOf(night.parent_path() / "night.log");
    ASSERT_TRUE(await([&] { return textOf(program.window) == "Lumascan"; }, quickly));
    EXPECT_EQ(textOf(information()).find("script"), std::string::npos);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
    expectMap(night / "map_8uA.csv", 2.0, 10.0, -20.0);
    expectMap(night / "map_16uA.csv", 4.0, 10.0, -20.0);
    for (const char* name :
         {"map_8uA.png", "map_16uA.png", "curve_0.csv", "curve_1.csv", "curve_2.csv"})
        EXPECT_TRUE(fs::exists(night / name)) << name;
}
