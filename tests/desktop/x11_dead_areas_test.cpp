// The parts of the enlarged X screen that no display shows, as pictures of the whole screen have them.

#include "platform/x11/virtual_display/dead_areas.h"
#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/pixmap_litter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

using Compositor = PrivateDesktop::Compositor;
using Server = PrivateDesktop::Server;
using WindowManager = PrivateDesktop::WindowManager;

TEST(DeadAreasTest, AreWhatNeitherDisplaysNorTheVirtualDisplayShow)
{
    EXPECT_THAT(x11::deadAreas({0, 0, 2080, 1320}, {0, 0, 1280, 720}, {1280, 720, 800, 600}),
                testing::UnorderedElementsAre(PixelRect{1280, 0, 800, 720}, PixelRect{0, 720, 1280, 600}));
    EXPECT_THAT(x11::deadAreas({0, 0, 1280, 720}, {0, 0, 1280, 720}, {}), testing::IsEmpty());
}

struct Surroundings {
    const char* name;
    Server server;
    WindowManager windowManager;
    Compositor compositor;
};

void PrintTo(const Surroundings& surroundings, std::ostream* stream)
{
    *stream << surroundings.name;
}

class DeadAreasOnScreenTest : public VirtualDisplayTest, public testing::WithParamInterface<Surroundings> {
protected:
    void SetUp() override
    {
        start({.server = GetParam().server,
               .width = 1280,
               .height = 720,
               .windowManager = GetParam().windowManager,
               .compositor = GetParam().compositor});
    }

    /// What the litter is painted in; compositing managers have backgrounds of their own.
    [[nodiscard]] static bool isLitter(QRgb color)
    {
        const QRgb opaque = color & 0xffffff;
        return opaque == 0x00ff00 || opaque == 0xff00ff || opaque == 0xffff00;
    }

    void expectNoLitter(const QRect& place) const
    {
        const QImage picture = desktop_->screenshot(place);
        int count = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                count += isLitter(picture.pixel(x, y));
        }
        EXPECT_EQ(count, 0) << "of " << place.width() << "x" << place.height() << " at (" << place.x() << ", "
                            << place.y() << ")";
    }
};

TEST_P(DeadAreasOnScreenTest, HoldNothingThatOthersLeftInTheMemory)
{
    const PixmapLitter litter(desktop_->displayName());
    auto device = make(800, 600);
    ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isVerified(); }, Milliseconds{10000}));
    for (const QSize size : {QSize(800, 600), QSize(400, 300), QSize(900, 700), QSize(333, 555)}) {
        ASSERT_TRUE(device->applySettings(DisplaysHost::settings(size.width(), size.height())));
        DisplaysHost::pumpFor(Milliseconds{700});
        expectNoLitter({1280, 0, size.width(), 720});
        expectNoLitter({0, 720, 1280, size.height()});
    }
}

INSTANTIATE_TEST_SUITE_P(
    On, DeadAreasOnScreenTest,
    testing::Values(Surroundings{"Openbox", Server::xvnc, WindowManager::openbox, Compositor::none},
                    Surroundings{"Card", Server::xorgDummy, WindowManager::openbox, Compositor::none},
                    Surroundings{"Picom", Server::xvnc, WindowManager::openbox, Compositor::picom},
                    Surroundings{"Xfwm4", Server::xvnc, WindowManager::xfwm4, Compositor::windowManagersOwn},
                    Surroundings{"Kwin", Server::xvnc, WindowManager::kwin, Compositor::windowManagersOwn},
                    Surroundings{"Marco", Server::xvnc, WindowManager::marco, Compositor::windowManagersOwn},
                    Surroundings{"Mutter", Server::xvnc, WindowManager::mutter, Compositor::windowManagersOwn}),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace

} // namespace nimbrale::test
