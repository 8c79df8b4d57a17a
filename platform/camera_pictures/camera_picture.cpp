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

/// So many rows of a picture, from `first` on, and where their pixels go.
struct RowsToMake {
    int first = 0;
    int count = 0;
    std::uint8_t* to = nullptr;
    int stride = 0;
};

RowsToMake rowsToMake(int first, int count, std::byte* rows, std::size_t stride)
{
    return {first, count, reinterpret_cast<std::uint8_t*>(rows), static_cast<int>(stride)};
}

const std::uint8_t* rowAt(const PlaneView& plane, int row)
{
    return plane.rows + static_cast<std::ptrdiff_t>(row) * plane.stride;
}

/// The library converts packed pictures in one pass only where their colors are coded like this; for the others
/// brightness and color differences are first brought apart.
bool isConvertedAtOnce(ColorCoding colors)
{
    return colors == ColorCoding::bt601Limited;
}

bool convertApart(const CameraFormat& format, const PlaneView& from, std::vector<std::uint8_t>& unpacked,
                  const RowsToMake& made)
{
    const int width = format.width;
    const int half = halfOf(width);
    const std::size_t rows = static_cast<std::size_t>(made.count);
    unpacked.resize((static_cast<std::size_t>(width) + 2 * static_cast<std::size_t>(half)) * rows);
    std::uint8_t* const y = unpacked.data();
    std::uint8_t* const u = y + static_cast<std::size_t>(width) * rows;
    std::uint8_t* const v = u + static_cast<std::size_t>(half) * rows;
    const auto unpack = format.encoding == PictureEncoding::yuy2 ? &libyuv::YUY2ToI422 : &libyuv::UYVYToI422;
    return unpack(rowAt(from, made.first), from.stride, y, width, u, half, v, half, width, made.count) == 0 &&
           libyuv::I422ToARGBMatrix(y, width, u, half, v, half, made.to, made.stride, constantsFor(format.colors),
                                    width, made.count) == 0;
}

bool convertPacked(const CameraFormat& format, const PlaneView& from, std::vector<std::uint8_t>& unpacked,
                   const RowsToMake& made)
{
    const auto convert = [&](auto function) {
        return function(rowAt(from, made.first), from.stride, made.to, made.stride, format.width, made.count) == 0;
    };
    if (format.encoding == PictureEncoding::bgrx)
        return convert(&libyuv::ARGBCopy);
    if (!isConvertedAtOnce(format.colors))
        return convertApart(format, from, unpacked, made);
    return convert(format.encoding == PictureEncoding::yuy2 ? &libyuv::YUY2ToARGB : &libyuv::UYVYToARGB);
}

/// Two rows have their color differences in common; the first of `made` is an even one.
bool convertPlanar(const CameraFormat& format, const std::array<PlaneView, 3>& from, const RowsToMake& made)
{
    const libyuv::YuvConstants* const constants = constantsFor(format.colors);
    const std::uint8_t* const y = rowAt(from[0], made.first);
    const std::uint8_t* const u = rowAt(from[1], made.first / 2);
    if (format.encoding == PictureEncoding::nv12)
        return libyuv::NV12ToARGBMatrix(y, from[0].stride, u, from[1].stride, made.to, made.stride, constants,
                                        format.width, made.count) == 0;
    return libyuv::I420ToARGBMatrix(y, from[0].stride, u, from[1].stride, rowAt(from[2], made.first / 2),
                                    from[2].stride, made.to, made.stride, constants, format.width, made.count) == 0;
}

/// The first of `made` is an even row.
bool convertJpeg(const AVFrame& frame, const RowsToMake& made)
{
    const ColorCoding colors =
        frame.color_range == AVCOL_RANGE_MPEG ? ColorCoding::bt601Limited : ColorCoding::bt601Full;
    const libyuv::YuvConstants* const constants = constantsFor(colors);
    const auto plane = [&](int index) { return PlaneView{frame.data[index], frame.linesize[index]}; };
    const std::uint8_t* const y = rowAt(plane(0), made.first);
    const auto convert = [&](auto function, int colorRow) {
        return function(y, frame.linesize[0], rowAt(plane(1), colorRow), frame.linesize[1], rowAt(plane(2), colorRow),
                        frame.linesize[2], made.to, made.stride, constants, frame.width, made.count) == 0;
    };
    switch (frame.format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
        return convert(&libyuv::I420ToARGBMatrix, made.first / 2);
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
        return convert(&libyuv::I422ToARGBMatrix, made.first);
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P:
        return convert(&libyuv::I444ToARGBMatrix, made.first);
    case AV_PIX_FMT_GRAY8:
        return libyuv::I400ToARGBMatrix(y, frame.linesize[0], made.to, made.stride, constants, frame.width,
                                        made.count) == 0;
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
    return finish(format.width, format.height, [&](int first, int count, std::byte* to, std::size_t stride) {
        return convertPacked(format, *rows, unpacked_, rowsToMake(first, count, to, stride));
    });
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
    return finish(format.width, format.height, [&](int first, int count, std::byte* to, std::size_t stride) {
        return convertPlanar(format, views, rowsToMake(first, count, to, stride));
    });
}

std::shared_ptr<const BufferSurface> PictureMaker::makeFromJpeg(const CameraPlane& plane)
{
    const AVFrame* const frame = decoder_.decode(plane.bytes);
    if (!frame || frame->width > largestPictureSide || frame->height > largestPictureSide)
        return nullptr;
    return finish(frame->width, frame->height, [&](int first, int count, std::byte* to, std::size_t stride) {
        return convertJpeg(*frame, rowsToMake(first, count, to, stride));
    });
}

std::shared_ptr<const BufferSurface> PictureMaker::finish(int width, int height, const PictureHalving::RowSource& rows)
{
    const int halvings = wantedHalvings_ ? wantedHalvings_(width, height) : 0;
    BufferSurfacePool::Canvas canvas = pool_.take(halvedLength(width, halvings), halvedLength(height, halvings));
    if (!halving_.make(width, height, halvings, rows, canvas.pixels()))
        return nullptr;
    return BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
}

} // namespace nimbrale
