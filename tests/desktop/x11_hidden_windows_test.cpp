// Windows that a compositing window manager keeps mapped though the user does not see them: minimized ones, and those
// of other workspaces. Not one pixel of them is in a picture.

#include "tests/desktop/x11_capture_fixture.h"
#include "tests/support/window_requests.h"

#include <algorithm>

namespace nimbrale::test {
namespace {

using WindowManager = PrivateDesktop::WindowManager;

const QColor secretColor(250, 10, 130);
constexpr QRect region(100, 80, 600, 450);

class X11HiddenWindowsTest : public X11CaptureTest, public testing::WithParamInterface<WindowManager> {
protected:
    void SetUp() override
    {
        startDesktop({.windowManager = GetParam(), .compositor = PrivateDesktop::Compositor::windowManagersOwn});
        requests = std::make_unique<WindowRequests>(*desktop);
        requests->setWorkspaceCount(2);
        scene->add("secret",
                   {.geometry = {250, 150, 300, 200}, .seed = 0, .color = secretColor, .overrideRedirect = false});
        captured->start({double(region.x()), double(region.y()), double(region.width()), double(region.height())});
        ASSERT_TRUE(captured->pumpUntil([&] { return secretPixels(captured->image()) > 50000; }))
            << "the control: the window is seen";
    }

    [[nodiscard]] static int secretPixels(const QImage& image)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            const auto* const line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            count += static_cast<int>(std::count_if(line, line + image.width(), [](QRgb pixel) {
                return (pixel & RGB_MASK) == (secretColor.rgb() & RGB_MASK);
            }));
        }
        return count;
    }

    [[nodiscard]] bool isSecretOnScreen() { return secretPixels(desktop->screenshot(region)) > 0; }

    /// From when neither the screen nor the picture shows it, none of the pictures does, whatever else changes.
    void expectNotOnePixel()
    {
        EXPECT_TRUE(captured->pumpUntil([&] { return !isSecretOnScreen(); })) << "the window manager hides it";
        EXPECT_TRUE(captured->pumpUntil([&] { return secretPixels(captured->image()) == 0; }));
        int pictures = 0;
        int worst = 0;
        captured->onFrame = [&] {
            ++pictures;
            worst = std::max(worst, secretPixels(captured->image()));
        };
        scene->add("other", {.geometry = {260, 160, 120, 100}, .seed = 5});
        for (int step = 0; step < 40; ++step) {
            const int before = pictures;
            scene->move("other", {260 + 5 * step, 160 + 3 * step});
            scene->repaint("secret", 0);
            EXPECT_TRUE(captured->pumpUntil([&] { return pictures > before; }));
        }
        scene->remove("other");
        captured->settle();
        captured->onFrame = nullptr;
        EXPECT_GE(pictures, 40);
        EXPECT_EQ(worst, 0);
    }

    std::unique_ptr<WindowRequests> requests;
};

TEST_P(X11HiddenWindowsTest, AMinimizedWindowIsInNoPictureAndComesBack)
{
    requests->minimize(scene->identifier("secret"));
    expectNotOnePixel();
    requests->activate(scene->identifier("secret"), desktop->serverTime());
    EXPECT_TRUE(captured->pumpUntil([&] { return secretPixels(captured->image()) > 50000; }));
}

TEST_P(X11HiddenWindowsTest, AWindowOfAnotherWorkspaceIsInNoPictureAndComesBack)
{
    requests->moveToWorkspace(scene->identifier("secret"), 1);
    expectNotOnePixel();
    requests->switchToWorkspace(1);
    EXPECT_TRUE(captured->pumpUntil([&] { return secretPixels(captured->image()) > 50000; }));
    requests->switchToWorkspace(0);
    expectNotOnePixel();
}

INSTANTIATE_TEST_SUITE_P(, X11HiddenWindowsTest,
                         testing::Values(WindowManager::mutter, WindowManager::kwin, WindowManager::marco,
                                         WindowManager::xfwm4),
                         [](const auto& manager) { return PrivateDesktop::managerName(manager.param); });

} // namespace
} // namespace nimbrale::test
