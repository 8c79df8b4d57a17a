// The README's pictures of desktops with the frame on them, made by scripts/make-gallery.sh: what is in the frame is
// what is shared, and each picture is small enough for a page.

#include "tests/desktops/desktop_test.h"
#include "tests/desktops/shared_picture.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"

#include <QLinearGradient>
#include <QPainter>

#include <array>
#include <filesystem>
#include <sstream>

namespace nimbrale::test {
namespace {

constexpr QSize screenSize(1280, 800);
constexpr QSize pictureSize(640, 400);
constexpr std::uintmax_t mostBytes = 200'000;
constexpr QRect region(190, 110, 660, 520);
const QColor ink(70, 78, 92);
const QColor paleInk(196, 202, 212);
const QColor barColor(74, 134, 200);
const QColor accent(232, 124, 60);

/// A calm one, over which the frame is seen well.
QImage wallpaper()
{
    QImage image(screenSize, QImage::Format_RGB32);
    QLinearGradient sky(0, 0, screenSize.width() / 2.0, screenSize.height());
    sky.setColorAt(0, QColor(38, 70, 110));
    sky.setColorAt(1, QColor(96, 150, 160));
    QPainter(&image).fillRect(image.rect(), sky);
    return image;
}

class DesktopGallery : public DesktopTest {
protected:
    [[nodiscard]] DesktopSession::Options options() const override
    {
        DesktopSession::Options options = DesktopTest::options();
        options.width = screenSize.width();
        options.height = screenSize.height();
        options.wallpaper = wallpaper();
        return options;
    }

    void prepareSession() override
    {
        if (GetParam() == DesktopKind::xfce)
            hideUserName();
    }

    /// The panel's button for the end of the session bears it.
    static void hideUserName()
    {
        std::istringstream plugins(desktop().run("xfconf-query", {"-c", "xfce4-panel", "-p", "/plugins", "-l", "-v"}));
        std::string plugin;
        std::string type;
        while (plugins >> plugin >> type && type != "actions")
            plugins.ignore(1000, '\n');
        ASSERT_EQ(type, "actions") << "the panel has no such button";
        desktop().run("xfconf-query",
                      {"-c", "xfce4-panel", "-p", plugin + "/appearance", "-n", "-t", "uint", "-s", "0"});
    }

    void drawLines(const std::string& window, QPoint first, int width, int count)
    {
        // As ragged as text.
        constexpr std::array<int, 4> shorterBy{0, 30, 10, 70};
        for (int line = 0; line < count; ++line)
            scene->fill(window, {first + QPoint(0, 16 * line), QSize(width - shorterBy.at(std::size_t(line) % 4), 6)},
                        paleInk);
    }

    /// The notes lie partly outside of the frame, and so are partly shared.
    void showWindows()
    {
        addColoredWindow("Report", {240, 150, 540, 400}, Qt::white);
        ASSERT_TRUE(session().waitUntilStill());
        addColoredWindow("Notes", {720, 400, 380, 260}, QColor(255, 250, 225));
        ASSERT_TRUE(session().waitUntilStill());
    }

    /// A page with a heading, text and a chart.
    void drawReport()
    {
        scene->fill("Report", {32, 28, 250, 18}, ink);
        drawLines("Report", {32, 70}, 476, 5);
        constexpr std::array<int, 7> heights{60, 95, 80, 130, 150, 120, 185};
        for (std::size_t bar = 0; bar < heights.size(); ++bar) {
            const int left = 52 + 64 * int(bar);
            scene->fill("Report", {left, 372 - heights.at(bar), 40, heights.at(bar)},
                        bar + 1 == heights.size() ? accent : barColor);
        }
        scene->fill("Report", {32, 372, 476, 2}, ink);
    }

    void drawNotes()
    {
        scene->fill("Notes", {24, 22, 120, 14}, ink);
        drawLines("Notes", {24, 56}, 330, 8);
    }

    void expectThatTheFrameIsShared()
    {
        const QRect inner = region.adjusted(30, 30, -30, -30);
        EXPECT_TRUE(waitUntil(
            [&] {
                const QImage shared = sharedPicture(desktop()).copy(inner.translated(-region.topLeft()));
                return imagesAreAlike(shared, desktop().screenshot(inner), {.differingPixels = 100});
            },
            Milliseconds{10000}));
    }
};

TEST_P(DesktopGallery, PictureForTheReadme)
{
    ASSERT_NO_FATAL_FAILURE(showWindows());
    const int bar = session().workArea().top();
    std::string reason;
    const auto application =
        Application::start(desktop(), {.region = region.translated(0, bar > 0 ? 1 - bar : 0)}, reason);
    ASSERT_TRUE(application) << reason;
    ASSERT_TRUE(application->waitForVirtualDisplay(region.size())) << application->process().output();
    ASSERT_TRUE(session().waitUntilStill());
    // What was drawn goes when the screen grows for the virtual display.
    drawReport();
    drawNotes();
    ASSERT_TRUE(session().waitUntilStill());
    ASSERT_TRUE(desktop().waitForPixel(region.left() - 2, region.center().y(), QColor(255, 214, 10)));
    expectThatTheFrameIsShared();
    const auto report = desktop().windowTitled("Report");
    ASSERT_TRUE(report);
    EXPECT_EQ(desktop().pixel(report->left() + 72, report->top() + 350), barColor) << "the chart is missing";

    const QImage screen = desktop().screenshot({QPoint(), screenSize});
    const std::filesystem::path picture =
        keepImage(screen.scaled(pictureSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation), "readme");
    EXPECT_LT(std::filesystem::file_size(picture), mostBytes);
    EXPECT_EQ(application->quit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopGallery, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopGallery, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopGallery, testing::Values(DesktopKind::gnome));

} // namespace
} // namespace nimbrale::test
