#pragma once

#include <QImage>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

enum class CameraEncoding { yuy2, uyvy, nv12, i420, bgrx, mjpg };

struct CameraFormat {
    CameraEncoding encoding = CameraEncoding::yuy2;
    int width = 0;
    int height = 0;
    /// Pictures per second.
    int rate = 0;

    bool operator==(const CameraFormat&) const = default;
};

/// "FORMAT:WIDTHxHEIGHT@RATE", such as "YUY2:1280x720@30".
[[nodiscard]] std::optional<CameraFormat> parseCameraFormat(const std::string& text);
/// "FORMAT:WIDTHxHEIGHT".
[[nodiscard]] std::string textOf(const CameraFormat& format);

struct EncodedPicture {
    std::vector<std::uint8_t> bytes;
    int stride = 0; ///< of the first plane
};

/// A picture as cameras write it, by the formulas of BT.601 with limited range, planes one behind the other, each row
/// of the first plane followed by `gap` bytes, an even number.
[[nodiscard]] EncodedPicture encode(const QImage& picture, CameraEncoding encoding, int gap);

} // namespace nimbrale::test
