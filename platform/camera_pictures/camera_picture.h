#pragma once

#include "platform/buffer_surface.h"
#include "platform/camera_pictures/camera_format.h"
#include "platform/camera_pictures/motion_jpeg.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
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
    /// Null when there is no picture in it. `planes` are the planes of the format, or a single one with all of them one
    /// behind the other.
    [[nodiscard]] std::shared_ptr<const BufferSurface> make(const CameraFormat& format,
                                                            std::span<const CameraPlane> planes);

private:
    [[nodiscard]] std::shared_ptr<const BufferSurface> makePacked(const CameraFormat& format, const CameraPlane& plane);
    [[nodiscard]] std::shared_ptr<const BufferSurface> makePlanar(const CameraFormat& format,
                                                                  std::span<const CameraPlane> planes);
    [[nodiscard]] std::shared_ptr<const BufferSurface> makeFromJpeg(const CameraPlane& plane);

    BufferSurfacePool pool_;
    MotionJpegDecoder decoder_;
    std::vector<std::uint8_t> unpacked_; ///< brightness and color differences apart, where the conversion needs it
};

} // namespace nimbrale
