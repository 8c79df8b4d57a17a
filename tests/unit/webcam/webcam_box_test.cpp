#include "webcam/webcam_box.h"

#include <QTemporaryDir>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace nimbrale {
namespace {

using Shape = AppSettings::WebcamShape;

constexpr Size region{1280, 720};

TEST(WebcamBoxTest, ABoxInTheRegionStays)
{
    EXPECT_EQ(clampedWebcamBox({10, 20, 320, 180}, region, Shape::rounded), (Rect{10, 20, 320, 180}));
}

TEST(WebcamBoxTest, ASmallBoxGrows)
{
    EXPECT_EQ(clampedWebcamBox({0, 0, 80, 60}, region, Shape::rectangle), (Rect{0, 0, 120, 120}));
}

TEST(WebcamBoxTest, ABoxLargerThanTheRegionIsCutToIt)
{
    EXPECT_EQ(clampedWebcamBox({50, 50, 2000, 900}, region, Shape::rectangle), (Rect{0, 0, 1280, 720}));
}

TEST(WebcamBoxTest, InARegionSmallerThanTheSmallestBoxItFillsTheRegion)
{
    EXPECT_EQ(clampedWebcamBox({5, 5, 300, 300}, {100, 60}, Shape::rectangle), (Rect{0, 0, 100, 60}));
    EXPECT_EQ(clampedWebcamBox({5, 5, 300, 300}, {100, 60}, Shape::circle), (Rect{5, 0, 60, 60}));
}

TEST(WebcamBoxTest, ACircleIsAsWideAsHigh)
{
    EXPECT_EQ(clampedWebcamBox({0, 0, 300, 200}, region, Shape::circle), (Rect{0, 0, 200, 200}));
    EXPECT_EQ(clampedWebcamBox({0, 0, 200, 300}, region, Shape::circle), (Rect{0, 0, 200, 200}));
}

TEST(WebcamBoxTest, ABoxOutsideIsPushedBack)
{
    EXPECT_EQ(clampedWebcamBox({1200, 0, 200, 200}, region, Shape::rectangle).x, 1080);
    EXPECT_EQ(clampedWebcamBox({-40, 700, 200, 200}, region, Shape::rectangle), (Rect{0, 520, 200, 200}));
}

TEST(WebcamBoxTest, FractionsAreRoundedOutward)
{
    EXPECT_EQ(clampedWebcamBox({10.4, 20.6, 200.2, 150.2}, region, Shape::rectangle), (Rect{10, 20, 201, 151}));
}

TEST(WebcamBoxTest, WhatIsNoNumberBecomesTheLeast)
{
    const double nothing = std::numeric_limits<double>::quiet_NaN();
    const double endless = std::numeric_limits<double>::infinity();
    EXPECT_EQ(clampedWebcamBox({nothing, nothing, nothing, nothing}, region, Shape::rounded), (Rect{0, 0, 120, 120}));
    EXPECT_EQ(clampedWebcamBox({endless, -endless, endless, 200}, region, Shape::rounded), (Rect{0, 0, 1280, 200}));
}

class StoredWebcamBoxTest : public testing::Test {
protected:
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
};

TEST_F(StoredWebcamBoxTest, OneThatWasNeverPlacedIsInTheBottomRightCorner)
{
    EXPECT_EQ(storedWebcamBox(settings_, region), (Rect{944, 524, 320, 180}));
}

TEST_F(StoredWebcamBoxTest, OneThatWasNeverPlacedHasTheSizeThatTheRegionAllows)
{
    EXPECT_EQ(storedWebcamBox(settings_, {300, 150}), (Rect{-16, -16, 300, 150})) << "before it is clamped";
    settings_.setWebcamShape(Shape::circle);
    EXPECT_EQ(storedWebcamBox(settings_, region), (Rect{1084, 524, 180, 180}));
}

TEST_F(StoredWebcamBoxTest, OneThatWasPlacedIsAsItWasStored)
{
    settings_.setWebcamX(0);
    settings_.setWebcamY(30);
    EXPECT_EQ(storedWebcamBox(settings_, region), (Rect{0, 30, 320, 180}));
}

TEST(WebcamBoxTest, FramesOnTheScreenAndBoxesBelongTogether)
{
    const DisplayGeometry geometry{{1920, 1080}, {100, 50, 1920, 1080}, 24};
    const Rect framed{200, 100, 800, 600};
    const Rect box{10, 20, 320, 180};
    const Rect frame = webcamScreenFrameOf(box, geometry, framed);
    EXPECT_EQ(frame, (Rect{310, 830, 320, 180}));
    EXPECT_EQ(webcamBoxOf(frame, geometry, framed), box);
}

// A display's height is no whole number of points at such scales.
TEST(WebcamBoxTest, OnTheScreenAndBackABoxStaysAsItIsAtEveryScale)
{
    constexpr double pixelsHigh = 767;
    for (const double scale : {1.0, 1.25, 1.5, 1.75, 2.0, 2.25}) {
        const double height = pixelsHigh / scale;
        const DisplayGeometry geometry{{500, std::floor(height)}, {1366 / scale, 411 / scale, 500, height}, 0};
        const Rect framed{30, 40, 450, 290};
        int changed = 0;
        for (int y = 0; y <= 160; ++y) {
            const Rect box{static_cast<double>(2 * y), static_cast<double>(y), 125, 121};
            const Rect back = webcamBoxOf(webcamScreenFrameOf(box, geometry, framed), geometry, framed);
            changed += clampedWebcamBox(back, framed.size(), Shape::rectangle) != box ? 1 : 0;
        }
        EXPECT_EQ(changed, 0) << "at " << scale;
    }
}

} // namespace
} // namespace nimbrale
