#pragma once

#include "tests/support/private_desktop.h"

#include <cstdint>
#include <memory>

struct xcb_connection_t;

namespace nimbrale::benchmarks {

/// Counts the pictures that a window is given, by the damage that the server reports. Nothing is read while it counts,
/// so that counting costs this process nothing.
class FrameCounter {
public:
    /// Counts from now on. Throws Failure when the window is not there.
    FrameCounter(const test::PrivateDesktop& desktop, std::uint32_t window);
    ~FrameCounter();
    FrameCounter(const FrameCounter&) = delete;
    FrameCounter& operator=(const FrameCounter&) = delete;

    /// The pictures since the last call, which the server drew at least 4 ms apart: one picture may be drawn in several
    /// pieces.
    [[nodiscard]] int take();

private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const;
    };
    std::unique_ptr<xcb_connection_t, Disconnect> connection_;
    std::uint8_t firstEvent_ = 0;
};

} // namespace nimbrale::benchmarks
