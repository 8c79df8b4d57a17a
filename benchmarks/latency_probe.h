#pragma once

#include "tests/support/private_desktop.h"

#include <QPoint>

#include <cstdint>
#include <memory>
#include <random>
#include <vector>

struct xcb_connection_t;

namespace nimbrale::benchmarks {

/// A small window inside the shared region that changes its color and waits until the place where the region is shown
/// has changed too.
class LatencyProbe {
public:
    /// Where the window is to be seen.
    struct Showing {
        /// A child of the root, or the root itself for the screen.
        std::uint32_t shower = 0;
        /// The place in it that corresponds to the window's top-left corner, in root pixels.
        QPoint place;
    };

    /// `place` is the window's top-left corner, in root pixels. Throws Failure when a shower is not there.
    LatencyProbe(const test::PrivateDesktop& desktop, const QPoint& place, const std::vector<Showing>& showings);
    ~LatencyProbe();
    LatencyProbe(const LatencyProbe&) = delete;
    LatencyProbe& operator=(const LatencyProbe&) = delete;

    /// Milliseconds from the request that changes the window to the news that its new color is shown, for that many
    /// changes at irregular times, about nine a second. A series for each showing, in their order. A change that
    /// is never shown counts as 300 ms.
    [[nodiscard]] std::vector<std::vector<double>> measure(int count);

private:
    void watch(const Showing& showing);
    [[nodiscard]] std::vector<double> measureOne(std::uint32_t color);
    /// Whether the event tells of drawing where the window is to be seen.
    [[nodiscard]] bool concerns(const void* event, const Showing& showing) const;
    [[nodiscard]] bool isShown(const Showing& showing, std::uint32_t color) const;

    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    std::uint8_t firstEvent_ = 0;
    std::uint32_t window_ = 0;
    std::uint32_t context_ = 0;
    /// Pixels inside the window, in the shower's own pixels.
    std::vector<Showing> watched_;
    std::minstd_rand random_;
};

} // namespace nimbrale::benchmarks
