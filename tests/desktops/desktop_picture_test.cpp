// What is shared on real desktops is what their screen shows at that moment, but for the places where own windows lie.

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/support/image_compare.h"

#include <QPainter>

namespace nimbrale::test {
namespace {

const QColor ownColor(255, 0, 255);
constexpr QRect ownPlace(420, 260, 200, 120);
/// Of the picture's pixels outside of the own windows' places.
constexpr double shareThatMayDiffer = 0.001;

class DesktopPicture : public DesktopTest {
protected:
    void TearDown() override
    {
        captured_.reset();
        DesktopTest::TearDown();
    }

    /// As when the application starts: before that nothing of it is there.
    void startCapture()
    {
        const QRect screen(QPoint(), desktop().screenSize());
        captured_ = std::make_unique<CapturedSession>(desktop(), screen, ownPlace, ownColor);
        ASSERT_TRUE(captured_->start());
    }

    void waitUntilShown(const std::function<bool()>& isShown, const std::string& what)
    {
        ASSERT_TRUE(pumpUntil(isShown, Milliseconds{10000}))
            << what << " does not show; kept as " << keepImage(desktop().screenshot(), "screen");
    }

    /// Whether the screen is another in `area` than it was.
    static std::function<bool()> differsFrom(const QImage& before)
    {
        return [before] {
            const QImage now = desktop().screenshot();
            int differing = 0;
            for (int y = 0; y < now.height(); y += 4) {
                for (int x = 0; x < now.width(); x += 4)
                    differing += now.pixel(x, y) != before.pixel(x, y);
            }
            return differing > 20;
        };
    }

    void expectTheScreenIsShared()
    {
        ASSERT_TRUE(session().waitUntilStill()) << "the screen does not come to rest";
        const QRect& region = captured_->region();
        ASSERT_GT(pixelsOf(ownColor, desktop().screenshot(region)), 10000) << "the control: the own panel is shown";
        const int compared = region.width() * region.height() - ownPlace.width() * ownPlace.height();
        const ImageTolerance tolerance{.differingPixels = int(shareThatMayDiffer * compared)};
        QImage shared;
        QImage screen;
        static_cast<void>(pumpUntil(
            [&] {
                shared = captured_->image();
                screen = desktop().screenshot(region);
                return imagesAreAlike(withoutOwn(shared), withoutOwn(screen), tolerance);
            },
            Milliseconds{4000}));
        EXPECT_EQ(pixelsOf(ownColor, shared), 0) << "the own panel is shared";
        const int differing = differingPixels(withoutOwn(shared), withoutOwn(screen));
        const std::string figure = std::to_string(differing) + " of " + std::to_string(compared) +
                                   " pixels differ: " + std::to_string(100.0 * differing / compared) + " %";
        report(testing::UnitTest::GetInstance()->current_test_info()->name() + (": " + figure));
        EXPECT_TRUE(imagesMatch(withoutOwn(shared), withoutOwn(screen), tolerance)) << figure;
    }

    std::unique_ptr<CapturedSession> captured_;

private:
    static QImage withoutOwn(QImage image)
    {
        QPainter(&image).fillRect(ownPlace, Qt::black);
        return image;
    }

    static int differingPixels(const QImage& one, const QImage& other)
    {
        int count = 0;
        for (int y = 0; y < one.height(); ++y) {
            for (int x = 0; x < one.width(); ++x)
                count += (one.pixel(x, y) & RGB_MASK) != (other.pixel(x, y) & RGB_MASK);
        }
        return count;
    }
};

TEST_P(DesktopPicture, OfWallpaperAndPanels)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfDecoratedWindows)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    const QImage before = desktop().screenshot();
    addWindow("behind", {120, 120, 480, 320}, 1);
    addWindow("front", {460, 220, 460, 300}, 2);
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the windows"));
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfAWindowThatMovedBelowTheOwnPanel)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    addWindow("behind", {120, 120, 480, 320}, 1);
    addWindow("moves", {460, 220, 460, 300}, 2);
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot();
    for (int step = 0; step < 60; ++step) {
        scene->move("moves", {460 - 3 * step, 220 + 2 * (step % 30)});
        static_cast<void>(pumpUntil([] { return false; }, Milliseconds{16}));
    }
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the move"));
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfAFullScreenWindow)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    const QImage before = desktop().screenshot();
    scene->add(
        "film",
        {.geometry = {QPoint(), desktop().screenSize()}, .seed = 6, .overrideRedirect = false, .isFullScreen = true});
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the window"));
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfWindowsThatDecorateThemselves)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    addWindow("behind", {120, 120, 480, 320}, 1);
    ASSERT_NO_FATAL_FAILURE(showGtkWindow({460, 220, 460, 300}));
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfAnOpenMenu)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    ASSERT_NO_FATAL_FAILURE(showGtkWindow({260, 320, 460, 220}));
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot();
    desktop().click(gtk->menuButton());
    desktop().movePointer(pointerRest);
    const auto isShown = differsFrom(before);
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(isShown, "the menu"));
    expectTheScreenIsShared();
    EXPECT_TRUE(isShown()) << "the menu has gone meanwhile";
}

TEST_P(DesktopPicture, OfATooltip)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    ASSERT_NO_FATAL_FAILURE(showGtkWindow({260, 320, 460, 220}));
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot();
    const QPoint place = gtk->tooltipPlace();
    desktop().movePointer(place - QPoint(20, 0));
    sleepFor(Milliseconds{100});
    desktop().movePointer(place);
    const auto isShown = differsFrom(before);
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(isShown, "the tooltip"));
    expectTheScreenIsShared();
    EXPECT_TRUE(isShown()) << "the tooltip has gone meanwhile";
}

TEST_P(DesktopPicture, OfANotification)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    gtk = GtkWindow::start(desktop());
    ASSERT_TRUE(gtk);
    const QImage before = desktop().screenshot();
    const std::string number = gtk->notify("Something-happened");
    const auto isShown = differsFrom(before);
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(isShown, "the notification"));
    expectTheScreenIsShared();
    EXPECT_TRUE(isShown()) << "the notification has gone meanwhile";
    gtk->dismiss(number);
}

TEST_P(DesktopPicture, OfWhatAMinimizedWindowLeaves)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    addWindow("stays", {120, 120, 480, 320}, 1);
    addWindow("goes", {460, 220, 460, 300}, 2);
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot();
    requests().minimize(scene->identifier("goes"));
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the minimizing"));
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfAnotherWorkspace)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    addWindow("first", {120, 120, 480, 320}, 1);
    addWindow("second", {460, 220, 460, 300}, 2);
    ASSERT_TRUE(session().waitUntilStill());
    const QImage before = desktop().screenshot();
    requests().moveToWorkspace(scene->identifier("second"), 1);
    requests().switchToWorkspace(1);
    ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the other workspace"));
    expectTheScreenIsShared();
    requests().switchToWorkspace(0);
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopPicture, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopPicture, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopPicture, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopPicture, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopPicture, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
