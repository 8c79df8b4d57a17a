#pragma once

#include "platform/x11/server/pixel_region.h"

namespace nimbrale::x11 {

/// How the pixels of a captured area correspond to those of a picture of another size, scaled with a filter that takes
/// the four nearest pixels for each. Pure: needs no server.
class OutputScaling {
public:
    OutputScaling() = default;
    /// All in pixels, all positive.
    OutputScaling(int sourceWidth, int sourceHeight, int outputWidth, int outputHeight)
        : sourceWidth_(sourceWidth), sourceHeight_(sourceHeight), outputWidth_(outputWidth), outputHeight_(outputHeight)
    {}

    /// Whether the output's pixels are the source's.
    [[nodiscard]] bool isExact() const { return sourceWidth_ == outputWidth_ && sourceHeight_ == outputHeight_; }
    [[nodiscard]] int outputWidth() const { return outputWidth_; }
    [[nodiscard]] int outputHeight() const { return outputHeight_; }
    /// Source pixels to an output pixel.
    [[nodiscard]] double horizontalStep() const { return static_cast<double>(sourceWidth_) / outputWidth_; }
    [[nodiscard]] double verticalStep() const { return static_cast<double>(sourceHeight_) / outputHeight_; }

    /// Every output pixel that may depend on a pixel of `changed`, both counted from their picture's top-left corner.
    [[nodiscard]] PixelRegion outputOf(const PixelRegion& changed) const;

    bool operator==(const OutputScaling&) const = default;

private:
    int sourceWidth_ = 1;
    int sourceHeight_ = 1;
    int outputWidth_ = 1;
    int outputHeight_ = 1;
};

} // namespace nimbrale::x11
