// nimbrale_virtual_camera [--id ID] [--name NAME] [--description TEXT] [--role ROLE] [--picture FILE] [--fault FAULT]
// FORMAT:WIDTHxHEIGHT@RATE...
// A camera on the session's PipeWire, which shows the picture or stripes that move. Takes lines: "plug", "unplug",
// "offer FORMAT:WIDTHxHEIGHT@RATE" (in place of what it offers, even while it is watched), "fault FAULT", and
// "show COLOR", such as "show #102030". Prints "plugged", "unplugged", "streaming FORMAT:WIDTHxHEIGHT" and "paused",
// and "shown TIME" when it writes the first picture of that color: in nanoseconds of the monotonic clock. The faults
// are those of `write` below.

#include "tests/support/programs/camera_encoding.h"

#include <QColor>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace nimbrale::test {
namespace {

struct Offer {
    CameraEncoding encoding = CameraEncoding::yuy2;
    int width = 0;
    int height = 0;
    int rate = 0;
};

struct Camera {
    std::string id = "camera";
    std::string name;
    std::string description = "Virtual camera";
    std::string role = "Camera";
    QImage picture;
    std::string fault;
    std::vector<Offer> offers;

    pw_main_loop* loop = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook listener{};
    spa_source* clock = nullptr;
    Offer current;
    EncodedPicture still;    ///< of the picture, encoded as it is asked for
    bool isColorNew = false; ///< and not told yet
    std::uint64_t count = 0;
    std::string input;
};

Camera& of(void* data)
{
    return *static_cast<Camera*>(data);
}

void say(const std::string& text)
{
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
}

bool parseOffer(const std::string& text, Offer& offer)
{
    const std::size_t colon = text.find(':');
    const auto encoding = encodingNamed(text.substr(0, colon));
    if (colon == std::string::npos || !encoding)
        return false;
    offer.encoding = *encoding;
    return std::sscanf(text.c_str() + colon + 1, "%dx%d@%d", &offer.width, &offer.height, &offer.rate) == 3;
}

std::string textOf(const Offer& offer)
{
    return nameOf(offer.encoding) + ":" + std::to_string(offer.width) + "x" + std::to_string(offer.height);
}

QImage stripes(const Camera& camera)
{
    QImage image(camera.current.width, camera.current.height, QImage::Format_RGB32);
    QPainter painter(&image);
    constexpr std::array<Qt::GlobalColor, 6> colors{Qt::white, Qt::yellow, Qt::cyan, Qt::green, Qt::magenta, Qt::blue};
    const int width = std::max(2, image.width() / static_cast<int>(colors.size()));
    const int shift = static_cast<int>(camera.count * 8 % static_cast<std::uint64_t>(image.width()));
    for (int x = 0; x < image.width(); x += width)
        painter.fillRect((x + shift) % image.width(), 0, width, image.height(),
                         colors.at(static_cast<std::size_t>(x / width) % colors.size()));
    return image;
}

const EncodedPicture& nextPicture(Camera& camera)
{
    if (!camera.picture.isNull() && !camera.still.bytes.empty())
        return camera.still;
    const QImage image =
        camera.picture.isNull()
            ? stripes(camera)
            : camera.picture.scaled(camera.current.width, camera.current.height).convertToFormat(QImage::Format_RGB32);
    camera.still = encode(image, camera.current.encoding, camera.fault == "gap" ? 64 : 0);
    return camera.still;
}

/// Writes the next picture, with the fault that the camera has.
void write(Camera& camera, spa_buffer& buffer)
{
    spa_data& data = buffer.datas[0];
    const EncodedPicture& picture = nextPicture(camera);
    const std::size_t size = std::min<std::size_t>(picture.bytes.size(), data.maxsize);
    auto* const bytes = static_cast<std::uint8_t*>(data.data);
    std::memcpy(bytes, picture.bytes.data(), size);
    spa_chunk chunk{0, static_cast<std::uint32_t>(size), picture.stride, SPA_CHUNK_FLAG_NONE};
    const std::string& fault = camera.fault;
    if (fault == "no-stride")
        chunk.stride = 0;
    else if (fault == "wide-stride")
        chunk.stride = 0x7ffffff0;
    else if (fault == "narrow-stride")
        chunk.stride = 1;
    else if (fault == "negative-stride")
        chunk.stride = -picture.stride;
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
    else if (fault == "scrambled")
        for (std::size_t index = 20; index < size; index += 97)
            bytes[index] ^= static_cast<std::uint8_t>(0x5a + camera.count);
    *data.chunk = chunk;
    auto* const header =
        static_cast<spa_meta_header*>(spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (header) {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        *header = {};
        header->pts = fault == "no-time" ? -1 : SPA_TIMESPEC_TO_NSEC(&time);
        header->seq = camera.count;
    }
    ++camera.count;
    if (std::exchange(camera.isColorNew, false)) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        say("shown " + std::to_string(SPA_TIMESPEC_TO_NSEC(&now)));
    }
}

void process(void* data)
{
    Camera& camera = of(data);
    pw_buffer* const buffer = pw_stream_dequeue_buffer(camera.stream);
    if (!buffer)
        return;
    if (buffer->buffer->datas[0].data)
        write(camera, *buffer->buffer);
    pw_stream_queue_buffer(camera.stream, buffer);
}

void setClock(Camera& camera, bool isRunning)
{
    timespec soon{0, 1};
    timespec interval{0, 1'000'000'000 / std::max(camera.current.rate, 1) - 1};
    pw_loop_update_timer(pw_main_loop_get_loop(camera.loop), camera.clock, isRunning ? &soon : nullptr,
                         isRunning ? &interval : nullptr, false);
}

void stateChanged(void* data, pw_stream_state before, pw_stream_state state, const char* error)
{
    Camera& camera = of(data);
    if (state == PW_STREAM_STATE_ERROR)
        std::fprintf(stderr, "error: %s\n", error ? error : "");
    if (state == PW_STREAM_STATE_PAUSED && before == PW_STREAM_STATE_CONNECTING)
        say("plugged");
    else if (state == PW_STREAM_STATE_PAUSED)
        say("paused");
    else if (state == PW_STREAM_STATE_STREAMING)
        say("streaming " + textOf(camera.current));
    setClock(camera, state == PW_STREAM_STATE_STREAMING);
}

CameraEncoding encodingOf(spa_video_format format)
{
    switch (format) {
    case SPA_VIDEO_FORMAT_UYVY:
        return CameraEncoding::uyvy;
    case SPA_VIDEO_FORMAT_NV12:
        return CameraEncoding::nv12;
    case SPA_VIDEO_FORMAT_I420:
        return CameraEncoding::i420;
    case SPA_VIDEO_FORMAT_BGRx:
        return CameraEncoding::bgrx;
    default:
        return CameraEncoding::yuy2;
    }
}

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

void parameterChanged(void* data, std::uint32_t kind, const spa_pod* parameter)
{
    Camera& camera = of(data);
    if (kind != SPA_PARAM_Format || !parameter)
        return;
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    spa_format_parse(parameter, &type, &subtype);
    spa_video_info_raw raw{};
    spa_video_info_mjpg mjpg{};
    if (subtype == SPA_MEDIA_SUBTYPE_mjpg)
        spa_format_video_mjpg_parse(parameter, &mjpg);
    else
        spa_format_video_raw_parse(parameter, &raw);
    const bool isJpeg = subtype == SPA_MEDIA_SUBTYPE_mjpg;
    const spa_rectangle size = isJpeg ? mjpg.size : raw.size;
    const spa_fraction rate = isJpeg ? mjpg.framerate : raw.framerate;
    camera.current = {isJpeg ? CameraEncoding::mjpg : encodingOf(raw.format), static_cast<int>(size.width),
                      static_cast<int>(size.height), static_cast<int>(rate.num)};
    camera.still = {};

    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    const int space = (camera.current.width * 4 + 64) * camera.current.height + 4096;
    std::array<const spa_pod*, 2> parameters{
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
            SPA_POD_CHOICE_RANGE_Int(4, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
            SPA_POD_Int(space), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr)))),
        static_cast<const spa_pod*>(spa_pod_builder_add_object(
            &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
            SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))))};
    pw_stream_update_params(camera.stream, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

std::vector<const spa_pod*> formatsOf(const Camera& camera, spa_pod_builder& builder)
{
    std::vector<const spa_pod*> formats;
    for (const Offer& offer : camera.offers) {
        const bool isJpeg = offer.encoding == CameraEncoding::mjpg;
        const spa_rectangle size{static_cast<std::uint32_t>(offer.width), static_cast<std::uint32_t>(offer.height)};
        const spa_fraction rate{static_cast<std::uint32_t>(offer.rate), 1};
        spa_pod_frame frame;
        spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
        spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                            SPA_POD_Id(isJpeg ? SPA_MEDIA_SUBTYPE_mjpg : SPA_MEDIA_SUBTYPE_raw), 0);
        if (!isJpeg)
            spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(formatOf(offer.encoding)), 0);
        spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                            SPA_POD_Fraction(&rate), 0);
        formats.push_back(static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame)));
    }
    return formats;
}

void plug(Camera& camera)
{
    static const pw_stream_events events = [] {
        pw_stream_events list{};
        list.version = PW_VERSION_STREAM_EVENTS;
        list.state_changed = stateChanged;
        list.param_changed = parameterChanged;
        list.process = process;
        return list;
    }();
    pw_properties* const properties = pw_properties_new(
        PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME, camera.id.c_str(), PW_KEY_NODE_DESCRIPTION,
        camera.description.c_str(), PW_KEY_OBJECT_PATH, ("virtual:" + camera.id).c_str(), nullptr);
    if (!camera.role.empty())
        pw_properties_set(properties, PW_KEY_MEDIA_ROLE, camera.role.c_str());
    if (!camera.name.empty())
        pw_properties_set(properties, PW_KEY_NODE_NICK, camera.name.c_str());
    camera.stream = pw_stream_new(camera.core, camera.id.c_str(), properties);
    pw_stream_add_listener(camera.stream, &camera.listener, &events, &camera);
    std::array<std::uint8_t, 4096> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::vector<const spa_pod*> formats = formatsOf(camera, builder);
    pw_stream_connect(camera.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                      static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), formats.data(),
                      static_cast<std::uint32_t>(formats.size()));
}

void unplug(Camera& camera)
{
    if (!camera.stream)
        return;
    setClock(camera, false);
    spa_hook_remove(&camera.listener);
    camera.listener = {};
    pw_stream_destroy(camera.stream);
    camera.stream = nullptr;
    say("unplugged");
}

void offer(Camera& camera, const std::string& text)
{
    camera.offers.resize(1);
    if (!parseOffer(text, camera.offers.front()))
        return;
    std::array<std::uint8_t, 4096> bytes{};
    spa_pod_builder builder;
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::vector<const spa_pod*> formats = formatsOf(camera, builder);
    pw_stream_update_params(camera.stream, formats.data(), static_cast<std::uint32_t>(formats.size()));
}

void obey(Camera& camera, const std::string& line)
{
    const std::size_t space = line.find(' ');
    const std::string command = line.substr(0, space);
    const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
    if (command == "plug") {
        plug(camera);
    } else if (command == "unplug") {
        unplug(camera);
    } else if (command == "offer") {
        offer(camera, rest);
    } else if (command == "fault") {
        camera.fault = rest;
        camera.still = {};
    } else if (command == "show") {
        camera.picture = QImage(16, 16, QImage::Format_RGB32);
        camera.picture.fill(QColor(QString::fromStdString(rest)));
        camera.still = {};
        camera.isColorNew = true;
    }
}

void readCommands(void* data, int descriptor, std::uint32_t)
{
    Camera& camera = of(data);
    std::array<char, 256> bytes{};
    const ssize_t count = read(descriptor, bytes.data(), bytes.size());
    if (count <= 0) {
        pw_main_loop_quit(camera.loop);
        return;
    }
    camera.input.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = camera.input.find('\n')) != std::string::npos;) {
        const std::string line = camera.input.substr(0, end);
        camera.input.erase(0, end + 1);
        obey(camera, line);
    }
}

void giveNext(void* data, std::uint64_t)
{
    // The stream calls `process` for it.
    if (of(data).stream && of(data).fault != "silent")
        pw_stream_trigger_process(of(data).stream);
}

bool parseArguments(Camera& camera, const std::vector<std::string>& arguments)
{
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (!argument.starts_with("--")) {
            if (!parseOffer(argument, camera.offers.emplace_back()))
                return false;
            continue;
        }
        if (++index == arguments.size())
            return false;
        const std::string& value = arguments[index];
        if (argument == "--picture" && !camera.picture.load(QString::fromStdString(value)))
            return false;
        if (argument == "--id")
            camera.id = value;
        else if (argument == "--name")
            camera.name = value;
        else if (argument == "--description")
            camera.description = value;
        else if (argument == "--role")
            camera.role = value;
        else if (argument == "--fault")
            camera.fault = value;
        else if (argument != "--picture")
            return false;
    }
    return !camera.offers.empty();
}

int run(const std::vector<std::string>& arguments)
{
    Camera camera;
    if (!parseArguments(camera, arguments)) {
        std::fprintf(stderr, "nimbrale_virtual_camera: see its source for the arguments\n");
        return 2;
    }
    camera.loop = pw_main_loop_new(nullptr);
    pw_loop* const loop = pw_main_loop_get_loop(camera.loop);
    pw_context* const context = pw_context_new(loop, nullptr, 0);
    camera.core = pw_context_connect(context, nullptr, 0);
    if (!camera.core) {
        std::fprintf(stderr, "no PipeWire: %s\n", std::strerror(errno));
        return 1;
    }
    camera.clock = pw_loop_add_timer(loop, giveNext, &camera);
    pw_loop_add_io(loop, STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP, false, readCommands, &camera);
    plug(camera);
    pw_main_loop_run(camera.loop);
    unplug(camera);
    pw_context_destroy(context);
    pw_main_loop_destroy(camera.loop);
    return 0;
}

} // namespace
} // namespace nimbrale::test

int main(int count, char** values)
{
    QGuiApplication application(count, values);
    pw_init(&count, &values);
    return nimbrale::test::run({values + 1, values + count});
}
