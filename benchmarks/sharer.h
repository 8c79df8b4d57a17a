#pragma once

#include "tests/support/private_desktop.h"

#include <QRect>

#include <memory>
#include <optional>

namespace nimbrale::benchmarks {

enum class SharerKind {
    application, ///< the real application with a settings file of its own
    copyLoop,    ///< nimbrale_copy_loop, a loop of XShmGetImage and XShmPutImage
    screenGrab   ///< ffmpeg from x11grab into an SDL window
};

/// A program that shows a region of the display at another place of the X screen, below and right of the display: the
/// application's virtual display, or a window there. The program ends with this object, and the screen has its former
/// size again.
class Sharer {
public:
    struct Order {
        SharerKind kind = SharerKind::application;
        /// Root pixels, inside the desktop's display.
        QRect region;
        int framesPerSecond = 30;
    };

    /// Starts the program and returns at once. Throws Failure when it is not installed.
    [[nodiscard]] static std::unique_ptr<Sharer> launch(test::PrivateDesktop& desktop, const Order& order);
    /// Starts the program and returns when its window stands at the other place. Throws Failure when that takes long.
    [[nodiscard]] static std::unique_ptr<Sharer> start(test::PrivateDesktop& desktop, const Order& order);
    ~Sharer();
    Sharer(const Sharer&) = delete;
    Sharer& operator=(const Sharer&) = delete;

    [[nodiscard]] test::Process& process() { return *process_; }
    [[nodiscard]] pid_t pid() const { return process_->pid(); }
    /// Where the region is shown, in root pixels; absent as long as it is not.
    [[nodiscard]] std::optional<QRect> findTarget() const;
    /// The same, when it is shown already.
    [[nodiscard]] const QRect& target() const { return target_; }
    /// The child of the root that shows the region.
    [[nodiscard]] std::uint32_t window() const;

private:
    Sharer(test::PrivateDesktop& desktop, const Order& order);
    void writeSettings() const;
    void startCopyLoop();
    void startScreenGrab();
    void growScreen();

    test::PrivateDesktop& desktop_;
    Order order_;
    QSize display_;
    QRect target_;
    std::unique_ptr<test::Process> process_;
};

} // namespace nimbrale::benchmarks
