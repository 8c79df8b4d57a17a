#pragma once

#include "platform/pixel_buffer.h"

#include <QImage>
#include <QSize>

#include <string>

namespace nimbrale::test {

/// A photograph of Debian's `opencv-doc` by its file name, stretched to that size. `messi5.jpg` shows a person in the
/// middle, from head to foot. The running test is skipped on a machine without the package, and fails where the
/// photograph is not what it should be.
[[nodiscard]] PixelBuffer requirePhotograph(const std::string& name, int width, int height);
/// The same as an image of the format RGB32.
[[nodiscard]] QImage requirePhotograph(const std::string& name, QSize size);

} // namespace nimbrale::test
