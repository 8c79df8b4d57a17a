// Notifications where the user wants none in the share: they are left out, and on the desktops whose shell draws them
// itself, so that they cannot be, the user is told.

#include "tests/desktops/desktop_test.h"
#include "tests/desktops/shared_picture.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"

namespace nimbrale::test {
namespace {

/// Where every one of the desktops shows its banners.
constexpr QRect region(330, 50, 930, 260);
constexpr QRect inner = region.adjusted(30, 0, -30, -30);
/// More than a clock's next minute.
constexpr int aBanner = 4000;

class DesktopNotifications : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        // Over the bare desktop the window to share, which lies behind, would leave out whatever is shown there.
        addWindow("work", {300, 0, 980, 400}, 3);
        ASSERT_TRUE(waitUntil([] { return desktop().windowTitled("work").has_value(); }, Milliseconds{5000}));
        gtk = GtkWindow::start(desktop());
        ASSERT_TRUE(gtk);
        const int bar = session().workArea().top();
        std::string reason;
        application_ = Application::start(
            desktop(), {.region = region.translated(0, bar > 0 ? 1 - bar : 0), .sharesNotifications = false}, reason,
            session().toolkitEnvironment());
        ASSERT_TRUE(application_) << reason;
        ASSERT_TRUE(waitUntil([] { return sharedPicture(desktop()).size() == region.size(); }, Milliseconds{20000}))
            << application_->process().output();
    }

    void TearDown() override
    {
        application_.reset();
        DesktopTest::TearDown();
    }

    /// The title of an alert; the frame, which has the same, is never active.
    [[nodiscard]] static bool showsAlert() { return desktop().activeWindowTitle() == "Nimbrale"; }

    static void press(std::uint32_t key)
    {
        desktop().pressKey(key);
        desktop().releaseKey(key);
    }

    [[nodiscard]] static QImage shared() { return sharedPicture(desktop()).copy(inner.translated(-region.topLeft())); }

    [[nodiscard]] static int differing(const QImage& one, const QImage& other)
    {
        int count = 0;
        for (int y = 0; y < one.height(); ++y) {
            for (int x = 0; x < one.width(); ++x)
                count += one.pixel(x, y) != other.pixel(x, y);
        }
        return count;
    }

    std::unique_ptr<Application> application_;
};

class DesktopShellNotifications : public DesktopNotifications {};

TEST_P(DesktopShellNotifications, AreSharedAndTheUserIsToldOnce)
{
    constexpr std::uint32_t enter = 0xff0d;
    ASSERT_TRUE(waitUntil([] { return showsAlert(); }, Milliseconds{5000}))
        << "active is \"" << desktop().activeWindowTitle() << "\"; kept as "
        << keepImage(desktop().screenshot(), "screen");
    press(enter);
    ASSERT_TRUE(waitUntil([] { return !showsAlert(); }, Milliseconds{5000}));
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = shared();
    const std::string number = gtk->notify("Something-happened");
    EXPECT_TRUE(waitUntil([&] { return differing(shared(), before) > aBanner; }, Milliseconds{5000}))
        << "they are left out after all: nothing need be told; kept as " << keepImage(desktop().screenshot(), "screen");
    EXPECT_FALSE(waitUntil([] { return showsAlert(); }, Milliseconds{1000}));
    gtk->dismiss(number);
    EXPECT_EQ(application_->quit(), 0);
}

TEST_P(DesktopNotifications, AreLeftOutAndNothingIsTold)
{
    EXPECT_FALSE(waitUntil([] { return showsAlert(); }, Milliseconds{3000}));
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = shared();
    const QImage screenBefore = desktop().screenshot(inner);
    const std::string number = gtk->notify("Something-happened");
    ASSERT_TRUE(
        waitUntil([&] { return differing(desktop().screenshot(inner), screenBefore) > aBanner; }, Milliseconds{5000}))
        << "the control: the screen shows it; kept as " << keepImage(desktop().screenshot(), "screen");
    EXPECT_FALSE(waitUntil([&] { return differing(shared(), before) > aBanner; }, Milliseconds{3000}))
        << "kept as " << keepImage(shared(), "shared");
    gtk->dismiss(number);
    EXPECT_EQ(application_->quit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Gnome, DesktopShellNotifications, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopShellNotifications, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopNotifications, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopNotifications, testing::Values(DesktopKind::mate));

} // namespace
} // namespace nimbrale::test
