#pragma once

#include "platform/pixel_rect.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace nimbrale::x11 {

/// The edges of the X screen that one panel reserves, in pixels from that edge, each along a part of it: the ends are
/// the first and the last pixel. Any numbers may stand in it, since the panel writes them itself.
struct Strut {
    std::uint32_t left = 0, right = 0, top = 0, bottom = 0;
    std::uint32_t leftStart = 0, leftEnd = 0, rightStart = 0, rightEnd = 0;
    std::uint32_t topStart = 0, topEnd = 0, bottomStart = 0, bottomEnd = 0;

    bool operator==(const Strut&) const = default;
};

/// What panels and the window manager say about the space that they take, as they say it.
struct SpaceClaims {
    /// The X screen, from whose edges struts are measured.
    PixelRect screen{};
    std::vector<Strut> struts{};
    /// The free areas that some window managers tell, one for each display.
    std::vector<PixelRect> perDisplay{};
    /// The one free area of the current desktop, for all displays together.
    std::optional<PixelRect> common{};
};

/// A strut from the numbers of `_NET_WM_STRUT_PARTIAL` or, where those are not twelve, from those of `_NET_WM_STRUT`;
/// absent when neither has as many as it must.
[[nodiscard]] std::optional<Strut> strutFrom(std::span<const std::uint32_t> partial,
                                             std::span<const std::uint32_t> whole);

/// Rectangles from a property that holds four numbers for each; an incomplete last one is dropped.
[[nodiscard]] std::vector<PixelRect> rectanglesFrom(std::span<const std::uint32_t> numbers);

/// The free area of that desktop from the numbers of `_NET_WORKAREA`, which has four for each; that of the last one
/// where there are fewer desktops, absent without any.
[[nodiscard]] std::optional<PixelRect> commonAreaFrom(std::span<const std::uint32_t> numbers, std::size_t desktop);

/// What is free of each of `displays`, in root pixels and in the same order. The common area counts for a lone display
/// only: one rectangle cannot tell which display a panel stands on. A display that would be left without any free part
/// stays whole.
[[nodiscard]] std::vector<PixelRect> freeAreas(const std::vector<PixelRect>& displays, const SpaceClaims& claims);

} // namespace nimbrale::x11
