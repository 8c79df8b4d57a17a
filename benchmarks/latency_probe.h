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
    /// `place` is the window's top-left corner and `shownAt` the corresponding place in `shower`, a child of the root;
    /// both in root pixels. Throws Failure when `shower` is not there.
    LatencyProbe(const test::PrivateDesktop& desktop, const QPoint& place, std::uint32_t shower, const QPoint& shownAt);
    ~LatencyProbe();
    LatencyProbe(const LatencyProbe&) = delete;
    LatencyProbe& operator=(const LatencyProbe&) = delete;

    /// Milliseconds from the request that changes the window to the news that its new color is shown, for that many
    /// changes at irregular times, about nine a second. A change that is never shown counts as 300 ms.
    [[nodiscard]] std::vector<double> measure(int count);

private:
    [[nodiscard]] double measureOne(std::uint32_t color);
    [[nodiscard]] bool isShown(std::uint32_t color) const;
    [[nodiscard]] bool concernsProbe(const void* event) const;

    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    std::uint8_t firstEvent_ = 0;
    std::uint32_t window_ = 0;
    std::uint32_t context_ = 0;
    std::uint32_t shower_;
    /// In the shower's own pixels.
    QPoint watched_;
    std::minstd_rand random_;
};

} // namespace nimbrale::benchmarks
