#include "platform/camera_pictures/camera_picture.h"

#include <algorithm>
#include <array>
#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from.h>
#include <libyuv/planar_functions.h>
#include <optional>
#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

namespace nimbrale {

namespace {

/// One plane of a picture: its rows and what a row has in it.
struct PlaneShape {
    int rowBytes = 0;
    int rows = 0;
};

struct PlaneView {
    const std::uint8_t* rows = nullptr;
    int stride = 0;
};

int halfOf(int length)
{
    return (length + 1) / 2;
}

const libyuv::YuvConstants* constantsFor(ColorCoding colors)
{
    switch (colors) {
    case ColorCoding::bt601Limited:
        return &libyuv::kYuvI601Constants;
    case ColorCoding::bt601Full:
        return &libyuv::kYuvJPEGConstants;
    case ColorCoding::bt709Limited:
        return &libyuv::kYuvH709Constants;
    case ColorCoding::bt709Full:
        return &libyuv::kYuvF709Constants;
    }
    return &libyuv::kYuvI601Constants;
}

/// Empty where the plane has not all of its rows.
std::optional<PlaneView> viewOf(const CameraPlane& plane, PlaneShape shape)
{
    const int stride = plane.stride == 0 ? shape.rowBytes : plane.stride;
    if (stride < shape.rowBytes)
        return std::nullopt;
    const std::size_t needed = static_cast<std::size_t>(stride) * static_cast<std::size_t>(shape.rows - 1) +
                               static_cast<std::size_t>(shape.rowBytes);
    if (plane.bytes.size() < needed)
        return std::nullopt;
    return PlaneView{plane.bytes.data(), stride};
}

/// The planes of a picture that is written in one piece: those of half the width have rows half as far apart.
std::vector<CameraPlane> apart(const CameraPlane& whole, std::span<const PlaneShape> shapes)
{
    const int width = shapes.front().rowBytes;
    const int stride = whole.stride == 0 ? width : whole.stride;
    std::vector<CameraPlane> planes;
    std::span<const std::uint8_t> left = whole.bytes;
    for (const PlaneShape& shape : shapes) {
        // Rows of odd width have a byte more in the second plane than in the first.
        const int planeStride = shape.rowBytes < width ? halfOf(stride) : stride + shape.rowBytes - width;
        const std::size_t size = planeStride > 0 ? static_cast<std::size_t>(planeStride) * shape.rows : 0;
        planes.push_back({left.first(std::min(left.size(), size)), planeStride});
        left = left.subspan(planes.back().bytes.size());
    }
    return planes;
}

std::uint8_t* bytesOf(PixelBuffer& pixels)
{
    return reinterpret_cast<std::uint8_t*>(pixels.row(0));
}

int strideOf(const PixelBuffer& pixels)
{
    return static_cast<int>(pixels.stride());
}

/// The library converts packed pictures in one pass only where their colors are coded like this; for the others
/// brightness and color differences are first brought apart.
bool isConvertedAtOnce(ColorCoding colors)
{
    return colors == ColorCoding::bt601Limited;
}

bool convertApart(const CameraFormat& format, PlaneView from, std::vector<std::uint8_t>& unpacked, PixelBuffer& to)
{
    const int width = format.width;
    const int height = format.height;
    const int half = halfOf(width);
    const std::size_t rows = static_cast<std::size_t>(height);
    unpacked.resize((static_cast<std::size_t>(width) + 2 * static_cast<std::size_t>(half)) * rows);
    std::uint8_t* const y = unpacked.data();
    std::uint8_t* const u = y + static_cast<std::size_t>(width) * rows;
    std::uint8_t* const v = u + static_cast<std::size_t>(half) * rows;
    const auto unpack = format.encoding == PictureEncoding::yuy2 ? &libyuv::YUY2ToI422 : &libyuv::UYVYToI422;
    return unpack(from.rows, from.stride, y, width, u, half, v, half, width, height) == 0 &&
           libyuv::I422ToARGBMatrix(y, width, u, half, v, half, bytesOf(to), strideOf(to), constantsFor(format.colors),
                                    width, height) == 0;
}

bool convertPacked(const CameraFormat& format, PlaneView from, std::vector<std::uint8_t>& unpacked, PixelBuffer& to)
{
    const auto convert = [&](auto function) {
        return function(from.rows, from.stride, bytesOf(to), strideOf(to), format.width, format.height) == 0;
    };
    if (format.encoding == PictureEncoding::bgrx)
        return convert(&libyuv::ARGBCopy);
    if (!isConvertedAtOnce(format.colors))
        return convertApart(format, from, unpacked, to);
    return convert(format.encoding == PictureEncoding::yuy2 ? &libyuv::YUY2ToARGB : &libyuv::UYVYToARGB);
}

bool convertJpeg(const AVFrame& frame, PixelBuffer& to)
{
    const ColorCoding colors =
        frame.color_range == AVCOL_RANGE_MPEG ? ColorCoding::bt601Limited : ColorCoding::bt601Full;
    const libyuv::YuvConstants* const constants = constantsFor(colors);
    const std::uint8_t* const y = frame.data[0];
    const auto convert = [&](auto function) {
        return function(y, frame.linesize[0], frame.data[1], frame.linesize[1], frame.data[2], frame.linesize[2],
                        bytesOf(to), strideOf(to), constants, frame.width, frame.height) == 0;
    };
    switch (frame.format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
        return convert(&libyuv::I420ToARGBMatrix);
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
        return convert(&libyuv::I422ToARGBMatrix);
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P:
        return convert(&libyuv::I444ToARGBMatrix);
    case AV_PIX_FMT_GRAY8:
        return libyuv::I400ToARGBMatrix(y, frame.linesize[0], bytesOf(to), strideOf(to), constants, frame.width,
                                        frame.height) == 0;
    default:
        return false;
    }
}

bool hasPossibleStrides(std::span<const CameraPlane> planes)
{
    // Four bytes a pixel, and as much again for gaps.
    constexpr int widest = largestPictureSide * 8;
    return std::ranges::all_of(planes,
                               [](const CameraPlane& plane) { return plane.stride >= 0 && plane.stride <= widest; });
}

} // namespace

std::shared_ptr<const BufferSurface> PictureMaker::make(const CameraFormat& format, std::span<const CameraPlane> planes)
{
    if (planes.empty() || format.width < 1 || format.height < 1 || format.width > largestPictureSide ||
        format.height > largestPictureSide)
        return nullptr;
    if (format.encoding != PictureEncoding::motionJpeg && !hasPossibleStrides(planes))
        return nullptr;
    switch (format.encoding) {
    case PictureEncoding::yuy2:
    case PictureEncoding::uyvy:
    case PictureEncoding::bgrx:
        return makePacked(format, planes.front());
    case PictureEncoding::nv12:
    case PictureEncoding::i420:
        return makePlanar(format, planes);
    case PictureEncoding::motionJpeg:
        return makeFromJpeg(planes.front());
    }
    return nullptr;
}

std::shared_ptr<const BufferSurface> PictureMaker::makePacked(const CameraFormat& format, const CameraPlane& plane)
{
    const int rowBytes = format.encoding == PictureEncoding::bgrx ? format.width * 4 : halfOf(format.width) * 4;
    const std::optional<PlaneView> rows = viewOf(plane, {rowBytes, format.height});
    if (!rows)
        return nullptr;
    BufferSurfacePool::Canvas canvas = pool_.take(format.width, format.height);
    if (!convertPacked(format, *rows, unpacked_, canvas.pixels()))
        return nullptr;
    return BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
}

std::shared_ptr<const BufferSurface> PictureMaker::makePlanar(const CameraFormat& format,
                                                              std::span<const CameraPlane> planes)
{
    const int half = halfOf(format.width);
    const int halfRows = halfOf(format.height);
    const bool isNv12 = format.encoding == PictureEncoding::nv12;
    const std::array<PlaneShape, 3> shapes{
        {{format.width, format.height}, {isNv12 ? 2 * half : half, halfRows}, {half, halfRows}}};
    const std::span<const PlaneShape> used = std::span(shapes).first(isNv12 ? 2 : 3);
    std::vector<CameraPlane> split;
    if (planes.size() < used.size()) {
        split = apart(planes.front(), used);
        planes = split;
    }
    std::array<PlaneView, 3> views;
    for (std::size_t index = 0; index < used.size(); ++index) {
        const std::optional<PlaneView> view = viewOf(planes[index], used[index]);
        if (!view)
            return nullptr;
        views.at(index) = *view;
    }
    BufferSurfacePool::Canvas canvas = pool_.take(format.width, format.height);
    std::uint8_t* const to = bytesOf(canvas.pixels());
    const int stride = strideOf(canvas.pixels());
    const libyuv::YuvConstants* const constants = constantsFor(format.colors);
    const int result =
        isNv12 ? libyuv::NV12ToARGBMatrix(views[0].rows, views[0].stride, views[1].rows, views[1].stride, to, stride,
                                          constants, format.width, format.height)
               : libyuv::I420ToARGBMatrix(views[0].rows, views[0].stride, views[1].rows, views[1].stride, views[2].rows,
                                          views[2].stride, to, stride, constants, format.width, format.height);
    return result == 0 ? BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque) : nullptr;
}

std::shared_ptr<const BufferSurface> PictureMaker::makeFromJpeg(const CameraPlane& plane)
{
    const AVFrame* const frame = decoder_.decode(plane.bytes);
    if (!frame || frame->width > largestPictureSide || frame->height > largestPictureSide)
        return nullptr;
    BufferSurfacePool::Canvas canvas = pool_.take(frame->width, frame->height);
    if (!convertJpeg(*frame, canvas.pixels()))
        return nullptr;
    return BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
}

} // namespace nimbrale
