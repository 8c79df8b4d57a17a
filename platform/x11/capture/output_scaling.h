#pragma once

#include "platform/x11/server/pixel_region.h"

namespace nimbrale::x11 {

/// What becomes of a captured area whose sides are in another proportion than the output's.
enum class OutputFit {
    fill,  ///< it is stretched over the whole output
    inside ///< it keeps its proportion and stands in the output's middle, with bars beside it
};

/// How the pixels of a captured area correspond to those of a picture of another size, scaled with a filter that takes
/// the four nearest pixels for each. Pure: needs no server.
class OutputScaling {
public:
    OutputScaling() = default;
    /// All in pixels, all positive.
    OutputScaling(int sourceWidth, int sourceHeight, int outputWidth, int outputHeight,
                  OutputFit fit = OutputFit::fill);

    /// Whether the output's pixels are the source's.
    [[nodiscard]] bool isExact() const { return sourceWidth_ == outputWidth_ && sourceHeight_ == outputHeight_; }
    [[nodiscard]] int outputWidth() const { return outputWidth_; }
    [[nodiscard]] int outputHeight() const { return outputHeight_; }
    /// Where the source is shown, in output pixels.
    [[nodiscard]] const PixelRect& picture() const { return picture_; }
    [[nodiscard]] bool hasBars() const { return picture_ != PixelRect{0, 0, outputWidth_, outputHeight_}; }
    /// Source pixels to an output pixel.
    [[nodiscard]] double horizontalStep() const { return static_cast<double>(sourceWidth_) / picture_.width; }
    [[nodiscard]] double verticalStep() const { return static_cast<double>(sourceHeight_) / picture_.height; }

    /// Every output pixel that may depend on a pixel of `changed`, both counted from their picture's top-left corner.
    [[nodiscard]] PixelRegion outputOf(const PixelRegion& changed) const;

    bool operator==(const OutputScaling&) const = default;

private:
    int sourceWidth_ = 1;
    int sourceHeight_ = 1;
    int outputWidth_ = 1;
    int outputHeight_ = 1;
    PixelRect picture_{0, 0, 1, 1};
};

} // namespace nimbrale::x11
