#pragma once

#include "platform/pixel_rect.h"

#include <array>
#include <cstdint>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::x11 {

// RandR's layout as the server tells it, and what follows from it. Pure: needs no server.

/// A RandR 1.5 monitor.
struct RandrMonitor {
    xcb_atom_t name = 0;
    bool isPrimary = false;
    /// Made by the server for a CRTC, not by a program.
    bool isAutomatic = false;
    std::vector<xcb_randr_output_t> outputs;
    PixelRect pixels;
};

/// A display that shows a part of its area and follows the pointer over the rest.
struct RandrPanning {
    xcb_randr_crtc_t crtc = XCB_NONE;
    PixelRect area;
    /// Where the pointer moves the display; empty for everywhere.
    PixelRect tracking;
    /// How near the display's edges that begins: left, top, right, bottom.
    std::array<std::int16_t, 4> borders = {};
};

/// How many millimeters a pixel of the X screen is said to have. Kept when the screen is resized, so that the dots per
/// inch that programs compute from it stay what they were.
struct PixelPitch {
    double horizontal = 25.4 / 96;
    double vertical = 25.4 / 96;
};

struct SizeInMillimeters {
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    bool operator==(const SizeInMillimeters&) const = default;
};

/// The pitch of a screen of that size; the usual one where a server tells no millimeters.
[[nodiscard]] PixelPitch pitchOf(int width, int height, const SizeInMillimeters& size);
/// That many pixels in whole millimeters, at least one in each direction.
[[nodiscard]] SizeInMillimeters millimeters(int width, int height, const PixelPitch& pitch);

/// What holds all of `lit` and all of `monitors`, but for the one named `except`.
[[nodiscard]] PixelRect boundsOf(const std::vector<PixelRect>& lit, const std::vector<RandrMonitor>& monitors,
                                 xcb_atom_t except);
/// The output to make primary when none is: one of the monitor nearest to the left edge, and of several there to the
/// top; XCB_NONE without any. The monitor `except` and those without outputs are not looked at.
[[nodiscard]] xcb_randr_output_t outputForPrimary(const std::vector<RandrMonitor>& monitors, xcb_atom_t except);
/// The output of `idle` that no monitor but `except` bears: `preferred` if that is such a one, XCB_NONE without any.
[[nodiscard]] xcb_randr_output_t unborneOutput(const std::vector<xcb_randr_output_t>& idle,
                                               const std::vector<RandrMonitor>& monitors, xcb_atom_t except,
                                               xcb_randr_output_t preferred);

} // namespace nimbrale::x11
