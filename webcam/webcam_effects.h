#pragma once

#include "platform/buffer_surface.h"
#include "platform/person_segmentation.h"
#include "platform/picture_halving.h"
#include "settings/app_settings.h"
#include "webcam/background_blur.h"
#include "webcam/mask_blend.h"
#include "webcam/mask_filter.h"
#include "webcam/steady_mask.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale {

/// Turns a camera's pictures into ones whose background is blurred or transparent, while the person stays sharp. One
/// thread at a time.
class WebcamEffects {
public:
    using Background = AppSettings::WebcamBackground;
    using TimePoint = SteadyMask::TimePoint;

    /// `segmentation` is not null. `now` tells how far apart pictures come.
    explicit WebcamEffects(std::unique_ptr<PersonSegmentation> segmentation,
                           std::function<TimePoint()> now = std::chrono::steady_clock::now);

    /// The picture, opaque with a blurred background, premultiplied with a transparent one, its sides halved so often.
    /// Null for the original background, and where the person cannot be found, which is logged; the next picture may be
    /// tried. The alpha of `picture` is not looked at.
    [[nodiscard]] std::shared_ptr<const BufferSurface> process(const PixelBuffer& picture, Background background,
                                                               int halvings = 0);

private:
    void blendRow(const PixelBuffer& picture, Background background, int y, std::byte* result);

    std::unique_ptr<PersonSegmentation> segmentation_;
    SteadyMask steadyMask_;
    MaskFilter maskFilter_;
    BackgroundBlur backgroundBlur_;
    MaskBlend blend_;
    PictureHalving halving_;
    BufferSurfacePool pool_;
};

} // namespace nimbrale
