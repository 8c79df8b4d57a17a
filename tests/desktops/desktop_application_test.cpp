// The application itself on real desktops: it makes its virtual display there; what it shares is the region, without
// one pixel of the frame.

#include "tests/desktops/marked_application.h"

#include <array>

namespace nimbrale::test {
namespace {

constexpr int picturesToLookThrough = 2000;

class DesktopApplication : public MarkedApplication {
protected:
    /// Drags the frame by its handle from where it lies around `from` to `to`, the windows below moving too.
    void dragAndLook(const QPoint& from, const QPoint& to, Look& found)
    {
        constexpr int steps = 50;
        const QPoint handle = Application::handleOf(QRect(from, region.size()));
        desktop().movePointer(handle);
        sleepFor(Milliseconds{100});
        desktop().pressButton();
        for (int step = 1; step <= steps; ++step) {
            desktop().movePointer(handle + (to - from) * step / steps);
            if (step % 5 == 0)
                scene->move("front", {480 + step, 240 + step % 10});
            for (int time = 0; time < 2; ++time) {
                sleepFor(Milliseconds{8});
                look(found);
            }
        }
        desktop().releaseButton();
    }
};

TEST_P(DesktopApplication, MakesAVirtualDisplayOrSharesAWindowWhereThereCanBeNone)
{
    expectAVirtualDisplayOrAWindow();
}

TEST_P(DesktopApplication, SharesTheRegion)
{
    ASSERT_TRUE(waitForShare()) << said();
    expectTheRegionOnIt();
}

TEST_P(DesktopApplication, LeavesTheScreenAsItWas)
{
    ASSERT_TRUE(waitForShare()) << said();
    if (sharedArea(desktop()).isNull()) {
        EXPECT_TRUE(waitUntil([&] { return desktop().screenSize() == screenSize_; }, Milliseconds{5000}))
            << "without a virtual display the screen is larger all the same: " << describe(desktop().screenSize());
    }
    EXPECT_EQ(application_->quit(), 0) << said();
    EXPECT_TRUE(waitUntil([] { return !desktop().monitorNamed("Nimbrale"); }, Milliseconds{5000}));
    EXPECT_TRUE(waitUntil([&] { return desktop().screenSize() == screenSize_; }, Milliseconds{5000}))
        << describe(desktop().screenSize()) << " instead of " << describe(screenSize_);
}

TEST_P(DesktopApplication, SharesNotOnePixelOfTheFrameWhileItIsDragged)
{
    ASSERT_TRUE(waitForShare()) << said();
    Look found;
    QPoint place = region.topLeft();
    const std::array<QPoint, 4> corners{QPoint(420, 260), QPoint(360, 300), QPoint(180, 240), region.topLeft()};
    constexpr int mostDrags = 100;
    for (std::size_t round = 0; round < mostDrags && found.pictures < picturesToLookThrough; ++round) {
        const QPoint corner = corners.at(round % corners.size());
        dragAndLook(place, corner, found);
        place = corner;
        const QPoint stored = place - QPoint(0, topOfRegions());
        ASSERT_TRUE(waitUntil([&] { return application_->storedRegion().topLeft() == stored; }, Milliseconds{3000}))
            << "the drag is not followed: at (" << application_->storedRegion().x() << ", "
            << application_->storedRegion().y() << "); kept as " << keepImage(desktop().screenshot(), "screen");
    }
    expectNoLeakIn(found, picturesToLookThrough, QRect(place, region.size()));
    EXPECT_EQ(application_->quit(), 0) << said();
}

class DesktopApplicationOnACard : public DesktopApplication {
protected:
    [[nodiscard]] PrivateDesktop::Server server() const override { return PrivateDesktop::Server::xorgDummy; }
};

TEST_P(DesktopApplicationOnACard, MakesAVirtualDisplayOrSharesAWindowWhereThereCanBeNone)
{
    expectAVirtualDisplayOrAWindow();
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopApplication, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopApplication, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopApplication, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopApplication, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopApplication, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopApplicationOnACard, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopApplicationOnACard, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopApplicationOnACard, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopApplicationOnACard, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopApplicationOnACard, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
