// The application as users start it, from their desktop's launcher, whose double clicks are two starts: there is one
// frame, and the other start opens Settings of the instance that runs, in front and with the keyboard.

#include "tests/desktops/desktop_test.h"
#include "tests/desktops/shared_picture.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/process_tree.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace nimbrale::test {
namespace {

const std::string settingsTitle = "Nimbrale Settings";
/// Right of where Settings comes, in the middle of a large display or where there is room: the shells show the frame
/// over it, whatever the order of the windows.
constexpr QRect region(880, 280, 300, 250);
const QColor frameColor(255, 214, 10);

class DesktopLauncher : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        // Around where Settings comes, so that one that stays behind is seen to.
        addWindow("work", {300, 60, 920, 580}, 3);
        ASSERT_TRUE(waitUntil([] { return desktop().windowTitled("work").has_value(); }, Milliseconds{5000}));
        desktop().click({1150, 560});
        ASSERT_TRUE(waitUntil([&] { return scene->focused() == "work"; }, Milliseconds{5000}));
        const int bar = session().workArea().top();
        Application::writeSettings(desktop(), {.region = region.translated(0, bar > 0 ? 1 - bar : 0)});
        writeEntry();
    }

    void TearDown() override
    {
        launches_.clear();
        EXPECT_TRUE(waitUntil([this] { return instances() == 0; }, Milliseconds{5000}));
        DesktopTest::TearDown();
    }

    /// Presses the launcher so many times without waiting.
    void launch(int times)
    {
        std::vector<std::string> command{
            "bash", "-c", "for ((n = $0; n > 0; --n)); do \"$@\" & done; exec sleep infinity", std::to_string(times)};
        const std::vector<std::string> launcher = launcherOf(GetParam());
        command.insert(command.end(), launcher.begin(), launcher.end());
        command.push_back(entry_.string());
        // Launchers end before what they have started, which comes back to the leader.
        launches_.push_back(desktop().spawn("nimbrale_session_leader", command, session().toolkitEnvironment()));
        ASSERT_TRUE(launches_.back());
    }

    [[nodiscard]] static int instances()
    {
        const std::vector<pid_t> processes = descendants();
        return static_cast<int>(std::count_if(processes.begin(), processes.end(), [](pid_t process) {
            std::ifstream file("/proc/" + std::to_string(process) + "/comm");
            std::string name;
            return std::getline(file, name) && name == "nimbrale";
        }));
    }

    [[nodiscard]] static bool showsFrame()
    {
        return desktop().pixel(region.left() - 2, region.center().y()) == frameColor;
    }

    void expectOneFrame()
    {
        EXPECT_TRUE(waitUntil([] { return showsFrame(); }, Milliseconds{15000}))
            << "kept as " << keepImage(desktop().screenshot(), "screen") << "; the launcher said: " << said();
        EXPECT_TRUE(waitUntil([] { return instances() == 1; }, Milliseconds{5000})) << instances() << " run";
        EXPECT_TRUE(waitUntil([] { return !sharedPicture(desktop()).isNull(); }, Milliseconds{20000}));
        const std::vector<PrivateDesktop::Monitor> monitors = desktop().monitors();
        EXPECT_LE(std::count_if(monitors.begin(), monitors.end(), [](const auto& each) { return !each.isAutomatic; }),
                  1);
    }

    /// Nothing of another program covers it, and the keyboard is taken from the window that had it.
    void expectSettingsInFront()
    {
        EXPECT_TRUE(
            waitUntil([&] { return desktop().activeWindowTitle() == settingsTitle && scene->focused().empty(); },
                      Milliseconds{10000}))
            << "active is \"" << desktop().activeWindowTitle() << "\"; kept as "
            << keepImage(desktop().screenshot(), "screen") << "; the launcher said: " << said();
        EXPECT_TRUE(waitUntil(
            [] {
                const auto place = desktop().windowTitled(settingsTitle);
                constexpr ImageTolerance cursorThatBlinks{.differingPixels = 100};
                return place && imagesAreAlike(desktop().screenshot(*place), desktop().windowPicture(settingsTitle),
                                               cursorThatBlinks);
            },
            Milliseconds{5000}))
            << "something covers it; kept as " << keepImage(desktop().screenshot(), "screen");
    }

private:
    /// What the desktop's own menus and icons start entries by.
    [[nodiscard]] static std::vector<std::string> launcherOf(DesktopKind kind)
    {
        if (kind == DesktopKind::xfce)
            return {"exo-open"};
        if (kind == DesktopKind::plasma)
            return {"kioclient5", "exec"};
        return {"gio", "launch"};
    }

    /// As an installation would, but for the program's place.
    void writeEntry()
    {
        const std::filesystem::path folder = desktop().environment().at("XDG_DATA_HOME") + "/applications";
        std::filesystem::create_directories(folder);
        entry_ = folder / "nimbrale.desktop";
        std::ifstream installed(buildFolder() / "nimbrale.desktop");
        ASSERT_TRUE(installed);
        std::ofstream own(entry_);
        for (std::string line; std::getline(installed, line);)
            own << (line == "Exec=nimbrale" ? "Exec=" + (buildFolder() / "nimbrale").string() : line) << '\n';
        own.close();
        // Some open a file that is not executable as a text.
        std::filesystem::permissions(entry_, std::filesystem::perms::owner_exec, std::filesystem::perm_options::add);
    }

    [[nodiscard]] std::string said() const
    {
        std::string text;
        for (const auto& each : launches_)
            text += each->output();
        return text;
    }

    std::filesystem::path entry_;
    std::vector<std::unique_ptr<Process>> launches_;
};

TEST_P(DesktopLauncher, ADoubleClickShowsOneFrameAndSettings)
{
    launch(2);
    expectSettingsInFront();
    expectOneFrame();
}

TEST_P(DesktopLauncher, AClickWhileItRunsOpensSettingsBeforeTheWindowThatHadTheKeyboard)
{
    launch(1);
    expectOneFrame();
    ASSERT_FALSE(desktop().windowTitled(settingsTitle)) << "the control: one start opens no Settings";
    ASSERT_EQ(scene->focused(), "work") << "the frame takes the keyboard";
    launch(1);
    expectSettingsInFront();
    expectOneFrame();
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopLauncher, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopLauncher, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopLauncher, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopLauncher, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopLauncher, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
