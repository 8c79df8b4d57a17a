#pragma once

#include "platform/pixel_rect.h"

#include <cstdint>
#include <vector>

namespace nimbrale {

enum class PixelFormat {
    bgra, ///< 8 bits a channel, blue in the lowest byte
};

/// What the fourth channel of a picture says.
enum class SurfaceAlpha {
    opaque,       ///< nothing: the picture hides what lies behind it, and the channel may hold anything
    premultiplied ///< how much of what lies behind is hidden; the colors are multiplied by it already
};

/// One picture, shared by reference and never copied. Its pixels live in the process (`BufferSurface`) or where the
/// system's capture keeps them; `SurfaceReader` brings the latter into the process.
///
/// The pixels do not change while anybody holds the surface: its producer draws into the same storage again only when
/// every consumer has let go of it. Immutable; any thread.
class Surface {
public:
    virtual ~Surface() = default;

    /// In pixels.
    [[nodiscard]] virtual int width() const = 0;
    [[nodiscard]] virtual int height() const = 0;
    [[nodiscard]] virtual PixelFormat pixelFormat() const = 0;
    [[nodiscard]] virtual SurfaceAlpha alpha() const = 0;

    /// Which memory holds the pixels: a number that no other storage of this process ever has; never 0. For whoever
    /// keeps something made for that memory.
    [[nodiscard]] virtual std::uint64_t storage() const = 0;
    /// Which picture this is: a number that no other picture of this process ever has; never 0.
    [[nodiscard]] virtual std::uint64_t identifier() const = 0;
    /// What may differ from the picture with that identifier, in pixels; rectangles may overlap. Whoever has shown or
    /// read that picture need touch nothing else, however many pictures it missed since. Nothing for the surface's own
    /// identifier; all of it for a picture of another producer, for one too long ago to be remembered, and for 0.
    [[nodiscard]] virtual std::vector<PixelRect> changedSince(std::uint64_t identifier) const = 0;
};

/// Numbers for storages and pictures: each call gives another one. Any thread.
[[nodiscard]] std::uint64_t newSurfaceNumber();

} // namespace nimbrale
