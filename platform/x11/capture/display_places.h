#pragma once

#include "platform/pixel_rect.h"

#include <cstdint>
#include <vector>

namespace nimbrale::x11 {

/// A display and where it lies.
struct DisplayPlace {
    /// The atom of the display's name.
    std::uint32_t name = 0;
    /// Root pixels.
    PixelRect pixels;

    bool operator==(const DisplayPlace&) const = default;
};

/// Whether the pixels at a place of the root are still those of the display that a stream shows. When displays move, a
/// neighbor comes to lie under the place, and whoever computes places hears of it later than pictures are drawn.
///
/// A picture may also be drawn between such a change and its news. It is certain only if no news had come by the moment
/// at which the server is known to have drawn it. Pure: it is told what the server says.
class DisplayPlaces {
public:
    /// How much was heard so far.
    using Moment = std::uint64_t;

    /// The displays may lie elsewhere: no place is certain until `learn`.
    void doubt();
    [[nodiscard]] bool areDoubted() const { return areDoubted_; }
    /// Where the displays lie, asked for after the last `doubt`.
    void learn(std::vector<DisplayPlace> displays);
    /// A stream's place was computed with its display there. Whoever did that may know more than was learned here: the
    /// displays are in doubt where it is something else.
    void compare(const DisplayPlace& display);

    /// Whether that display is known to lie there.
    [[nodiscard]] bool isCertain(const DisplayPlace& display) const;
    [[nodiscard]] Moment now() const { return news_; }
    /// Whether a picture is of that display which the server began to draw at `begun` or later, and has drawn by now.
    [[nodiscard]] bool wasCertain(const DisplayPlace& display, Moment begun) const
    {
        return begun == news_ && isCertain(display);
    }

private:
    std::vector<DisplayPlace> displays_;
    bool areDoubted_ = true;
    Moment news_ = 0;
};

} // namespace nimbrale::x11
