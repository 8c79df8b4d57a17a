#pragma once

#include <QImage>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

enum class CameraEncoding { yuy2, uyvy, nv12, i420, bgrx, mjpg };

/// By its name, such as "YUY2".
[[nodiscard]] std::optional<CameraEncoding> encodingNamed(const std::string& name);
[[nodiscard]] std::string nameOf(CameraEncoding encoding);

struct EncodedPicture {
    std::vector<std::uint8_t> bytes;
    int stride = 0; ///< of the first plane
};

/// A picture as cameras write it, by the formulas of BT.601 with limited range, planes one behind the other, each row
/// of the first plane followed by `gap` bytes, an even number.
[[nodiscard]] EncodedPicture encode(const QImage& picture, CameraEncoding encoding, int gap);

} // namespace nimbrale::test
