// The frame is on every workspace, and what is shared is what the current one shows there.

#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"
#include "tests/support/window_requests.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

namespace {

using WindowManager = PrivateDesktop::WindowManager;

const QColor frameYellow(255, 214, 10);
const QColor windowColor(20, 140, 60);
constexpr QRect region(300, 200, 401, 301);
constexpr QRect withoutControls = region.adjusted(30, 30, -30, -30);

struct Manager {
    std::string name;
    WindowManager manager;
    PrivateDesktop::Compositor compositor;

    friend std::ostream& operator<<(std::ostream& stream, const Manager& manager) { return stream << manager.name; }
};

class Workspaces : public testing::TestWithParam<Manager> {
protected:
    void SetUp() override
    {
        desktop_ = requireDesktop(
            {.width = 1280, .height = 720, .windowManager = GetParam().manager, .compositor = GetParam().compositor});
        desktop_->movePointer({1200, 650});
        requests_ = std::make_unique<WindowRequests>(*desktop_);
        requests_->setWorkspaceCount(2);
        ASSERT_TRUE(waitUntil([this] { return requests_->workspaceCount() >= 2; }, Milliseconds{3000}));
        scene_ = requireScene(*desktop_);
        // As on a desktop with icons: a window of the desktop's own below all others, on every workspace.
        scene_->add(
            "wall",
            {.geometry = {0, 0, 1280, 720}, .seed = 3, .type = Scene::Type::desktop, .overrideRedirect = false});
        scene_->add("window",
                    {.geometry = {250, 120, 600, 500}, .seed = 0, .color = windowColor, .overrideRedirect = false});
        application_ = requireApplication(*desktop_, {.region = region});
        ASSERT_TRUE(application_->waitForVirtualDisplay(region.size())) << application_->process().output();
    }

    /// What the shared display shows and what the screen shows in the region are waited for to be the same, but for the
    /// margin in which the screen shows the frame's controls.
    void expectToShareTheScreen() const
    {
        QImage shared;
        QImage framed;
        static_cast<void>(waitUntil(
            [&] {
                const QPoint corner = desktop_->monitorNamed("Nimbrale")->geometry.topLeft();
                shared = desktop_->screenshot(withoutControls.translated(corner - region.topLeft()));
                framed = desktop_->screenshot(withoutControls);
                return shared == framed;
            },
            Milliseconds{5000}));
        EXPECT_TRUE(imagesMatch(shared, framed));
    }

    [[nodiscard]] bool showsFrame() const
    {
        const int middle = region.y() + region.height() / 2;
        return desktop_->waitForPixel(region.x() - 2, middle, frameYellow) &&
               desktop_->waitForPixel(region.x() + region.width() + 2, middle, frameYellow);
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<WindowRequests> requests_;
    std::unique_ptr<Scene> scene_;
    std::unique_ptr<Application> application_;
};

TEST_P(Workspaces, TheFrameStaysAndSharesWhatIsThere)
{
    const QPoint inWindow(450, 325);
    ASSERT_TRUE(desktop_->waitForPixel(inWindow.x(), inWindow.y(), windowColor));
    EXPECT_TRUE(showsFrame());
    expectToShareTheScreen();

    requests_->switchToWorkspace(1);
    ASSERT_TRUE(waitUntil([this] { return requests_->currentWorkspace() == 1U; }, Milliseconds{3000}));
    ASSERT_TRUE(
        waitUntil([&] { return desktop_->pixel(inWindow.x(), inWindow.y()) != windowColor; }, Milliseconds{3000}))
        << "a window that is on one workspace only is still there";
    EXPECT_TRUE(showsFrame());
    expectToShareTheScreen();

    requests_->switchToWorkspace(0);
    ASSERT_TRUE(desktop_->waitForPixel(inWindow.x(), inWindow.y(), windowColor));
    EXPECT_TRUE(showsFrame());
    expectToShareTheScreen();
    EXPECT_EQ(application_->quit(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    WindowManagers, Workspaces,
    testing::Values(Manager{"Openbox", WindowManager::openbox, PrivateDesktop::Compositor::none},
                    Manager{"Xfwm4Compositing", WindowManager::xfwm4, PrivateDesktop::Compositor::windowManagersOwn},
                    Manager{"KwinCompositing", WindowManager::kwin, PrivateDesktop::Compositor::windowManagersOwn},
                    Manager{"MarcoCompositing", WindowManager::marco, PrivateDesktop::Compositor::windowManagersOwn}),
    [](const auto& manager) { return manager.param.name; });

} // namespace

} // namespace nimbrale::test
