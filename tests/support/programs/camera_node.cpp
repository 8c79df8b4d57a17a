#include "tests/support/programs/camera_node.h"

#include "tests/support/programs/monotonic_time.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <spa/param/video/format-utils.h>
#include <utility>

namespace nimbrale::test {

namespace {

spa_video_format formatOf(CameraEncoding encoding)
{
    switch (encoding) {
    case CameraEncoding::uyvy:
        return SPA_VIDEO_FORMAT_UYVY;
    case CameraEncoding::nv12:
        return SPA_VIDEO_FORMAT_NV12;
    case CameraEncoding::i420:
        return SPA_VIDEO_FORMAT_I420;
    case CameraEncoding::bgrx:
        return SPA_VIDEO_FORMAT_BGRx;
    default:
        return SPA_VIDEO_FORMAT_YUY2;
    }
}

CameraEncoding encodingOf(spa_video_format format)
{
    for (const auto encoding :
         {CameraEncoding::uyvy, CameraEncoding::nv12, CameraEncoding::i420, CameraEncoding::bgrx}) {
        if (formatOf(encoding) == format)
            return encoding;
    }
    return CameraEncoding::yuy2;
}

CameraFormat parseFormat(const spa_pod* format)
{
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    spa_format_parse(format, &type, &subtype);
    const bool isJpeg = subtype == SPA_MEDIA_SUBTYPE_mjpg;
    spa_video_info_raw raw{};
    spa_video_info_mjpg mjpg{};
    if (isJpeg)
        spa_format_video_mjpg_parse(format, &mjpg);
    else
        spa_format_video_raw_parse(format, &raw);
    const spa_rectangle size = isJpeg ? mjpg.size : raw.size;
    const spa_fraction rate = isJpeg ? mjpg.framerate : raw.framerate;
    return {isJpeg ? CameraEncoding::mjpg : encodingOf(raw.format), static_cast<int>(size.width),
            static_cast<int>(size.height), static_cast<int>(rate.num)};
}

const spa_pod* podOf(const CameraFormat& format, spa_pod_builder& builder)
{
    const bool isJpeg = format.encoding == CameraEncoding::mjpg;
    const spa_rectangle size{static_cast<std::uint32_t>(format.width), static_cast<std::uint32_t>(format.height)};
    const spa_fraction rate{static_cast<std::uint32_t>(format.rate), 1};
    spa_pod_frame frame;
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                        SPA_POD_Id(isJpeg ? SPA_MEDIA_SUBTYPE_mjpg : SPA_MEDIA_SUBTYPE_raw), 0);
    if (!isJpeg)
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(formatOf(format.encoding)), 0);
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                        SPA_POD_Fraction(&rate), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

/// What a camera with that fault says of the bytes that it wrote.
spa_chunk chunkOf(const std::string& fault, std::size_t size, int stride)
{
    spa_chunk chunk{0, static_cast<std::uint32_t>(size), stride, SPA_CHUNK_FLAG_NONE};
    if (fault == "no-stride")
        chunk.stride = 0;
    else if (fault == "wide-stride")
        chunk.stride = 0x7ffffff0;
    else if (fault == "narrow-stride")
        chunk.stride = 1;
    else if (fault == "negative-stride")
        chunk.stride = -stride;
    else if (fault == "half")
        chunk.size /= 2;
    else if (fault == "too-long")
        chunk.size = 0xffffffffU;
    else if (fault == "far-offset")
        chunk.offset = 0xfffffff0U;
    else if (fault == "empty")
        chunk.size = 0;
    else if (fault == "marked")
        chunk.flags = SPA_CHUNK_FLAG_CORRUPTED;
    return chunk;
}

} // namespace

void say(const std::string& text)
{
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

CameraNode::CameraNode(pw_main_loop* loop, pw_core* core, Picture picture)
    : loop_(loop), core_(core), picture_(std::move(picture)), clock_(pw_loop_add_timer(
                                                                  pw_main_loop_get_loop(loop),
                                                                  [](void* self, std::uint64_t) {
                                                                      // The stream calls `process` for it.
                                                                      auto& node = *static_cast<CameraNode*>(self);
                                                                      if (node.stream_ && node.fault != "silent")
                                                                          pw_stream_trigger_process(node.stream_);
                                                                  },
                                                                  this))
{}

CameraNode::~CameraNode()
{
    unplug();
    pw_loop_destroy_source(pw_main_loop_get_loop(loop_), clock_);
}

void CameraNode::plug()
{
    if (stream_)
        return;
    static const pw_stream_events events = [] {
        pw_stream_events list{};
        list.version = PW_VERSION_STREAM_EVENTS;
        list.state_changed = [](void* self, pw_stream_state before, pw_stream_state state, const char* error) {
            static_cast<CameraNode*>(self)->stateChanged(before, state, error);
        };
        list.param_changed = [](void* self, std::uint32_t kind, const spa_pod* parameter) {
            if (kind == SPA_PARAM_Format && parameter)
                static_cast<CameraNode*>(self)->formatChanged(parameter);
        };
        list.process = [](void* self) { static_cast<CameraNode*>(self)->process(); };
        return list;
    }();
    pw_properties* const node = pw_properties_new(
        PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME, properties.id.c_str(), PW_KEY_NODE_DESCRIPTION,
        properties.description.c_str(), PW_KEY_OBJECT_PATH, ("virtual:" + properties.id).c_str(), nullptr);
    if (!properties.role.empty())
        pw_properties_set(node, PW_KEY_MEDIA_ROLE, properties.role.c_str());
    if (!properties.name.empty())
        pw_properties_set(node, PW_KEY_NODE_NICK, properties.name.c_str());
    stream_ = pw_stream_new(core_, properties.id.c_str(), node);
    pw_stream_add_listener(stream_, &listener_, &events, this);
    std::array<std::uint8_t, 4096> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::vector<const spa_pod*> pods = offered(builder);
    pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                      static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), pods.data(),
                      static_cast<std::uint32_t>(pods.size()));
}

void CameraNode::unplug()
{
    if (!stream_)
        return;
    setClock(false);
    spa_hook_remove(&listener_);
    listener_ = {};
    pw_stream_destroy(std::exchange(stream_, nullptr));
    say("unplugged");
}

void CameraNode::offer()
{
    if (!stream_)
        return; // What is offered is told when it is plugged in.
    std::array<std::uint8_t, 4096> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::vector<const spa_pod*> pods = offered(builder);
    pw_stream_update_params(stream_, pods.data(), static_cast<std::uint32_t>(pods.size()));
}

std::vector<const spa_pod*> CameraNode::offered(spa_pod_builder& builder) const
{
    std::vector<const spa_pod*> pods;
    pods.reserve(formats.size());
    for (const CameraFormat& format : formats)
        pods.push_back(podOf(format, builder));
    return pods;
}

void CameraNode::stateChanged(pw_stream_state before, pw_stream_state state, const char* error)
{
    if (state == PW_STREAM_STATE_ERROR)
        std::fprintf(stderr, "error: %s\n", error ? error : "");
    if (state == PW_STREAM_STATE_PAUSED && before == PW_STREAM_STATE_CONNECTING)
        say("plugged");
    else if (state == PW_STREAM_STATE_PAUSED)
        say("paused");
    else if (state == PW_STREAM_STATE_STREAMING)
        say("streaming " + textOf(current_));
    setClock(state == PW_STREAM_STATE_STREAMING);
}

void CameraNode::formatChanged(const spa_pod* format)
{
    current_ = parseFormat(format);
    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const int space = (current_.width * 4 + 64) * current_.height + 4096;
    std::array<const spa_pod*, 2> parameters{
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
            SPA_POD_Int(space), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr)))),
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
            SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))))};
    pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void CameraNode::process()
{
    pw_buffer* const buffer = pw_stream_dequeue_buffer(stream_);
    if (!buffer)
        return;
    const bool isMapped = buffer->buffer->datas[0].data != nullptr;
    if (isMapped)
        write(*buffer->buffer);
    pw_stream_queue_buffer(stream_, buffer);
    if (isMapped && onWritten)
        onWritten();
}

void CameraNode::write(spa_buffer& buffer)
{
    spa_data& data = buffer.datas[0];
    const EncodedPicture& picture = picture_(current_, count_);
    const std::size_t size = std::min<std::size_t>(picture.bytes.size(), data.maxsize);
    auto* const bytes = static_cast<std::uint8_t*>(data.data);
    std::memcpy(bytes, picture.bytes.data(), size);
    if (fault == "scrambled") {
        for (std::size_t index = 20; index < size; index += 97)
            bytes[index] ^= static_cast<std::uint8_t>(0x5a + count_);
    }
    *data.chunk = chunkOf(fault, size, picture.stride);
    auto* const header =
        static_cast<spa_meta_header*>(spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (header) {
        *header = {};
        header->pts = fault == "no-time" ? -1 : now();
        header->seq = count_;
    }
    ++count_;
}

void CameraNode::setClock(bool isRunning)
{
    timespec soon{0, 1};
    timespec interval{0, nanosecondsPerSecond / std::max(current_.rate, 1) - 1};
    pw_loop_update_timer(pw_main_loop_get_loop(loop_), clock_, isRunning ? &soon : nullptr,
                         isRunning ? &interval : nullptr, false);
}

} // namespace nimbrale::test
