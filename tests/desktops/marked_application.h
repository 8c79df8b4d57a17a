#pragma once

#include "tests/desktops/captured_session.h"
#include "tests/desktops/desktop_test.h"
#include "tests/desktops/shared_picture.h"
#include "tests/support/application.h"
#include "tests/support/image_compare.h"

#include <QColor>
#include <QImage>
#include <QRect>

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

inline const QColor markerColor(255, 0, 255);
/// In points.
inline constexpr QRect region(300, 200, 400, 300);
/// The frame and its controls lie on the region's edges.
inline constexpr QRect withoutControls = region.adjusted(30, 30, -30, -30);
inline constexpr double shareThatMayDiffer = 0.001;

/// The application itself on a real desktop, with the environment that it gets from the panel, its frame in a marker
/// color around windows of another program.
class MarkedApplication : public DesktopTest {
protected:
    void SetUp() override
    {
        DesktopTest::SetUp();
        if (HasFatalFailure() || IsSkipped())
            return;
        addWindow("behind", inPixels({200, 140, 480, 320}), 1);
        addWindow("front", inPixels({500, 260, 380, 300}), 2);
        ASSERT_TRUE(session().waitUntilStill());
        screenSize_ = desktop().screenSize();
        std::string reason;
        Application::Settings settings;
        settings.region = region.translated(0, -topOfRegions());
        Environment environment = session().toolkitEnvironment();
        environment["NIMBRALE_FRAME_COLOR"] = markerColor.name().toStdString();
        application_ = Application::start(desktop(), settings, reason, environment);
        ASSERT_TRUE(application_) << reason;
        const QPoint onTheFrame = inPixels(region).topLeft() + QPoint(60, -3) * scale();
        ASSERT_TRUE(desktop().waitForPixel(onTheFrame.x(), onTheFrame.y(), markerColor, Milliseconds{10000}))
            << "the control: the frame is shown in the marker color; kept as "
            << keepImage(desktop().screenshot(), "screen") << "; the application said: " << said();
    }

    void TearDown() override
    {
        application_.reset();
        DesktopTest::TearDown();
    }

    /// How far below the place that is stored a region lies, because of a panel at the top. In points.
    [[nodiscard]] int topOfRegions() const
    {
        const int panel = (session().workArea().top() + scale() - 1) / scale();
        return panel > 0 ? panel - 1 : 0;
    }

    [[nodiscard]] std::string said() { return application_->process().output(); }

    [[nodiscard]] bool waitForShare() const
    {
        return waitUntil([this] { return sharedPicture(desktop()).size() == inPixels(region).size(); },
                         Milliseconds{20000});
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
            EXPECT_TRUE(sharedArea(desktop()).isNull());
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
        const QRect place = inPixels(withoutControls);
        const int compared = place.width() * place.height();
        const ImageTolerance tolerance{.differingPixels = static_cast<int>(shareThatMayDiffer * compared)};
        QImage shared;
        QImage screen;
        static_cast<void>(waitUntil(
            [&] {
                shared = sharedPicture(desktop()).copy(place.translated(-inPixels(region).topLeft()));
                screen = desktop().screenshot(place);
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
        const QImage picture = sharedPicture(desktop());
        found.gaps += picture.isNull();
        if (picture.isNull() || picture == found.last)
            return;
        found.last = picture;
        ++found.pictures;
        if (pixelsOf(markerColor, picture) > 0 && found.leaks++ == 0)
            keepImage(picture, "leak");
    }

    /// The end of a test for leaks: what was found, and that it would have been.
    void expectNoLeakIn(const Look& found, int pictures, const QRect& place)
    {
        const std::string figure = std::to_string(found.leaks) + " of " + std::to_string(found.pictures) +
                                   " pictures show it, on " +
                                   (sharedArea(desktop()).isNull() ? "a window" : "a virtual display") + "; " +
                                   std::to_string(found.gaps) + " times there was none";
        report(testing::UnitTest::GetInstance()->current_test_info()->name() + (": " + figure));
        EXPECT_EQ(found.leaks, 0) << figure;
        EXPECT_GE(found.pictures, pictures) << "the shared picture stands still; " << figure;

        scene->add("marked", {.geometry = {place.center(), QSize(40, 40)}, .seed = 0, .color = markerColor});
        EXPECT_TRUE(waitUntil([&] { return pixelsOf(markerColor, sharedPicture(desktop())) > 0; }, Milliseconds{5000}))
            << "the control: a window of that color would have been seen";
    }

    std::unique_ptr<Application> application_;
    QSize screenSize_;
};

} // namespace nimbrale::test
