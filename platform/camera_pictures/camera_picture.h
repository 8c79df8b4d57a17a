#pragma once

#include "platform/buffer_surface.h"
#include "platform/camera_pictures/camera_format.h"
#include "platform/camera_pictures/motion_jpeg.h"
#include "platform/picture_halving.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace nimbrale {

/// A part of what a camera wrote: all of a picture, or one plane of it.
struct CameraPlane {
    std::span<const std::uint8_t> bytes;
    /// Bytes from one row to the next; 0 stands for rows without a gap. Of no matter to JPEG.
    int stride = 0;
};

/// Makes opaque BGRA pictures of what cameras write. What is written is trusted in nothing: where it is no whole
/// picture in the format, there is none. Not thread-safe.
class PictureMaker {
public:
    /// How often the sides of a picture of that size, in pixels, are to be halved.
    using HalvingsQuestion = std::function<int(int width, int height)>;

    /// `wantedHalvings` may be empty, for pictures as they are. What is halved is the same as the picture as it is
    /// would be, if that were halved.
    explicit PictureMaker(HalvingsQuestion wantedHalvings = {}) : wantedHalvings_(std::move(wantedHalvings)) {}

    /// Null when there is no picture in it. `planes` are the planes of the format, or a single one with all of them one
    /// behind the other.
    [[nodiscard]] std::shared_ptr<const BufferSurface> make(const CameraFormat& format,
                                                            std::span<const CameraPlane> planes);

private:
    [[nodiscard]] std::shared_ptr<const BufferSurface> makePacked(const CameraFormat& format, const CameraPlane& plane);
    [[nodiscard]] std::shared_ptr<const BufferSurface> makePlanar(const CameraFormat& format,
                                                                  std::span<const CameraPlane> planes);
    [[nodiscard]] std::shared_ptr<const BufferSurface> makeFromJpeg(const CameraPlane& plane);
    [[nodiscard]] std::shared_ptr<const BufferSurface> finish(int width, int height,
                                                              const PictureHalving::RowSource& rows);

    HalvingsQuestion wantedHalvings_;
    BufferSurfacePool pool_;
    PictureHalving halving_;
    MotionJpegDecoder decoder_;
    std::vector<std::uint8_t> unpacked_; ///< brightness and color differences apart, where the conversion needs it
};

} // namespace nimbrale
