// A desktop whose display settings scale whole windows, while its dots per inch stay: the frame is as large as the user
// sees everything else.

#include "tests/desktops/desktop_test.h"
#include "tests/support/application.h"

namespace nimbrale::test {
namespace {

class DesktopScale : public DesktopTest {
protected:
    void setWindowScale(int scale)
    {
        desktop().run("xfconf-query", {"-c", "xsettings", "-p", "/Gdk/WindowScalingFactor", "-n", "-t", "int", "-s",
                                       std::to_string(scale)});
    }
};

TEST_P(DesktopScale, TheFrameIsTwiceAsLargeWhereWindowsAre)
{
    const QRect region(100, 100, 250, 150);
    setWindowScale(2);
    ASSERT_TRUE(session().waitUntilStill());
    std::string reason;
    const auto application = Application::start(desktop(), {.region = region}, reason);
    ASSERT_TRUE(application) << reason;
    EXPECT_TRUE(application->waitForVirtualDisplay(region.size() * 2)) << application->process().output();
    EXPECT_EQ(application->quit(), 0);
    setWindowScale(1);
    ASSERT_TRUE(session().waitUntilStill());
    const auto later = Application::start(desktop(), {.region = region}, reason);
    ASSERT_TRUE(later) << reason;
    EXPECT_TRUE(later->waitForVirtualDisplay(region.size())) << "the control; " << later->process().output();
    EXPECT_EQ(later->quit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopScale, testing::Values(DesktopKind::xfce));

} // namespace
} // namespace nimbrale::test
