#include "tests/support/programs/camera_encoding.h"

#include <QBuffer>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace nimbrale::test {

namespace {

constexpr std::array<std::pair<CameraEncoding, const char*>, 6> names{{{CameraEncoding::yuy2, "YUY2"},
                                                                       {CameraEncoding::uyvy, "UYVY"},
                                                                       {CameraEncoding::nv12, "NV12"},
                                                                       {CameraEncoding::i420, "I420"},
                                                                       {CameraEncoding::bgrx, "BGRx"},
                                                                       {CameraEncoding::mjpg, "MJPG"}}};

std::optional<CameraEncoding> encodingNamed(const std::string& name)
{
    for (const auto& [encoding, text] : names) {
        if (name == text)
            return encoding;
    }
    return std::nullopt;
}

std::string nameOf(CameraEncoding encoding)
{
    for (const auto& [other, text] : names) {
        if (encoding == other)
            return text;
    }
    return {};
}

struct Yuv {
    double y;
    double u;
    double v;
};

std::uint8_t rounded(double value)
{
    return static_cast<std::uint8_t>(std::lround(value));
}

Yuv yuvOf(QRgb color)
{
    const double red = qRed(color) / 255.0;
    const double green = qGreen(color) / 255.0;
    const double blue = qBlue(color) / 255.0;
    const double y = 0.299 * red + 0.587 * green + 0.114 * blue;
    return {16 + 219 * y, 128 + 224 * (blue - y) / 1.772, 128 + 224 * (red - y) / 1.402};
}

/// The mean of so many columns and rows from there on; of its color differences only.
Yuv meanOf(const QImage& picture, int x, int y, int columns, int rows)
{
    Yuv sum{0, 0, 0};
    for (int row = y; row < y + rows; ++row) {
        for (int column = x; column < x + columns; ++column) {
            const Yuv one = yuvOf(picture.pixel(column, row));
            sum = {0, sum.u + one.u, sum.v + one.v};
        }
    }
    const double count = columns * rows;
    return {0, sum.u / count, sum.v / count};
}

EncodedPicture encodePacked(const QImage& picture, bool isYuy2, int gap)
{
    const int stride = picture.width() * 2 + gap;
    EncodedPicture encoded{std::vector<std::uint8_t>(static_cast<std::size_t>(stride) * picture.height()), stride};
    for (int y = 0; y < picture.height(); ++y) {
        std::uint8_t* to = encoded.bytes.data() + static_cast<std::size_t>(y) * stride;
        for (int x = 0; x < picture.width(); x += 2, to += 4) {
            const Yuv colors = meanOf(picture, x, y, 2, 1);
            const std::uint8_t first = rounded(yuvOf(picture.pixel(x, y)).y);
            const std::uint8_t second = rounded(yuvOf(picture.pixel(x + 1, y)).y);
            const std::uint8_t u = rounded(colors.u);
            const std::uint8_t v = rounded(colors.v);
            const std::array<std::uint8_t, 4> bytes = isYuy2 ? std::array<std::uint8_t, 4>{first, u, second, v}
                                                             : std::array<std::uint8_t, 4>{u, first, v, second};
            std::memcpy(to, bytes.data(), bytes.size());
        }
    }
    return encoded;
}

EncodedPicture encodePlanar(const QImage& picture, bool isNv12, int gap)
{
    const int stride = picture.width() + gap;
    const int halfRows = picture.height() / 2;
    const std::size_t brightness = static_cast<std::size_t>(stride) * picture.height();
    EncodedPicture encoded{std::vector<std::uint8_t>(brightness + static_cast<std::size_t>(stride) * halfRows), stride};
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            encoded.bytes[static_cast<std::size_t>(y) * stride + x] = rounded(yuvOf(picture.pixel(x, y)).y);
    }
    std::uint8_t* const colors = encoded.bytes.data() + brightness;
    const auto between = static_cast<std::size_t>(isNv12 ? stride : stride / 2);
    for (int y = 0; y < halfRows; ++y) {
        for (std::size_t x = 0; x < static_cast<std::size_t>(picture.width()) / 2; ++x) {
            const Yuv mean = meanOf(picture, static_cast<int>(2 * x), 2 * y, 2, 2);
            const std::size_t u = static_cast<std::size_t>(y) * between + (isNv12 ? 2 * x : x);
            const std::size_t v = isNv12 ? u + 1 : u + between * static_cast<std::size_t>(halfRows);
            colors[u] = rounded(mean.u);
            colors[v] = rounded(mean.v);
        }
    }
    return encoded;
}

EncodedPicture encodePlain(const QImage& picture, int gap)
{
    const int stride = picture.width() * 4 + gap;
    EncodedPicture encoded{std::vector<std::uint8_t>(static_cast<std::size_t>(stride) * picture.height()), stride};
    for (int y = 0; y < picture.height(); ++y)
        std::memcpy(encoded.bytes.data() + static_cast<std::size_t>(y) * stride, picture.constScanLine(y),
                    static_cast<std::size_t>(picture.width()) * 4);
    return encoded;
}

EncodedPicture encodeJpeg(const QImage& picture)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "JPG", 95);
    return {{bytes.begin(), bytes.end()}, 0};
}

} // namespace

std::optional<CameraFormat> parseCameraFormat(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const auto encoding = encodingNamed(text.substr(0, colon));
    if (colon == std::string::npos || !encoding)
        return std::nullopt;
    CameraFormat format{*encoding};
    if (std::sscanf(text.c_str() + colon + 1, "%dx%d@%d", &format.width, &format.height, &format.rate) != 3)
        return std::nullopt;
    return format;
}

std::string textOf(const CameraFormat& format)
{
    return nameOf(format.encoding) + ":" + std::to_string(format.width) + "x" + std::to_string(format.height);
}

EncodedPicture encode(const QImage& picture, CameraEncoding encoding, int gap)
{
    switch (encoding) {
    case CameraEncoding::yuy2:
        return encodePacked(picture, true, gap);
    case CameraEncoding::uyvy:
        return encodePacked(picture, false, gap);
    case CameraEncoding::nv12:
        return encodePlanar(picture, true, gap);
    case CameraEncoding::i420:
        return encodePlanar(picture, false, gap);
    case CameraEncoding::bgrx:
        return encodePlain(picture, gap);
    case CameraEncoding::mjpg:
        return encodeJpeg(picture);
    }
    return {};
}

} // namespace nimbrale::test
