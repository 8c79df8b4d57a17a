// What the virtual display shows while the session is locked: a card that says so, and nothing of what the region
// holds.

#include "tests/fakes/offscreen_application.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/private_bus.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <QColor>
#include <QImage>
#include <QRect>

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <string>

namespace nimbrale::test {

namespace {

constexpr QRect region(300, 200, 500, 350);
const QColor secretColor(20, 140, 60);
const QColor laterSecretColor(150, 20, 90);
const QColor lockerColor(0x22, 0x33, 0x44);
const QColor cardColor(0x1f, 0x1f, 0x22);
constexpr int picturesToLookThrough = 500;
constexpr int mostBlackPictures = 5;
/// From the lock to the card. The locker's window itself may be seen for that long.
constexpr Milliseconds longestReaction{500};

int pixelsOf(const QColor& color, const QImage& image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            count += (image.pixel(x, y) & RGB_MASK) == (color.rgb() & RGB_MASK);
    }
    return count;
}

struct Manager {
    std::string name;
    PrivateDesktop::WindowManager manager;
    PrivateDesktop::Compositor compositor;

    friend std::ostream& operator<<(std::ostream& stream, const Manager& manager) { return stream << manager.name; }
};

class LockedSession : public testing::TestWithParam<Manager> {
protected:
    void SetUp() override
    {
        startOffscreenApplication();
        requireProgram("dbus-daemon");
        std::string reason;
        bus_ = PrivateBus::start(reason);
        ASSERT_TRUE(bus_) << reason;
        desktop_ = requireDesktop(
            {.width = 1280, .height = 720, .windowManager = GetParam().manager, .compositor = GetParam().compositor});
        desktop_->changeEnvironment({{"DBUS_SESSION_BUS_ADDRESS", bus_->address()}});
        desktop_->movePointer({1200, 650});
        scene_ = requireScene(*desktop_);
        scene_->add("later", {.geometry = region, .seed = 0, .color = laterSecretColor});
        scene_->add("secret", {.geometry = region, .seed = 0, .color = secretColor});
        application_ = requireApplication(*desktop_, {.region = region});
        ASSERT_TRUE(application_->waitForVirtualDisplay(region.size())) << application_->process().output();
        expectToShow(secretColor);
    }

    [[nodiscard]] QImage shared() const
    {
        const auto monitor = desktop_->monitorNamed("Nimbrale");
        return monitor ? desktop_->screenshot(monitor->geometry) : QImage();
    }
    [[nodiscard]] static bool isCard(const QImage& image)
    {
        return image.size() == region.size() && pixelsOf(cardColor, image) > 5000 && pixelsOf(secretColor, image) == 0;
    }
    [[nodiscard]] static bool isAll(const QColor& color, const QImage& image)
    {
        return pixelsOf(color, image) == region.width() * region.height();
    }
    void expectToShow(const QColor& color)
    {
        constexpr int mostOfIt = region.width() * region.height() * 9 / 10;
        EXPECT_TRUE(waitUntil([&] { return pixelsOf(color, shared()) > mostOfIt; }, Milliseconds{5000}))
            << "kept as " << keepImage(shared(), "shared") << "; " << application_->process().output();
    }

    /// Where nothing is locked any more, what was hidden since shows at once, and nothing of before.
    void expectOnlyNewsAfter(const std::function<void()>& unlock)
    {
        scene_->unmap("secret");
        ASSERT_TRUE(
            waitUntil([&] { return pixelsOf(secretColor, desktop_->screenshot(region)) == 0; }, Milliseconds{3000}));
        unlock();
        int stale = 0;
        const bool isResumed = waitUntil(
            [&] {
                const QImage picture = shared();
                stale += pixelsOf(secretColor, picture) > 0;
                return pixelsOf(laterSecretColor, picture) > region.width() * region.height() * 9 / 10;
            },
            Milliseconds{5000}, Milliseconds{1});
        EXPECT_TRUE(isResumed) << "kept as " << keepImage(shared(), "shared");
        EXPECT_EQ(stale, 0) << "a picture of before the lock";
    }

    /// `lock` locks; what is behind goes on changing.
    void expectNothingButTheCardAfter(const std::function<void()>& lock)
    {
        lock();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(waitUntil([&] { return isCard(shared()); }, longestReaction, Milliseconds{1}))
            << "kept as " << keepImage(shared(), "shared") << "; " << application_->process().output();
        std::cout << "[ FIGURE   ] the card after "
                  << std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin).count()
                  << " ms\n";
        const int cards = countPictures([](const QImage& image) { return isCard(image); });
        EXPECT_GE(cards, picturesToLookThrough - mostBlackPictures);
    }

    /// Looks through pictures, of which `isExpected` names those to be counted. Of the others none may be anything but
    /// black, as the display may be for a moment while it is made.
    [[nodiscard]] int countPictures(const std::function<bool(const QImage&)>& isExpected)
    {
        int expected = 0;
        int leaks = 0;
        int others = 0;
        for (int picture = 0; picture < picturesToLookThrough; ++picture) {
            if (picture % 10 == 0)
                scene_->fill("secret", {picture % region.width(), 0, 10, region.height()}, secretColor);
            const QImage image = shared();
            if (pixelsOf(secretColor, image) > 0 && leaks++ == 0)
                keepImage(image, "leak");
            if (isExpected(image))
                ++expected;
            else if (!isAll(Qt::black, image) && others++ == 0)
                keepImage(image, "other");
        }
        EXPECT_EQ(leaks, 0) << "of " << picturesToLookThrough << " pictures; kept as \"leak\"";
        EXPECT_EQ(others, 0) << "of " << picturesToLookThrough << " pictures; kept as \"other\"";
        return expected;
    }

    [[nodiscard]] std::unique_ptr<Process> startLocker()
    {
        auto locker = desktop_->spawn("i3lock", {"--nofork", "--color", "223344"});
        EXPECT_TRUE(locker);
        EXPECT_TRUE(desktop_->waitForPixel(1000, 600, lockerColor));
        return locker;
    }

    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<Scene> scene_;
    std::unique_ptr<Application> application_;
};

TEST_P(LockedSession, AScreenLockersWindowTurnsThePictureIntoTheCard)
{
    requireProgram("i3lock");
    std::unique_ptr<Process> locker;
    expectNothingButTheCardAfter([&] { locker = startLocker(); });
    expectOnlyNewsAfter([&] { locker->terminate(); });
    EXPECT_EQ(application_->quit(), 0);
}

TEST_P(LockedSession, AScreenSaverOnTheSessionsBusTurnsThePictureIntoTheCard)
{
    const auto say = [](BusProgram& saver, bool isActive) {
        saver.signal("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", {isActive});
    };
    BusProgram saver(bus_->address());
    ASSERT_TRUE(saver.isConnected());
    expectNothingButTheCardAfter([&] { say(saver, true); });
    ASSERT_GT(pixelsOf(secretColor, desktop_->screenshot(region)), 0) << "the control: it is there to be seen";
    expectOnlyNewsAfter([&] { say(saver, false); });
    EXPECT_EQ(application_->quit(), 0);
}

TEST_P(LockedSession, AScreenSaverThatEndsUnlocks)
{
    auto saver = std::make_unique<BusProgram>(bus_->address());
    expectNothingButTheCardAfter(
        [&] { saver->signal("/org/xfce/ScreenSaver", "org.xfce.ScreenSaver", "ActiveChanged", {true}); });
    expectOnlyNewsAfter([&] { saver.reset(); });
}

TEST_P(LockedSession, QuittingWhileLockedEndsInOrder)
{
    BusProgram saver(bus_->address());
    saver.signal("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", {true});
    ASSERT_TRUE(waitUntil([&] { return isCard(shared()); }, Milliseconds{3000}));
    EXPECT_EQ(application_->quit(), 0);
    EXPECT_TRUE(waitUntil([&] { return !desktop_->monitorNamed("Nimbrale"); }, Milliseconds{5000}));
}

constexpr auto windowManagersOwn = PrivateDesktop::Compositor::windowManagersOwn;

INSTANTIATE_TEST_SUITE_P(
    Desktops, LockedSession,
    testing::Values(Manager{"Openbox", PrivateDesktop::WindowManager::openbox, PrivateDesktop::Compositor::none},
                    Manager{"Xfwm4Compositing", PrivateDesktop::WindowManager::xfwm4, windowManagersOwn},
                    Manager{"MarcoCompositing", PrivateDesktop::WindowManager::marco, windowManagersOwn},
                    Manager{"KwinCompositing", PrivateDesktop::WindowManager::kwin, windowManagersOwn},
                    Manager{"Mutter", PrivateDesktop::WindowManager::mutter, windowManagersOwn}),
    [](const auto& manager) { return manager.param.name; });

} // namespace

} // namespace nimbrale::test
