// Nothing of the frame is shared while a desktop changes what it shows: between workspaces, in its overview, while its
// compositing manager stops and starts or is replaced, and while Settings and alerts open and close.

#include "tests/desktops/compositing_switch.h"
#include "tests/desktops/marked_application.h"

#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

constexpr int picturesToLookThrough = 500;
/// How long the changes of one effect are looked at.
constexpr int looksAtEffect = 60;

namespace key {
constexpr std::uint32_t super = 0xffeb;
constexpr std::uint32_t control = 0xffe3;
constexpr std::uint32_t alt = 0xffe9;
constexpr std::uint32_t up = 0xff52;
constexpr std::uint32_t escape = 0xff1b;
constexpr std::uint32_t enter = 0xff0d;
constexpr std::uint32_t f4 = 0xffc1;
} // namespace key

class DesktopEffects : public MarkedApplication {
protected:
    void SetUp() override
    {
        MarkedApplication::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        ASSERT_TRUE(waitForShare()) << said();
    }

    /// Looks, while the windows in the region move.
    void watch()
    {
        for (int count = 0; count < looksAtEffect; ++count) {
            if (count % 4 == 0)
                scene->move("front", {480 + step_ % 50, 240 + step_ % 10});
            ++step_;
            sleepFor(Milliseconds{8});
            look(found_);
        }
    }

    void repeat(const std::vector<std::function<void()>>& effects)
    {
        constexpr int mostRounds = 60;
        for (int round = 0; round < mostRounds && found_.pictures < picturesToLookThrough; ++round) {
            for (const auto& effect : effects) {
                effect();
                watch();
            }
        }
    }

    void press(const std::vector<std::uint32_t>& keys)
    {
        for (const std::uint32_t pressed : keys)
            desktop().pressKey(pressed);
        for (auto pressed = keys.rbegin(); pressed != keys.rend(); ++pressed)
            desktop().releaseKey(*pressed);
    }

    Look found_;

private:
    int step_ = 0;
};

class DesktopWorkspaces : public DesktopEffects {};

TEST_P(DesktopWorkspaces, ShareNothingOfTheFrameWhileTheyAreSwitched)
{
    requests().moveToWorkspace(scene->identifier("front"), 1);
    repeat({[] { requests().switchToWorkspace(1); }, [] { requests().switchToWorkspace(2); },
            [] { requests().switchToWorkspace(0); }});
    requests().switchToWorkspace(1);
    expectNoLeakIn(found_, picturesToLookThrough, region);
    requests().switchToWorkspace(0);
}

TEST_P(DesktopEffects, ShareNothingOfTheFrameWhileSettingsComesAndGoes)
{
    const auto isOpen = [] { return desktop().windowTitled("Nimbrale Settings").has_value(); };
    int openings = 0;
    repeat({[&] {
                desktop().click(Application::settingsButtonOf(region));
                openings += waitUntil(isOpen, Milliseconds{3000});
            },
            [&] {
                press({key::alt, key::f4});
                static_cast<void>(waitUntil([&] { return !isOpen(); }, Milliseconds{3000}));
            }});
    EXPECT_GT(openings, 0) << "the control";
    EXPECT_FALSE(isOpen());
    expectNoLeakIn(found_, picturesToLookThrough, region);
}

/// Recordings cannot be made, which an alert says each time.
class DesktopAlerts : public DesktopEffects {
protected:
    void prepareSession() override
    {
        std::ofstream(desktop().configFolder() / "user-dirs.dirs") << "XDG_VIDEOS_DIR=\"/proc/nimbrale\"\n";
    }
};

TEST_P(DesktopAlerts, ShareNothingOfTheFrameWhileTheyComeAndGo)
{
    const auto isOpen = [] { return desktop().activeWindowTitle() == "Nimbrale"; };
    int openings = 0;
    int closings = 0;
    repeat({[&] {
                desktop().click(Application::recordButtonOf(region));
                openings += waitUntil(isOpen, Milliseconds{3000});
            },
            [&] {
                press({key::enter});
                closings += waitUntil([&] { return !isOpen(); }, Milliseconds{3000});
            }});
    EXPECT_GT(openings, 2) << "the control";
    EXPECT_EQ(closings, openings);
    expectNoLeakIn(found_, picturesToLookThrough, region);
}

/// The desktops that show all windows at once when they are asked to.
class DesktopOverview : public DesktopEffects {
protected:
    void open()
    {
        if (GetParam() == DesktopKind::plasma)
            desktop().run("dbus-send", {"--session", "--print-reply", "--dest=org.kde.kglobalaccel", "/component/kwin",
                                        "org.kde.kglobalaccel.Component.invokeShortcut", "string:Overview"});
        else if (GetParam() == DesktopKind::gnome)
            press({key::super});
        else
            press({key::control, key::alt, key::up});
    }
    void close() { press({key::escape}); }
};

TEST_P(DesktopOverview, SharesNothingOfTheFrame)
{
    const QImage before = desktop().screenshot(withoutControls);
    open();
    ASSERT_TRUE(waitUntil([&] { return desktop().screenshot(withoutControls) != before; }, Milliseconds{3000}))
        << "the control: no overview comes";
    watch();
    close();
    watch();
    repeat({[this] { open(); }, [this] { close(); }});
    ASSERT_TRUE(session().waitUntilStill());
    expectNoLeakIn(found_, picturesToLookThrough, region);
}

/// The desktops whose compositing manager can be switched while the session runs.
class DesktopCompositing : public DesktopEffects {
protected:
    static void setComposited(bool isOn) { setCompositing(GetParam(), desktop(), isOn); }
};

TEST_P(DesktopCompositing, SharesNothingOfTheFrameWhileItStopsAndStarts)
{
    setComposited(false);
    ASSERT_TRUE(waitUntil([] { return !desktop().isComposited(); }, compositingPatience)) << "the control";
    setComposited(true);
    repeat({[] { setComposited(false); }, [] { setComposited(true); }});
    EXPECT_TRUE(waitUntil([] { return desktop().isComposited(); }, compositingPatience));
    expectNoLeakIn(found_, picturesToLookThrough, region);
}

/// The window manager, which composites, or the whole shell is replaced while the session runs.
class DesktopReplacement : public DesktopEffects {
protected:
    void TearDown() override
    {
        DesktopEffects::TearDown();
        managers_.clear();
    }

    static std::string managerOf(DesktopKind kind)
    {
        switch (kind) {
        case DesktopKind::xfce:
            return "xfwm4";
        case DesktopKind::mate:
            return "marco";
        case DesktopKind::plasma:
            return "kwin_x11";
        case DesktopKind::gnome:
            return "gnome-shell";
        case DesktopKind::cinnamon:
            return "cinnamon";
        }
        return {};
    }

    /// Looks on until another one composites.
    void replaceManager()
    {
        const auto before = desktop().compositorProcess();
        managers_.push_back(desktop().spawn(managerOf(GetParam()), {"--replace"}));
        ASSERT_TRUE(managers_.back());
        const bool isReplaced = waitUntil(
            [&] {
                look(found_);
                const auto now = desktop().compositorProcess();
                return now != 0 && now != before;
            },
            Milliseconds{20000}, Milliseconds{1});
        replacements_ += isReplaced;
    }

    int replacements_ = 0;

private:
    std::vector<std::unique_ptr<Process>> managers_;
};

TEST_P(DesktopReplacement, SharesNothingOfTheFrameWhileItsManagerIsReplaced)
{
    constexpr int leastReplacements = 5;
    for (int round = 0; round < leastReplacements; ++round) {
        ASSERT_NO_FATAL_FAILURE(replaceManager());
        watch();
    }
    EXPECT_EQ(replacements_, leastReplacements) << "the control";
    repeat({[] {}});
    expectNoLeakIn(found_, picturesToLookThrough, region);
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopEffects, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopEffects, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopEffects, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopEffects, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopEffects, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopAlerts, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopAlerts, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopAlerts, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopAlerts, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopAlerts, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopWorkspaces, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopWorkspaces, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopWorkspaces, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopWorkspaces, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopWorkspaces, testing::Values(DesktopKind::cinnamon));

// Not on GNOME, where the control's window is not seen once the shell was replaced.
INSTANTIATE_TEST_SUITE_P(Xfce, DesktopReplacement, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopReplacement, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopReplacement, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopReplacement, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Plasma, DesktopOverview, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopOverview, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopOverview, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopCompositing, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopCompositing, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopCompositing, testing::Values(DesktopKind::plasma));

} // namespace
} // namespace nimbrale::test
