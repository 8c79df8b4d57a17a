// What is shared on real desktops is what their screen shows at that moment, but for the places where own windows lie.

#include "tests/desktops/picture_test.h"

namespace nimbrale::test {
namespace {

class DesktopPicture : public PictureTest {};

TEST_P(DesktopPicture, OfWallpaperAndPanels)
{
    ASSERT_NO_FATAL_FAILURE(startCapture());
    expectTheScreenIsShared();
}

TEST_P(DesktopPicture, OfDecoratedWindows)
{
    expectDecoratedWindows();
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
    expectAFullScreenWindow();
}

TEST_P(DesktopPicture, OfWindowsThatDecorateThemselves)
{
    expectWindowsThatDecorateThemselves();
}

TEST_P(DesktopPicture, OfAnOpenMenu)
{
    expectAnOpenMenu();
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
