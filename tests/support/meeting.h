#pragma once

#include "tests/support/application.h"
#include "tests/support/browser_call.h"
#include "tests/support/image_compare.h"
#include "tests/support/private_desktop.h"
#include "tests/support/scene.h"

#include <QImage>
#include <QRect>

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale::test {

/// A whole meeting: a private desktop whose content is known to the pixel and moves in one place, the application that
/// frames part of it, and a browser that shares the virtual display in a call.
class Meeting {
public:
    struct Options {
        PrivateDesktop::Options desktop = {
            .width = 1600, .height = 900, .windowManager = PrivateDesktop::WindowManager::openbox};
        Application::Settings application = {};
        Environment applicationEnvironment = {};
        BrowserCall::Options call = {};
        /// A second display, plugged in before the application starts; not on Xvfb.
        std::optional<QRect> secondDisplay = {};
        /// Whether the wall is painted with a pattern, or with one quiet green in which no color is near the marker.
        bool isPatterned = true;
    };

    /// Starts everything and shares; returns when the far side gets frames of the region's size. Null with the reason
    /// when something is missing here or a step fails, which is a failure of the test too. Tests call `requireMeeting`.
    [[nodiscard]] static std::unique_ptr<Meeting> start(const Options& options, std::string& reason);
    /// After a failure of the running test, keeps the desktop's picture and prints what else helps to understand it.
    ~Meeting();
    Meeting(const Meeting&) = delete;
    Meeting& operator=(const Meeting&) = delete;

    [[nodiscard]] PrivateDesktop& desktop() { return *desktop_; }
    [[nodiscard]] Scene& scene() { return *scene_; }
    [[nodiscard]] Application& application() { return *application_; }
    [[nodiscard]] BrowserCall& call() { return *call_; }
    /// Points to pixels: the nearest pixel, and the whole pixels of a region.
    [[nodiscard]] QRect pixels(const QRect& points) const;
    [[nodiscard]] QPoint pixels(QPoint points) const;

    /// What a browser takes of a screen: its video has even sizes, so that an odd last column or row is left out.
    [[nodiscard]] static QRect sharedPart(const QRect& pixels);
    /// What the desktop shows there without the application, in pixels. Where the content moves, and around
    /// the pointer, it is black.
    [[nodiscard]] QImage contentOf(const QRect& pixels) const;
    /// Waits for the shared track to show exactly the content of the rectangle (greys within 2, edges to the pixel,
    /// colors within 4), for the far side to show it within the codec's error (16, colors 24, but for one pixel in a
    /// hundred), and for both to move.
    [[nodiscard]] testing::AssertionResult showsContentOf(const QRect& pixels,
                                                          Milliseconds timeout = Milliseconds{5000});
    /// Waits for the virtual display itself to show the content, bit for bit.
    [[nodiscard]] testing::AssertionResult displayShowsContentOf(const QRect& pixels,
                                                                 Milliseconds timeout = Milliseconds{3000}) const;
    /// Waits for the shared track alone to show the content.
    [[nodiscard]] testing::AssertionResult trackShowsContentOf(const QRect& pixels, Milliseconds timeout);

    /// Drags the frame around `region` (points) by its handle so that the region's corner goes to `corner` (points).
    void dragFrame(const QRect& region, QPoint corner, int steps = 20, Milliseconds pause = Milliseconds{15});
    /// Puts the moving window's middle there, in pixels.
    void placeMovement(QPoint middle);

    /// In pixels.
    [[nodiscard]] QRect movementArea() const { return movementArea_; }
    /// The color of the wall that has no pattern.
    [[nodiscard]] static QColor quietColor();

    [[nodiscard]] bool restartApplication(std::string& reason);

private:
    Meeting() = default;
    /// The tolerance for everything, and the one for what is grey, edges included.
    struct Tolerances {
        ImageTolerance colors;
        ImageTolerance greys;
    };
    [[nodiscard]] bool arrangeDisplays(const Options& options);
    void fillDesktop(bool isPatterned);
    [[nodiscard]] testing::AssertionResult pictureShows(const std::function<QImage()>& take, const QRect& region,
                                                        const Tolerances& tolerances, Milliseconds timeout) const;
    [[nodiscard]] QImage withoutWhatMoves(QImage picture, const QRect& pixels) const;

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<Scene> scene_;
    std::unique_ptr<Process> movement_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<BrowserCall> call_;
    Environment applicationEnvironment_;
    QImage content_;
    QRect movementArea_;
    double scale_ = 1;
};

/// `Meeting::start`, never null: the running test is skipped for want of a program and ends where a step fails.
[[nodiscard]] std::unique_ptr<Meeting> requireMeeting(const Meeting::Options& options);

} // namespace nimbrale::test
