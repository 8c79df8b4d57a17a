// The application itself on real desktops: it makes its virtual display there; what it shares is the region, without
// one pixel of the frame.

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"

#include <array>

namespace nimbrale::test {
namespace {

const QColor markerColor(255, 0, 255);
constexpr QRect region(300, 200, 400, 300);
/// The window that stands in for a virtual display where the desktop has none.
const char* const mirrorTitle = "Share this";
/// The frame and its controls lie on the region's edges.
constexpr QRect withoutControls = region.adjusted(30, 30, -30, -30);
constexpr int picturesToLookThrough = 2000;
constexpr double shareThatMayDiffer = 0.001;

class DesktopApplication : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        addWindow("behind", {200, 140, 480, 320}, 1);
        addWindow("front", {500, 260, 380, 300}, 2);
        ASSERT_TRUE(session().waitUntilStill());
        screenSize_ = desktop().screenSize();
        std::string reason;
        Application::Settings settings;
        settings.region = region.translated(0, -topOfRegions());
        application_ = Application::start(desktop(), settings, reason,
                                          {{"NIMBRALE_FRAME_COLOR", markerColor.name().toStdString()}});
        ASSERT_TRUE(application_) << reason;
        ASSERT_TRUE(desktop().waitForPixel(region.left() + 60, region.top() - 3, markerColor, Milliseconds{10000}))
            << "the control: the frame is shown in the marker color; kept as "
            << keepImage(desktop().screenshot(), "screen") << "; the application said: " << said();
    }

    void TearDown() override
    {
        application_.reset();
        DesktopTest::TearDown();
    }

    /// How far below the place that is stored a region lies, because of a panel at the top.
    static int topOfRegions()
    {
        const int panel = session().workArea().top();
        return panel > 0 ? panel - 1 : 0;
    }

    [[nodiscard]] std::string said() { return application_->process().output(); }

    [[nodiscard]] static QRect sharedArea()
    {
        const auto monitor = desktop().monitorNamed("Nimbrale");
        return monitor ? monitor->geometry : QRect();
    }

    /// What a meeting shows: the virtual display, or else the window in its place; null while there is neither.
    [[nodiscard]] static QImage sharedPicture()
    {
        const QRect area = sharedArea();
        return area.isNull() ? desktop().windowPicture(mirrorTitle) : desktop().screenshot(area);
    }

    [[nodiscard]] static bool waitForShare()
    {
        return waitUntil([] { return sharedPicture().size() == region.size(); }, Milliseconds{20000});
    }

    [[nodiscard]] static std::string describe(const QSize& size)
    {
        return std::to_string(size.width()) + "x" + std::to_string(size.height());
    }

    /// Cinnamon's window manager lets there be none.
    void expectAVirtualDisplayOrAWindow()
    {
        if (GetParam() == DesktopKind::cinnamon) {
            EXPECT_TRUE(waitUntil([] { return desktop().windowPicture(mirrorTitle).size() == region.size(); },
                                  Milliseconds{20000}))
                << said();
            EXPECT_TRUE(sharedArea().isNull());
            EXPECT_TRUE(waitUntil([&] { return desktop().screenSize() == screenSize_; }, Milliseconds{5000}))
                << describe(desktop().screenSize());
            return;
        }
        ASSERT_TRUE(application_->waitForVirtualDisplay(region.size()))
            << "no virtual display is made; kept as " << keepImage(desktop().screenshot(), "screen")
            << "; the application said: " << said();
    }

    void expectTheRegionOnIt()
    {
        const int compared = withoutControls.width() * withoutControls.height();
        const ImageTolerance tolerance{.differingPixels = static_cast<int>(shareThatMayDiffer * compared)};
        QImage shared;
        QImage screen;
        static_cast<void>(waitUntil(
            [&] {
                shared = sharedPicture().copy(withoutControls.translated(-region.topLeft()));
                screen = desktop().screenshot(withoutControls);
                return imagesAreAlike(shared, screen, tolerance);
            },
            Milliseconds{5000}));
        EXPECT_TRUE(imagesMatch(shared, screen, tolerance)) << "of " << compared << " pixels";
    }

    /// What was found of the marker's color in what is shared, looked at again and again.
    struct Look {
        /// Each unlike the one before.
        int pictures = 0;
        int leaks = 0;
        /// How often there was nothing to see.
        int gaps = 0;
        QImage last;
    };
    static void look(Look& found)
    {
        const QImage picture = sharedPicture();
        found.gaps += picture.isNull();
        if (picture.isNull() || picture == found.last)
            return;
        found.last = picture;
        ++found.pictures;
        if (pixelsOf(markerColor, picture) > 0 && found.leaks++ == 0)
            keepImage(picture, "leak");
    }

    /// Drags the frame by its handle from where it lies around `from` to `to`, the windows below moving too.
    void dragAndLook(const QPoint& from, const QPoint& to, Look& found)
    {
        constexpr int steps = 50;
        const QPoint handle = Application::handleOf(QRect(from, region.size()));
        desktop().movePointer(handle);
        sleepFor(Milliseconds{100});
        desktop().pressButton();
        for (int step = 1; step <= steps; ++step) {
            desktop().movePointer(handle + (to - from) * step / steps);
            if (step % 5 == 0)
                scene->move("front", {480 + step, 240 + step % 10});
            for (int time = 0; time < 2; ++time) {
                sleepFor(Milliseconds{8});
                look(found);
            }
        }
        desktop().releaseButton();
    }

    std::unique_ptr<Application> application_;
    QSize screenSize_;
};

TEST_P(DesktopApplication, MakesAVirtualDisplayOrSharesAWindowWhereThereCanBeNone)
{
    expectAVirtualDisplayOrAWindow();
}

TEST_P(DesktopApplication, SharesTheRegion)
{
    ASSERT_TRUE(waitForShare()) << said();
    expectTheRegionOnIt();
}

TEST_P(DesktopApplication, LeavesTheScreenAsItWas)
{
    ASSERT_TRUE(waitForShare()) << said();
    if (sharedArea().isNull()) {
        EXPECT_TRUE(waitUntil([&] { return desktop().screenSize() == screenSize_; }, Milliseconds{5000}))
            << "without a virtual display the screen is larger all the same: " << describe(desktop().screenSize());
    }
    EXPECT_EQ(application_->quit(), 0) << said();
    EXPECT_TRUE(waitUntil([] { return !desktop().monitorNamed("Nimbrale"); }, Milliseconds{5000}));
    EXPECT_TRUE(waitUntil([&] { return desktop().screenSize() == screenSize_; }, Milliseconds{5000}))
        << describe(desktop().screenSize()) << " instead of " << describe(screenSize_);
}

TEST_P(DesktopApplication, SharesNotOnePixelOfTheFrameWhileItIsDragged)
{
    ASSERT_TRUE(waitForShare()) << said();
    Look found;
    QPoint place = region.topLeft();
    const std::array<QPoint, 4> corners{QPoint(420, 260), QPoint(360, 300), QPoint(180, 240), region.topLeft()};
    constexpr int mostDrags = 100;
    for (std::size_t round = 0; round < mostDrags && found.pictures < picturesToLookThrough; ++round) {
        const QPoint corner = corners.at(round % corners.size());
        dragAndLook(place, corner, found);
        place = corner;
        const QPoint stored = place - QPoint(0, topOfRegions());
        ASSERT_TRUE(waitUntil([&] { return application_->storedRegion().topLeft() == stored; }, Milliseconds{3000}))
            << "the drag is not followed: at (" << application_->storedRegion().x() << ", "
            << application_->storedRegion().y() << "); kept as " << keepImage(desktop().screenshot(), "screen");
    }
    const std::string figure = std::to_string(found.leaks) + " of " + std::to_string(found.pictures) +
                               " pictures show it, on " + (sharedArea().isNull() ? "a window" : "a virtual display") +
                               "; " + std::to_string(found.gaps) + " times there was none";
    report(testing::UnitTest::GetInstance()->current_test_info()->name() + (": " + figure));
    EXPECT_EQ(found.leaks, 0) << figure;
    EXPECT_GE(found.pictures, picturesToLookThrough) << "the shared picture stands still; " << figure;

    scene->add("marked",
               {.geometry = {QRect(place, region.size()).center(), QSize(40, 40)}, .seed = 0, .color = markerColor});
    EXPECT_TRUE(waitUntil([&] { return pixelsOf(markerColor, sharedPicture()) > 0; }, Milliseconds{5000}))
        << "the control: a window of that color would have been seen";
    EXPECT_EQ(application_->quit(), 0) << said();
}

class DesktopApplicationOnACard : public DesktopApplication {
protected:
    [[nodiscard]] PrivateDesktop::Server server() const override { return PrivateDesktop::Server::xorgDummy; }
};

TEST_P(DesktopApplicationOnACard, MakesAVirtualDisplayOrSharesAWindowWhereThereCanBeNone)
{
    expectAVirtualDisplayOrAWindow();
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopApplication, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopApplication, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopApplication, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopApplication, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopApplication, testing::Values(DesktopKind::cinnamon));

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopApplicationOnACard, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopApplicationOnACard, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopApplicationOnACard, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopApplicationOnACard, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopApplicationOnACard, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
