#include "platform/pipewire/camera_stream.h"

#include "platform/log.h"
#include "platform/pipewire/camera_offers.h"

#include <algorithm>
#include <spa/buffer/meta.h>
#include <utility>
#include <vector>

namespace nimbrale::pipewire {

namespace {

/// How long closing may wait for the daemon.
constexpr std::chrono::milliseconds longestClosing{500};

constexpr const char* noService =
    "could not be started, because the system's camera service (PipeWire) does not answer.";

/// Empty where nothing was written. The chunk lies in memory that another program writes: each value is read once, and
/// trusted in nothing.
std::optional<CameraPlane> planeIn(const spa_data& data)
{
    const volatile spa_chunk* const chunk = data.chunk;
    if (!data.data || !chunk || (chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) != 0)
        return std::nullopt;
    const std::uint32_t offset = chunk->offset;
    const std::uint32_t size = chunk->size;
    const std::int32_t stride = chunk->stride;
    if (size == 0 || offset >= data.maxsize)
        return std::nullopt;
    const std::span bytes(static_cast<const std::uint8_t*>(data.data), data.maxsize);
    return CameraPlane{bytes.subspan(offset, std::min(size, data.maxsize - offset)), stride};
}

} // namespace

struct CameraStream::Events {
    static CameraStream& of(void* data) { return *static_cast<CameraStream*>(data); }

    static void started(void* data, std::uint64_t /*expirations*/)
    {
        CameraStream& self = of(data);
        if (!self.isClosing_ && !self.connect())
            self.loss_.tell(noService);
    }

    static void stateChanged(void* data, pw_stream_state /*before*/, pw_stream_state state, const char* error)
    {
        CameraStream& self = of(data);
        if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING)
            self.wasConnected_ = true;
        if (state == PW_STREAM_STATE_ERROR) {
            qCWarning(webcamLog, "The stream of %s: %s", self.device_.id.c_str(), error ? error : "an error");
            self.loss_.tell(self.wasConnected_ ? camera_loss::isBroken : camera_loss::isNotStarted);
        } else if (state == PW_STREAM_STATE_UNCONNECTED) {
            self.loss_.tell(camera_loss::isGone);
        }
    }

    static void parameterChanged(void* data, std::uint32_t kind, const spa_pod* parameter)
    {
        if (kind == SPA_PARAM_Format)
            of(data).changeFormat(parameter);
    }

    static void pictureIsThere(void* data) { of(data).takePicture(); }
    static void timePassed(void* data, std::uint64_t /*expirations*/) { of(data).look(); }
};

CameraStream::CameraStream(MainQueue& queue, CameraDevice device, Cameras::Handlers handlers,
                           std::chrono::seconds patience, RemoteQuestion openRemote)
    : device_(std::move(device)), onPicture_(std::move(handlers.onPicture)),
      loss_(queue, device_.name, std::move(handlers.onLost)), patience_(patience), openRemote_(std::move(openRemote)),
      pictures_(std::move(handlers.wantedHalvings)), lastPicture_(std::chrono::steady_clock::now()),
      loop_(makeThreadLoop("nimbrale-camera"))
{
    const bool isReady = loop_ && (openRemote_ ? connectLater() : connect());
    if (!isReady || pw_thread_loop_start(loop_.get()) != 0)
        loss_.tell(noService);
}

CameraStream::~CameraStream()
{
    if (!loop_)
        return;
    // A thread that is busy with one late picture after the other lets go of the lock for too short a time.
    isClosing_ = true;
    {
        const LoopLock lock(loop_.get());
        streamListener_.stop();
        stream_.reset();
        if (connection_ && !connection_->isGone())
            static_cast<void>(connection_->settle(longestClosing));
    }
    pw_thread_loop_stop(loop_.get());
}

/// Whoever is asked for a connection may take long to answer, for which this thread must not wait. By a timer: a
/// connection that is made within a call that was passed to the loop (`pw_loop_invoke`) comes to grief in 0.3.65.
bool CameraStream::connectLater()
{
    pw_loop* const loop = pw_thread_loop_get_loop(loop_.get());
    start_ = {loop, pw_loop_add_timer(loop, &Events::started, this)};
    timespec soon{0, 1};
    return pw_loop_update_timer(loop, start_.get(), &soon, nullptr, false) >= 0;
}

bool CameraStream::connect()
{
    pw_loop* const loop = pw_thread_loop_get_loop(loop_.get());
    connection_ = DaemonConnection::open(loop_.get(),
                                         {.onGone =
                                              [this] {
                                                  loss_.tell("stopped, because the system's camera service (PipeWire) "
                                                             "ended. It works again when the service does.");
                                              }},
                                         DataPriority::ordinary, openRemote_);
    if (!connection_)
        return false;

    watch_ = {loop, pw_loop_add_timer(loop, &Events::timePassed, this)};
    timespec often{1, 0};
    pw_loop_update_timer(loop, watch_.get(), &often, &often, false);
    return startStream();
}

bool CameraStream::startStream()
{
    // It stays with this camera: another one must not be shown in its place when it goes.
    pw_properties* const properties = pw_properties_new(
        PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_NAME,
        "nimbrale-camera", PW_KEY_APP_NAME, "Nimbrale", PW_KEY_APP_ICON_NAME, "nimbrale", PW_KEY_NODE_DONT_RECONNECT,
        "true", PW_KEY_TARGET_OBJECT, device_.id.c_str(), nullptr);
    stream_.reset(pw_stream_new(connection_->core(), "nimbrale-camera", properties)); // It owns the properties.
    if (!stream_)
        return false;
    static const pw_stream_events streamEvents = [] {
        pw_stream_events list{};
        list.version = PW_VERSION_STREAM_EVENTS;
        list.state_changed = Events::stateChanged;
        list.param_changed = Events::parameterChanged;
        list.process = Events::pictureIsThere;
        return list;
    }();
    pw_stream_add_listener(stream_.get(), streamListener_.hook(), &streamEvents, this);
    StreamParameters formats;
    formats.offerFormats();
    constexpr auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS);
    return pw_stream_connect(stream_.get(), PW_DIRECTION_INPUT, PW_ID_ANY, flags, formats.list().data(),
                             static_cast<std::uint32_t>(formats.list().size())) == 0;
}

void CameraStream::takePicture()
{
    if (isClosing_ || loss_.isTold())
        return;
    // Only the newest one: whoever is late gets none of those that came meanwhile.
    pw_buffer* newest = nullptr;
    while (pw_buffer* const next = pw_stream_dequeue_buffer(stream_.get())) {
        if (newest)
            pw_stream_queue_buffer(stream_.get(), newest);
        newest = next;
    }
    if (!newest)
        return;
    std::shared_ptr<const BufferSurface> picture = pictureIn(*newest->buffer);
    pw_stream_queue_buffer(stream_.get(), newest);
    hasUnreadable_ = !picture;
    if (!picture)
        return;
    lastPicture_ = std::chrono::steady_clock::now();
    if (onPicture_)
        onPicture_(std::move(picture));
}

std::shared_ptr<const BufferSurface> CameraStream::pictureIn(const spa_buffer& buffer)
{
    const auto* const header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
    if (!format_ || (header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0))
        return nullptr;
    std::vector<CameraPlane> planes;
    for (const spa_data& data : std::span(buffer.datas, buffer.n_datas)) {
        const std::optional<CameraPlane> plane = planeIn(data);
        if (!plane)
            return nullptr;
        planes.push_back(*plane);
    }
    return pictures_.make(*format_, planes);
}

void CameraStream::changeFormat(const spa_pod* parameter)
{
    format_.reset();
    if (!parameter)
        return; // Between two formats there is none.
    format_ = parseFormat(parameter);
    if (!format_) {
        loss_.tell(camera_loss::isUnreadable);
        return;
    }
    StreamParameters buffers;
    buffers.askForBuffers();
    pw_stream_update_params(stream_.get(), buffers.list().data(), static_cast<std::uint32_t>(buffers.list().size()));
}

void CameraStream::look()
{
    if (std::chrono::steady_clock::now() - lastPicture_ < patience_)
        return;
    loss_.tell(hasUnreadable_ ? camera_loss::isUnreadable : camera_loss::isSilent);
}

} // namespace nimbrale::pipewire
