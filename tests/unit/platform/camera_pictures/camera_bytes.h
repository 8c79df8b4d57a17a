#pragma once

#include "platform/camera_pictures/camera_picture.h"

#include <QBuffer>
#include <QImage>

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace nimbrale {

using Bytes = std::vector<std::uint8_t>;

inline std::array<int, 3> pixelAt(const BufferSurface& picture, int x, int y)
{
    const std::byte* const pixel =
        picture.pixels().row(y) + static_cast<std::ptrdiff_t>(x) * PixelBuffer::bytesPerPixel;
    return {std::to_integer<int>(pixel[2]), std::to_integer<int>(pixel[1]), std::to_integer<int>(pixel[0])};
}

inline void expectColor(const BufferSurface& picture, int x, int y, const std::array<int, 3>& expected)
{
    const std::array<int, 3> color = pixelAt(picture, x, y);
    for (std::size_t channel = 0; channel < color.size(); ++channel)
        EXPECT_NEAR(color.at(channel), expected.at(channel), 2) << "channel " << channel << " at " << x << ", " << y;
}

inline Bytes jpegOf(int width, int height, QRgb color, QImage::Format format = QImage::Format_RGB32)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(image.convertToFormat(format).save(&buffer, "JPG", 95));
    return {bytes.begin(), bytes.end()};
}

inline Bytes noisyJpeg(int width, int height, int quality, QImage::Format format = QImage::Format_RGB32)
{
    QImage noise(width, height, QImage::Format_RGB32);
    std::mt19937 random(1); // NOLINT(bugprone-random-generator-seed): the same noise each time.
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            noise.setPixel(x, y, static_cast<QRgb>(random()) | 0xff000000U);
    }
    QByteArray written;
    QBuffer buffer(&written);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(noise.convertToFormat(format).save(&buffer, "JPG", quality));
    return {written.begin(), written.end()};
}

} // namespace nimbrale
