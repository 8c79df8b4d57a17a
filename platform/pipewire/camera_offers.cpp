#include "platform/pipewire/camera_offers.h"

#include <spa/buffer/buffer.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/format-utils.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

namespace nimbrale::pipewire {

namespace {

enum class Kind { raw, motionJpeg };

struct Sizes {
    spa_rectangle wanted;
    spa_rectangle smallest;
    spa_rectangle largest;
};

struct Rates {
    spa_fraction wanted;
    spa_fraction lowest;
    spa_fraction highest;
};

constexpr spa_rectangle wantedSize{1280, 720};
constexpr std::uint32_t largestSide = largestPictureSide;
constexpr Sizes justSo{wantedSize, wantedSize, wantedSize};
constexpr Sizes nearby{wantedSize, {640, 360}, {1920, 1200}};
constexpr Sizes any{wantedSize, {1, 1}, {largestSide, largestSide}};
constexpr Rates fluent{{30, 1}, {24, 1}, {60, 1}};
/// A rate of 0 stands for one that varies.
constexpr Rates anyRate{{30, 1}, {0, 1}, {1000, 1}};

const spa_pod* offer(spa_pod_builder& builder, Kind kind, const Sizes& sizes, const Rates& rates)
{
    spa_pod_frame frame;
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), 0);
    if (kind == Kind::raw) {
        spa_pod_builder_add(
            &builder, SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
            SPA_POD_CHOICE_ENUM_Id(6, SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_NV12,
                                   SPA_VIDEO_FORMAT_I420, SPA_VIDEO_FORMAT_UYVY, SPA_VIDEO_FORMAT_BGRx),
            0);
    } else {
        spa_pod_builder_add(&builder, SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_mjpg), 0);
    }
    spa_pod_builder_add(
        &builder, SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&sizes.wanted, &sizes.smallest, &sizes.largest),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&rates.wanted, &rates.lowest, &rates.highest), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

std::optional<PictureEncoding> encodingOf(spa_video_format format)
{
    switch (format) {
    case SPA_VIDEO_FORMAT_YUY2:
        return PictureEncoding::yuy2;
    case SPA_VIDEO_FORMAT_UYVY:
        return PictureEncoding::uyvy;
    case SPA_VIDEO_FORMAT_NV12:
        return PictureEncoding::nv12;
    case SPA_VIDEO_FORMAT_I420:
        return PictureEncoding::i420;
    case SPA_VIDEO_FORMAT_BGRx:
        return PictureEncoding::bgrx;
    default:
        return std::nullopt;
    }
}

/// A camera that says nothing of its colors has those of the television, as the drivers leave them.
ColorCoding colorsOf(const spa_video_info_raw& info)
{
    const bool isFull = info.color_range == SPA_VIDEO_COLOR_RANGE_0_255;
    if (info.color_matrix == SPA_VIDEO_COLOR_MATRIX_BT709)
        return isFull ? ColorCoding::bt709Full : ColorCoding::bt709Limited;
    return isFull ? ColorCoding::bt601Full : ColorCoding::bt601Limited;
}

bool isPossible(const spa_rectangle& size)
{
    return size.width > 0 && size.height > 0 && size.width <= largestSide && size.height <= largestSide;
}

} // namespace

void StreamParameters::offerFormats()
{
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes_.data(), static_cast<std::uint32_t>(bytes_.size()));
    list_ = {offer(builder, Kind::raw, justSo, fluent), offer(builder, Kind::motionJpeg, justSo, fluent),
             offer(builder, Kind::raw, nearby, fluent), offer(builder, Kind::motionJpeg, nearby, fluent),
             offer(builder, Kind::raw, any, anyRate),   offer(builder, Kind::motionJpeg, any, anyRate)};
}

void StreamParameters::askForBuffers()
{
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes_.data(), static_cast<std::uint32_t>(bytes_.size()));
    constexpr int readable = (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
    list_ = {static_cast<const spa_pod*>(spa_pod_builder_add_object(
                 &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
                 SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(readable))),
             static_cast<const spa_pod*>(spa_pod_builder_add_object(
                 &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
                 SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))))};
}

std::optional<CameraFormat> parseFormat(const spa_pod* parameter)
{
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    if (spa_format_parse(parameter, &type, &subtype) < 0 || type != SPA_MEDIA_TYPE_video)
        return std::nullopt;
    CameraFormat format;
    spa_rectangle size{};
    if (subtype == SPA_MEDIA_SUBTYPE_mjpg) {
        spa_video_info_mjpg info{};
        if (spa_format_video_mjpg_parse(parameter, &info) < 0)
            return std::nullopt;
        format.encoding = PictureEncoding::motionJpeg;
        size = info.size;
    } else {
        spa_video_info_raw info{};
        if (subtype != SPA_MEDIA_SUBTYPE_raw || spa_format_video_raw_parse(parameter, &info) < 0)
            return std::nullopt;
        const std::optional<PictureEncoding> encoding = encodingOf(info.format);
        if (!encoding)
            return std::nullopt;
        format.encoding = *encoding;
        format.colors = colorsOf(info);
        size = info.size;
    }
    if (!isPossible(size))
        return std::nullopt;
    format.width = static_cast<int>(size.width);
    format.height = static_cast<int>(size.height);
    return format;
}

} // namespace nimbrale::pipewire
