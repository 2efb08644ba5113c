// The picture on the main window, the saved images, and drawing that fails.
#include "camera/camera.h"
#include "camera/display.h"
#include "camera/spot.h"
#include "session/data_folders.h"
#include "tests/doubles/doubles.h"

#include <algorithm>

namespace {

class DisplayTest : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        cameraState.laserOffset = {640, 500};
    }
    int64_t draw(uint32_t save = 0) { return drawCameraFrame(cameraImage.pixels.get(), save); }
};

TEST_F(DisplayTest, PictureStandsTheRightWayUpWithItsMarks) {
    uint8_t* topLeft = &cameraImage.pixels[size_t{1027} * 1232 * 4];
    topLeft[0] = 1; // blue
    topLeft[1] = 2;
    topLeft[2] = 3;
    cameraImage.pixels[1231 * 4 + 1] = 255; // green, at the bottom right
    EXPECT_EQ(draw(), 1);
    const NativeBitmap& screen = windows.main->client;
    EXPECT_EQ(screen.at(0, 0), 0x030201u);
    EXPECT_EQ(screen.at(1231, 1027), 0x00FF00u);
    EXPECT_EQ(screen.at(1232, 1027), 0xFFFFFFu);
    EXPECT_EQ(screen.at(640 - 5, 1028 - 500), 0xFF0000u); // the spot's mark, 5 around
    EXPECT_EQ(screen.at(640, 1028 - 500), 0u);
    EXPECT_EQ(screen.at(1232 - 150 + 1, 1028 - 100 + 1), 0xFFFF00u); // scale bar
    EXPECT_EQ(screen.at(1232 - 150 + 67, 1028 - 100), 0u);           // its black edge ends here
    EXPECT_EQ(screen.at(1232 - 150 + 68, 1028 - 100 + 2), 0u);
    ASSERT_EQ(drawnTexts.size(), 5u);
    for (const DrawnText& text : drawnTexts) EXPECT_EQ(text.text, "10 um");
    EXPECT_EQ(drawnTexts.back().colour, 0x00FFFFu);
    EXPECT_TRUE(drawnTexts.back().transparent);
}

TEST_F(DisplayTest, DrawingThatFailsIsSaidAndEnds) {
    for (const Drawing kind : {Drawing::MakeBitmap, Drawing::MakeContext}) {
        drawingFailures[kind] = 100;
        EXPECT_EQ(draw(), 0);
        EXPECT_NE(textIn(Field::Information).find("ailed"), std::string::npos);
        drawingFailures = {};
        EXPECT_EQ(draw(), 1);
    }
}

TEST_F(DisplayTest, ImagesAreNumberedCameraAndWindowsApart) {
    display.drawnRectangle = {100, 100, 200, 180};
    ensureSessionFolder(dataFolders);
    draw(1);
    display.drawnRectangle = {600, 500, 640, 530, 3}; // on a wide view
    draw(1);
    placeMapWindow(1450, 0, 300, 200);
    EXPECT_EQ(saveWindowImage(dataFolders, windows.map, 0, "CONF_R"), 1);
    EXPECT_EQ(saveWindowImage(dataFolders, windows.main, 1, "optics"), 1);
    EXPECT_EQ(windows.map->timesPainted, 1);
    const struct {
        const wchar_t* name;
        int width, height;
    } images[] = {{L"\\camera(0).jpg", 1232, 1028},
                  {L"\\camera(1).jpg", 1232, 1028},
                  {L"\\CONF_R(0).jpg", 300 - 16, 200 - 39},
                  {L"\\optics(1).jpg", 1232, 1028}};
    ASSERT_EQ(savedImages.size(), std::size(images));
    for (size_t i = 0; i < std::size(images); i++) {
        EXPECT_EQ(savedImages[i].path, dataFolders.sessionFolder + images[i].name);
        EXPECT_EQ(savedImages[i].width, images[i].width);
        EXPECT_EQ(savedImages[i].height, images[i].height);
    }
    EXPECT_EQ(savedImages[0].pixels[100 * 1232 + 150], 0x00FF00u); // the drawn rectangle
    EXPECT_EQ(savedImages[0].pixels[150 * 1232 + 150], 0u);
    EXPECT_EQ(savedImages[1].pixels[472 * 1232 + 600], 0x00FF00u);
    EXPECT_EQ(savedImages[1].pixels[500 * 1232 + 568], 0x00FF00u);
}

TEST_F(DisplayTest, WindowImageThatFailsUsesUpItsNumber) {
    drawingFailures[Drawing::SelectBitmap] = 20;
    EXPECT_EQ(saveWindowImage(dataFolders, windows.main, 0, "KST"), 0);
    drawingFailures = {{Drawing::CopyArea, 3}, {Drawing::Save, 1}};
    EXPECT_EQ(saveWindowImage(dataFolders, windows.main, 0, "KST"), 1);
    EXPECT_EQ(saveWindowImage(dataFolders, windows.main, 0, "KST"), 1);
    ASSERT_EQ(savedImages.size(), 1u);
    EXPECT_TRUE(savedImages[0].path.ends_with(L"KST(1).jpg"));
}

} // namespace
