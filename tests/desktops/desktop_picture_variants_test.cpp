// The same as desktop_picture_test and desktop_application_test where the desktop is scaled by two, and where its
// compositing manager is off: then the picture is made of the windows' own pixels. Only what can differ there is looked
// at again, since each desktop takes seconds for each: who draws a window's decoration, a window that lies in front of
// the desktop's bars, a menu, and that the frame lies around what is shared.

#include "tests/desktops/compositing_switch.h"
#include "tests/desktops/marked_application.h"
#include "tests/desktops/picture_test.h"

namespace nimbrale::test {
namespace {

template <typename Fixture>
class Scaled : public Fixture {
protected:
    [[nodiscard]] int scale() const override { return 2; }
};

template <typename Fixture>
class Uncomposited : public Fixture {
protected:
    void prepareSession() override
    {
        setCompositing(this->GetParam(), this->desktop(), false);
        ASSERT_TRUE(waitUntil([this] { return !this->desktop().isComposited(); }, compositingPatience));
    }
};

class DesktopScaledPicture : public Scaled<PictureTest> {};

TEST_P(DesktopScaledPicture, OfDecoratedWindows)
{
    expectDecoratedWindows();
}

TEST_P(DesktopScaledPicture, OfAFullScreenWindow)
{
    expectAFullScreenWindow();
}

TEST_P(DesktopScaledPicture, OfWindowsThatDecorateThemselves)
{
    expectWindowsThatDecorateThemselves();
}

TEST_P(DesktopScaledPicture, OfAnOpenMenu)
{
    expectAnOpenMenu();
}

class DesktopScaledApplication : public Scaled<MarkedApplication> {};

TEST_P(DesktopScaledApplication, SharesTheRegion)
{
    ASSERT_TRUE(waitForShare()) << said();
    expectTheRegionOnIt();
}

class DesktopUncompositedPicture : public Uncomposited<PictureTest> {};

TEST_P(DesktopUncompositedPicture, OfDecoratedWindows)
{
    expectDecoratedWindows();
}

TEST_P(DesktopUncompositedPicture, OfAFullScreenWindow)
{
    expectAFullScreenWindow();
}

TEST_P(DesktopUncompositedPicture, OfWindowsThatDecorateThemselves)
{
    expectWindowsThatDecorateThemselves();
}

TEST_P(DesktopUncompositedPicture, OfAnOpenMenu)
{
    expectAnOpenMenu();
}

class DesktopUncompositedApplication : public Uncomposited<MarkedApplication> {};

TEST_P(DesktopUncompositedApplication, SharesTheRegion)
{
    ASSERT_TRUE(waitForShare()) << said();
    expectTheRegionOnIt();
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopScaledPicture, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopScaledPicture, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopScaledPicture, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopScaledPicture, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopScaledPicture, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopScaledApplication, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopScaledApplication, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopScaledApplication, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopScaledApplication, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopScaledApplication, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopUncompositedPicture, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopUncompositedPicture, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopUncompositedPicture, testing::Values(DesktopKind::plasma));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopUncompositedApplication, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopUncompositedApplication, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopUncompositedApplication, testing::Values(DesktopKind::plasma));

} // namespace
} // namespace nimbrale::test
