// Remembered places, the way to them, and the plane through their foci.
#include "tests/doubles/doubles.h"

#include "camera/picture_file.h"
#include "motion/focus_plane.h"
#include "motion/places.h"
#include "motion/stage.h"
#include "motion/travel.h"
#include "screen/control_ids.h"
#include "session/set_up.h"
#include "ui/commands.h"
#include "ui/places_window.h"
#include "ui/tool_windows.h"

namespace {

class PlacesTest : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        openBoth();
    }
    void TearDown() override {
        if (!toolWindows.empty()) destroyToolWindow(toolWindows.back());
        WindowTest::TearDown();
    }
    static void openBoth() { ASSERT_TRUE(openStages(2, motorSpeed)); }
    static void reconnect() {
        closeAllStages();
        openBoth();
    }
    static Place remember(const char* name) {
        std::string fault;
        Place place = presentPlace(fault).value_or(Place());
        EXPECT_EQ(fault, "");
        place.name = name;
        EXPECT_TRUE(writePlace(place));
        return place;
    }
    static void press(int id) { onToolCommand(toolWindows.back(), id); }
};

TEST_F(PlacesTest, AreGoneToAfterAnotherZeroAndARestart) {
    for (const double z : {35.0, 30.0}) ASSERT_EQ(travelTo({120.0, -40.0, z}), ""); // from above
    const double truth[] = {labStageUm(labX), labStageUm(labY), labStageUm(labZ)};
    onCommand(idRememberPlace);
    setPosition(stageX, 7.0);
    ASSERT_TRUE(moveXYTo(-60.0, 80.0, motorSpeed));
    ASSERT_TRUE(moveTo(stageZ, -20.0));
    reconnect();
    EXPECT_EQ(placesCell(0, 1), "Place 1");
    uint64_t moves = labCounters().moves;
    setUp.ranges[1].lowest = ofController(stageY, -20.0);
    answer("Not gone: ", BoxAnswer::Ok); // no axis moves where one of them may not
    setUp.ranges[1].lowest = -1e9;
    const std::string zero = std::exchange(stageZ.zero, "another");
    press(idPlacesGo);
    stageZ.zero = zero;
    EXPECT_EQ(labCounters().moves, moves);
    setUp.ranges[1].lowest = ofController(stageY, -20.0);
    press(idPlacesGo);
    EXPECT_EQ(labCounters().moves, moves);
    EXPECT_NE(textIn(Field::Information).find("beyond its lowest place"), std::string::npos);
    setUp.ranges[1].lowest = -1e9;
    // Z, which comes nearer to the sample, goes last.
    double zWhileXMoved = 0.0;
    when([] { return labStageMoves(labX); }, [&] { zWhileXMoved = labStageUm(labZ); });
    press(idPlacesGo);
    EXPECT_LT(zWhileXMoved, 0.0);

    for (const int axis : {labX, labY, labZ}) EXPECT_NEAR(labStageUm(axis), truth[axis], 2.01);
    EXPECT_NEAR(labStageUm(labZ), truth[labZ], 0.1) << "with the same play";
    EXPECT_EQ(contentOf("KST_Data/Places/1.bmp"), "") << "without a camera";
}

TEST_F(PlacesTest, OfAControllerThatCountsAnewAreLost) {
    ASSERT_EQ(travelTo({10.0, 10.0, 10.0}), "");
    remember("before");
    keepPlaces();
    ASSERT_TRUE(applyLabFaults("board absent"));
    cycleLabStagePower();
    reconnect();
    std::vector<std::string> refused;
    EXPECT_EQ(whyLost(readPlaces(refused).at(0)), "stage X has lost its place since");
    for (StageAxis* axis : {&stageX, &stageY}) EXPECT_TRUE(moveTo(*axis, 5.0));
    answer("Move Z all the same?", BoxAnswer::Yes);
    EXPECT_TRUE(moveTo(stageZ, 5.0));
    remember("behind");
    keepPlaces();
    reconnect(); // nothing was lost this time
    const std::vector<Place> places = readPlaces(refused);
    EXPECT_EQ(whyLost(places.at(0)), "stage X has lost its place since");
    EXPECT_EQ(whyLost(places.at(1)), "");
    ASSERT_TRUE(applyLabFaults("axis x replaced"));
    answerOthers = [](const ShownBox&) { return BoxAnswer::Yes; };
    reconnect();
    answerOthers = {};
    EXPECT_NE(whyLost(readPlaces(refused).at(1)), "");
    EXPECT_TRUE(refused.empty());
}

TEST_F(PlacesTest, ABrokenLineIsSaidAndStays) {
    remember("a, b");
    const std::string whole = contentOf("KST_Data/Places.ini");
    const std::string broken = "place 7 = x 12.5.1 steps at 1 a um of COM3, name odd\nrubbish\n";
    writeDesktopFile("KST_Data/Places.ini", whole + broken);
    std::vector<std::string> refused;
    std::vector<Place> places = readPlaces(refused);
    ASSERT_EQ(places.size(), 1u);
    EXPECT_EQ(places[0].name, "a, b");
    ASSERT_EQ(refused.size(), 2u);
    EXPECT_TRUE(refused[0].starts_with("Places.ini, line 2: x is no count of a controller"))
        << refused[0];
    EXPECT_TRUE(refused[1].starts_with("Places.ini, line 3: \"rubbish\" is not")) << refused[1];
    EXPECT_EQ(remember("next").number, 8);
    EXPECT_TRUE(removePlace(places[0]));
    EXPECT_NE(contentOf("KST_Data/Places.ini").find(broken), std::string::npos);
    refused.clear();
    places = readPlaces(refused);
    ASSERT_EQ(places.size(), 1u);
    EXPECT_EQ(places[0].name, "next");
    unreadableFile = "Places.ini";
    EXPECT_FALSE(writePlace(places[0])) << "what is not known is not written over";
}

TEST_F(PlacesTest, StayWithTheirZUnderTheirObjective) {
    remember("under the first");
    setUp.objectives.push_back({});
    setUp.objectiveInUse = 2;
    ASSERT_TRUE(moveXYTo(30.0, 30.0, motorSpeed));
    ASSERT_TRUE(moveTo(stageZ, 25.0));
    onCommand(idPlaces);
    press(idPlacesGo);
    EXPECT_EQ(stageX.positionUm, 0.0);
    EXPECT_NEAR(stageZ.positionUm, 25.0, 0.01);
    EXPECT_NE(textIn(Field::Information).find("Z stays"), std::string::npos);
}

TEST(FocusPlane, FitsTheFociAndRefusesALine) {
    std::vector<FocusPoint> points;
    for (const auto& [x, y] : {std::pair(0, 0), {100, 0}, {0, 80}, {100, 80}})
        points.push_back({x + 1e5, y - 1e5, 3.0 + 0.02 * x - 0.01 * y});
    points.back().zUm += 0.4;
    std::string fault;
    const std::optional<FocusFit> fit = fitFocusPlane(points, fault);
    ASSERT_TRUE(fit) << fault;
    EXPECT_NEAR(fit->plane.perX, 0.02 + 0.4 / 2 / 100, 1e-9);
    EXPECT_NEAR(fit->plane.perY, -0.01 + 0.4 / 2 / 80, 1e-9);
    for (const double residual : fit->residualsUm) EXPECT_NEAR(std::fabs(residual), 0.1, 1e-9);
    for (const auto& [x, y, z] :
         {std::tuple(50.0, 4.0, 1.0), {1e-9, 0.0, 0.0}, {0.0, 40.0, 99.0}}) {
        const std::vector<FocusPoint> few = {{0, 0, 0}, {100, 0, 1}, {x, y, z}};
        const bool steep = z == 99.0;
        EXPECT_FALSE(fitFocusPlane(few, fault));
        EXPECT_NE(fault.find(steep ? "steeper" : "nearly on a line"), std::string::npos) << fault;
    }
    points.resize(2);
    EXPECT_FALSE(fitFocusPlane(points, fault));
}

TEST(PictureFile, KeepsItsPixels) {
    std::vector<uint32_t> pixels(size_t{thumbnailWidth} * thumbnailHeight);
    for (size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<uint32_t>(i * 40503 & 0xFFFFFF);
    const std::string file = bitmapOfThumbnail(pixels);
    EXPECT_EQ(thumbnailOfBitmap(file), pixels);
    EXPECT_TRUE(thumbnailOfBitmap(file.substr(1)).empty());
}

} // namespace
