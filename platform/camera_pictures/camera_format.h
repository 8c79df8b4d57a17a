#pragma once

namespace nimbrale {

/// How a camera writes its pictures.
enum class PictureEncoding {
    yuy2,
    uyvy,
    nv12,
    i420,
    bgrx,
    motionJpeg,
};

/// How brightness and color differences stand for red, green and blue. JPEG brings its own.
enum class ColorCoding { bt601Limited, bt601Full, bt709Limited, bt709Full };

struct CameraFormat {
    PictureEncoding encoding = PictureEncoding::yuy2;
    int width = 0;
    int height = 0;
    ColorCoding colors = ColorCoding::bt601Limited;

    bool operator==(const CameraFormat&) const = default;
};

/// No camera's picture is wider or higher than this; whatever says so is wrong.
constexpr int largestPictureSide = 8192;

} // namespace nimbrale
