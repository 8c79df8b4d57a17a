// The frame at the very top of the display, over or below the desktop's bar: its controls do what they show.

#include "tests/desktops/desktop_test.h"
#include "tests/desktops/shared_picture.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"

namespace nimbrale::test {
namespace {

class DesktopControls : public DesktopTest {
protected:
    /// Between a desktop's icons and where a shell's own banners come, which take what is clicked there.
    static constexpr int left = 160;
    static constexpr QSize size{220, 300};

    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        bar_ = session().workArea().top();
        before_ = desktop().screenshot({QPoint(left, 0), size});
        std::string reason;
        // Stored places count from one point below a bar at the top.
        application_ = Application::start(desktop(), {.region = {QPoint(left, bar_ > 0 ? 1 - bar_ : 0), size}}, reason);
        ASSERT_TRUE(application_) << reason;
        ASSERT_TRUE(desktop().waitForPixel(left + size.width() / 4, 2, frameColor, Milliseconds{10000}))
            << "the control: the frame touches the top; kept as " << keepImage(desktop().screenshot(), "screen");
    }

    void TearDown() override
    {
        application_.reset();
        DesktopTest::TearDown();
    }

    /// The first row below the bar where a shell keeps the clicks on it.
    [[nodiscard]] int reachableTop() const
    {
        return GetParam() == DesktopKind::gnome || GetParam() == DesktopKind::cinnamon ? bar_ : 0;
    }

    const QColor frameColor{255, 214, 10};
    int bar_ = 0;
    /// What the display shows there without the application.
    QImage before_;
    std::unique_ptr<Application> application_;
};

TEST_P(DesktopControls, TheFrameIsDraggedByItsHandleFromTheTop)
{
    const QPoint handle(left + size.width() / 2, reachableTop() + 11);
    desktop().drag(handle, handle + QPoint(170, 200), 20);
    const QPoint expected(left + 170, 200 - (bar_ > 0 ? bar_ - 1 : 0));
    EXPECT_TRUE(waitUntil([&] { return application_->storedRegion().topLeft() == expected; }, Milliseconds{3000}))
        << application_->storedRegion().x() << ", " << application_->storedRegion().y() << "; kept as "
        << keepImage(desktop().screenshot(), "screen");
    EXPECT_EQ(application_->quit(), 0);
}

TEST_P(DesktopControls, BelowThemTheFarSideSeesWhatWasThere)
{
    const auto belowTheBar = [this](const QImage& picture) { return picture.copy(QRect({0, bar_}, size)); };
    static_cast<void>(
        waitUntil([&] { return imagesAreAlike(belowTheBar(sharedPicture(desktop())), belowTheBar(before_)); },
                  Milliseconds{5000}));
    EXPECT_TRUE(imagesMatch(belowTheBar(sharedPicture(desktop())), belowTheBar(before_)));
    EXPECT_EQ(application_->quit(), 0);
}

TEST_P(DesktopControls, TheCloseButtonAtTheTopEndsTheApplication)
{
    const int middle = reachableTop() > 0 ? reachableTop() + 11 : 3 + 11;
    desktop().click(QPoint(left + size.width() + 2, middle));
    EXPECT_EQ(application_->process().waitForEnd(Milliseconds{5000}), 0)
        << "kept as " << keepImage(desktop().screenshot(), "screen");
}

/// Super alone opens something on these.
class DesktopSuperKey : public DesktopControls {
protected:
    static constexpr std::uint32_t superLeft = 0xffeb;
    static constexpr std::uint32_t escape = 0xff1b;
    /// Where no frame comes; menus and overviews do.
    static constexpr QRect below{0, 560, 1280, 160};

    [[nodiscard]] static int changedSince(const QImage& before)
    {
        const QImage now = desktop().screenshot(below);
        int changed = 0;
        for (int y = 0; y < now.height(); ++y) {
            for (int x = 0; x < now.width(); ++x)
                changed += now.pixel(x, y) != before.pixel(x, y);
        }
        return changed;
    }

    /// More than a clock's next minute.
    static constexpr int something = 4000;
};

TEST_P(DesktopSuperKey, ADragWithItHeldOpensNothing)
{
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot(below);
    const QPoint handle(left + size.width() / 2, reachableTop() + 11);
    desktop().pressKey(superLeft);
    sleepFor(Milliseconds{300});
    desktop().drag(handle, handle + QPoint(170, 150), 20);
    desktop().releaseKey(superLeft);
    EXPECT_FALSE(waitUntil([&] { return changedSince(before) > something; }, Milliseconds{2000}))
        << "kept as " << keepImage(desktop().screenshot(), "screen");
    EXPECT_TRUE(waitUntil([&] { return application_->storedRegion().x() > left + 100; }, Milliseconds{3000}))
        << "the control: it was dragged";

    desktop().pressKey(superLeft);
    sleepFor(Milliseconds{100});
    desktop().releaseKey(superLeft);
    EXPECT_TRUE(waitUntil([&] { return changedSince(before) > something; }, Milliseconds{5000}))
        << "the control: by itself the key opens something";
    desktop().pressKey(escape);
    desktop().releaseKey(escape);
    EXPECT_TRUE(waitUntil([&] { return changedSince(before) < something; }, Milliseconds{5000}));
    EXPECT_EQ(application_->quit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Plasma, DesktopSuperKey, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopSuperKey, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopSuperKey, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopControls, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopControls, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopControls, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopControls, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopControls, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
