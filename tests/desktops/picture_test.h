#pragma once

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/support/image_compare.h"

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QRect>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

/// A capture of the whole screen with an own panel over it, and what the screen shows beside it. All places are in
/// points.
class PictureTest : public DesktopTest {
protected:
    void TearDown() override
    {
        captured_.reset();
        DesktopTest::TearDown();
    }

    /// As when the application starts: before that nothing of it is there.
    void startCapture()
    {
        const QRect screen(QPoint(), desktop().screenSize());
        captured_ = std::make_unique<CapturedSession>(desktop(), screen, inPixels(ownPlace), ownColor);
        ASSERT_TRUE(captured_->start());
        ASSERT_EQ(captured_->scale(), scale()) << "the control: the desktop is scaled";
    }

    void waitUntilShown(const std::function<bool()>& isShown, const std::string& what)
    {
        ASSERT_TRUE(pumpUntil(isShown, Milliseconds{10000}))
            << what << " does not show; kept as " << keepImage(desktop().screenshot(), "screen");
    }

    /// Whether the screen is another than it was.
    static std::function<bool()> differsFrom(const QImage& before)
    {
        return [before] {
            const QImage now = desktop().screenshot();
            int differing = 0;
            for (int y = 0; y < now.height(); y += 4) {
                for (int x = 0; x < now.width(); x += 4)
                    differing += now.pixel(x, y) != before.pixel(x, y);
            }
            return differing > 20;
        };
    }

    void expectTheScreenIsShared()
    {
        ASSERT_TRUE(session().waitUntilStill()) << "the screen does not come to rest";
        const QRect& captureArea = captured_->region();
        ASSERT_GT(pixelsOf(ownColor, desktop().screenshot(captureArea)), 10000)
            << "the control: the own panel is shown";
        const QRect own = inPixels(ownPlace);
        const int compared = captureArea.width() * captureArea.height() - own.width() * own.height();
        const ImageTolerance tolerance{.differingPixels = int(mostThatMayDiffer * compared)};
        QImage shared;
        QImage screen;
        static_cast<void>(pumpUntil(
            [&] {
                shared = captured_->image();
                screen = desktop().screenshot(captureArea);
                return imagesAreAlike(withoutOwn(shared), withoutOwn(screen), tolerance);
            },
            Milliseconds{4000}));
        EXPECT_EQ(pixelsOf(ownColor, shared), 0) << "the own panel is shared";
        const int differing = differingPixels(withoutOwn(shared), withoutOwn(screen));
        const std::string figure = std::to_string(differing) + " of " + std::to_string(compared) +
                                   " pixels differ: " + std::to_string(100.0 * differing / compared) + " %";
        report(testing::UnitTest::GetInstance()->current_test_info()->name() + (": " + figure));
        EXPECT_TRUE(imagesMatch(withoutOwn(shared), withoutOwn(screen), tolerance)) << figure;
    }

    void expectDecoratedWindows()
    {
        ASSERT_NO_FATAL_FAILURE(startCapture());
        const QImage before = desktop().screenshot();
        addWindow("behind", inPixels({120, 120, 480, 320}), 1);
        addWindow("front", inPixels({460, 220, 460, 300}), 2);
        ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the windows"));
        expectTheScreenIsShared();
    }

    void expectAFullScreenWindow()
    {
        ASSERT_NO_FATAL_FAILURE(startCapture());
        const QImage before = desktop().screenshot();
        scene->add("film", {.geometry = {QPoint(), desktop().screenSize()},
                            .seed = 6,
                            .overrideRedirect = false,
                            .isFullScreen = true});
        ASSERT_NO_FATAL_FAILURE(waitUntilShown(differsFrom(before), "the window"));
        expectTheScreenIsShared();
    }

    void expectWindowsThatDecorateThemselves()
    {
        ASSERT_NO_FATAL_FAILURE(startCapture());
        addWindow("behind", inPixels({120, 120, 480, 320}), 1);
        ASSERT_NO_FATAL_FAILURE(showGtkWindow(inPixels({460, 220, 460, 300})));
        expectTheScreenIsShared();
    }

    void expectAnOpenMenu()
    {
        ASSERT_NO_FATAL_FAILURE(startCapture());
        ASSERT_NO_FATAL_FAILURE(showGtkWindow(inPixels({260, 320, 460, 220})));
        ASSERT_TRUE(session().waitUntilStill());
        const QImage before = desktop().screenshot();
        desktop().click(gtk->menuButton());
        desktop().movePointer(pointerRest * scale());
        const auto isShown = differsFrom(before);
        ASSERT_NO_FATAL_FAILURE(waitUntilShown(isShown, "the menu"));
        expectTheScreenIsShared();
        EXPECT_TRUE(isShown()) << "the menu has gone meanwhile";
    }

    std::unique_ptr<CapturedSession> captured_;

private:
    static constexpr QRect ownPlace{420, 260, 200, 120};
    /// Of the picture's pixels outside of the own windows' places.
    static constexpr double mostThatMayDiffer = 0.001;
    const QColor ownColor{255, 0, 255};

    [[nodiscard]] QImage withoutOwn(QImage image) const
    {
        QPainter(&image).fillRect(inPixels(ownPlace), Qt::black);
        return image;
    }

    static int differingPixels(const QImage& one, const QImage& other)
    {
        int count = 0;
        for (int y = 0; y < one.height(); ++y) {
            for (int x = 0; x < one.width(); ++x)
                count += (one.pixel(x, y) & RGB_MASK) != (other.pixel(x, y) & RGB_MASK);
        }
        return count;
    }
};

} // namespace nimbrale::test
