// The application on real desktops whose session is locked as the desktop locks it: what is shared has nothing of what
// is behind the lock, and goes on when the lock has ended.

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"
#include "tests/support/private_bus.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

const QColor secretColor(20, 140, 60);
const QColor cardColor(0x1f, 0x1f, 0x22);
constexpr QRect region(300, 200, 500, 350);
/// The locker's own window may be what is seen first.
constexpr Milliseconds longestSightOfLocker{500};
constexpr int picturesToLookThrough = 500;

/// The words of a command.
using Command = std::vector<std::string>;

/// How a desktop's session is locked. Empty where the desktop does not lock a session that no login manager's greeter
/// has started: a program that says so in the shell's place does then.
Command lockingOf(DesktopKind kind)
{
    switch (kind) {
    case DesktopKind::mate:
        return {"mate-screensaver-command", "--lock"};
    case DesktopKind::plasma:
        return {"dbus-send",     "--session",
                "--print-reply", "--dest=org.freedesktop.ScreenSaver",
                "/ScreenSaver",  "org.freedesktop.ScreenSaver.Lock"};
    case DesktopKind::cinnamon:
        return {"cinnamon-screensaver-command", "--lock"};
    case DesktopKind::xfce:
        return {"i3lock", "--nofork", "--color", "223344"};
    case DesktopKind::gnome:
        return {};
    }
    return {};
}

/// Whether anything but the password unlocks the session.
bool canBeUnlocked(DesktopKind kind)
{
    return kind != DesktopKind::plasma && kind != DesktopKind::cinnamon;
}

class DesktopLock : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        addColoredWindow("secret", region.adjusted(-20, -20, 20, 20), secretColor);
        ASSERT_TRUE(session().waitUntilStill());
        std::string reason;
        const int panel = session().workArea().top();
        Application::Settings settings;
        settings.region = region.translated(0, panel > 0 ? 1 - panel : 0);
        application_ = Application::start(desktop(), settings, reason);
        ASSERT_TRUE(application_) << reason;
        ASSERT_TRUE(waitUntil([] { return showsSecret(); }, Milliseconds{20000}))
            << application_->process().output() << keepImage(desktop().screenshot(), "screen");
    }

    void TearDown() override
    {
        saver_.reset();
        locking_.reset();
        application_.reset();
        DesktopTest::TearDown();
    }

    [[nodiscard]] static QImage shared()
    {
        const auto monitor = desktop().monitorNamed("Nimbrale");
        return monitor ? desktop().screenshot(monitor->geometry) : desktop().windowPicture("Share this");
    }
    [[nodiscard]] static int secretPixels(const QImage& image) { return pixelsOf(secretColor, image); }
    [[nodiscard]] static bool showsSecret() { return secretPixels(shared()) > region.width() * region.height() / 2; }
    /// The card, or what the locker shows. Black alone is no sign of a lock: the virtual display may be black for one
    /// picture soon after it was made, and some lockers take a second or two until they cover anything.
    [[nodiscard]] static bool showsLock(const QImage& image)
    {
        return secretPixels(image) == 0 && pixelsOf(Qt::black, image) < image.width() * image.height();
    }
    [[nodiscard]] static bool isCard(const QImage& image) { return pixelsOf(cardColor, image) > 5000; }

    void lock()
    {
        const Command command = lockingOf(GetParam());
        if (command.empty()) {
            saver_ = std::make_unique<BusProgram>(desktop().environment().at("DBUS_SESSION_BUS_ADDRESS"));
            saver_->signal("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", {true});
            return;
        }
        locking_ = desktop().spawn(command.front(), {command.begin() + 1, command.end()});
        ASSERT_TRUE(locking_) << command.front() << " is not installed";
    }

    void unlock()
    {
        saver_.reset();
        locking_.reset();
        if (GetParam() == DesktopKind::mate)
            desktop().run("mate-screensaver-command", {"--exit"});
    }

    std::unique_ptr<Application> application_;
    std::unique_ptr<Process> locking_;
    std::unique_ptr<BusProgram> saver_;
};

TEST_P(DesktopLock, SharesNotOnePixelOfWhatIsBehind)
{
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_NO_FATAL_FAILURE(lock());
    ASSERT_TRUE(waitUntil([] { return showsLock(shared()); }, Milliseconds{10000}, Milliseconds{1}))
        << "kept as " << keepImage(desktop().screenshot(), "screen") << "; " << application_->process().output();
    const auto gone = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
    const auto covered = std::chrono::steady_clock::now();
    std::optional<Milliseconds> firstCard;
    int cards = 0;
    int leaks = 0;
    int othersThanCards = 0;
    for (int picture = 0; picture < picturesToLookThrough; ++picture) {
        if (picture % 10 == 0)
            scene->fill("secret", {picture % region.width(), 0, 10, region.height()}, secretColor);
        const QImage image = shared();
        cards += isCard(image);
        if (isCard(image) && !firstCard)
            firstCard = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - covered);
        othersThanCards += firstCard && !isCard(image);
        if (secretPixels(image) > 0 && leaks++ == 0)
            keepImage(image, "leak");
    }
    report("behind the lock after " + std::to_string(gone.count()) + " ms; " + std::to_string(leaks) + " of " +
           std::to_string(picturesToLookThrough) + " pictures show it, " + std::to_string(cards) + " show the card");
    EXPECT_EQ(leaks, 0) << "kept as \"leak\"";
    ASSERT_TRUE(firstCard) << "kept as " << keepImage(shared(), "shared");
    EXPECT_LE(*firstCard, longestSightOfLocker);
    EXPECT_EQ(othersThanCards, 0) << "the card is there to stay";
    if (!canBeUnlocked(GetParam()))
        return;
    unlock();
    EXPECT_TRUE(waitUntil([] { return showsSecret(); }, Milliseconds{10000}))
        << "the control: kept as " << keepImage(desktop().screenshot(), "screen");
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopLock, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopLock, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopLock, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopLock, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopLock, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
