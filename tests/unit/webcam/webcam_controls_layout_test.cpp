#include "webcam/webcam_controls_layout.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

const WebcamControlsLayout layout({300, 200});

TEST(WebcamControlsLayoutTest, ControlsAreAtTheTopAndAtTheRight)
{
    EXPECT_EQ(layout.rect(WebcamControl::move), (Rect{127, 172, 46, 22}));
    EXPECT_EQ(layout.rect(WebcamControl::close), (Rect{272, 172, 22, 22}));
    EXPECT_EQ(layout.rect(WebcamControl::settings), (Rect{272, 144, 22, 22}));
    EXPECT_EQ(layout.rect(WebcamControl::resize), (Rect{272, 6, 22, 22}));
}

TEST(WebcamControlsLayoutTest, TheHandleIsOnWholePoints)
{
    EXPECT_EQ(WebcamControlsLayout({301, 200}).rect(WebcamControl::move).x, 128);
}

TEST(WebcamControlsLayoutTest, EachIsHitInsideOfIt)
{
    for (const WebcamControl control : WebcamControlsLayout::hitOrder) {
        const Rect rect = layout.rect(control);
        EXPECT_EQ(layout.controlAt({rect.midX(), rect.midY()}), control);
    }
    EXPECT_EQ(layout.controlAt({100, 100}), std::nullopt);
    EXPECT_EQ(layout.controlAt({296, 183}), std::nullopt) << "between control and edge";
}

TEST(WebcamControlsLayoutTest, WhereControlsOverlapTheButtonsComeFirst)
{
    const WebcamControlsLayout narrow({60, 60});
    EXPECT_EQ(narrow.controlAt({42, 43}), WebcamControl::close) << "before the handle";
    EXPECT_EQ(narrow.controlAt({42, 20}), WebcamControl::settings) << "before the resize button";
}

TEST(WebcamControlsLayoutTest, TheHitRegionIsWhatIsHit)
{
    for (const double scale : {1.0, 2.0}) {
        const std::vector<Rect> region = layout.hitRegion(scale);
        ASSERT_EQ(region.size(), 4U);
        for (const WebcamControl control : WebcamControlsLayout::hitOrder)
            EXPECT_NE(std::find(region.begin(), region.end(), layout.rect(control)), region.end()) << scale;
    }
}

} // namespace
} // namespace nimbrale
