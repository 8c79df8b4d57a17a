#include "platform/pipewire/camera_registry.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <pipewire/extensions/metadata.h>
#include <unistd.h>

namespace nimbrale::pipewire {

namespace {

constexpr std::chrono::milliseconds shortestRetry{100};
constexpr std::chrono::milliseconds longestRetry{5000};

timespec timeOf(std::chrono::milliseconds duration)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::nanoseconds(duration - seconds).count()};
}

} // namespace

/// What is there while the daemon is; the members go in the order that the library wants.
struct CameraRegistry::Connection {
    Context context;
    Core core;
    Listener coreListener;
    Proxy registry;
    Listener registryListener;
    Proxy metadata;
    Listener metadataListener;
    std::uint32_t metadataNumber = SPA_ID_INVALID;
    int settlingCall = 0;
    std::chrono::steady_clock::time_point settled = std::chrono::steady_clock::time_point::max() - longestRetry;
    bool isBroken = false;
};

struct CameraRegistry::Events {
    static CameraRegistry& of(void* data) { return *static_cast<CameraRegistry*>(data); }

    static void added(void* data, std::uint32_t number, std::uint32_t /*permissions*/, const char* type,
                      std::uint32_t /*version*/, const spa_dict* properties)
    {
        if (!properties)
            return;
        CameraRegistry& self = of(data);
        const auto say = [properties](const char* key) { return spa_dict_lookup(properties, key); };
        if (std::strcmp(type, PW_TYPE_INTERFACE_Node) == 0) {
            self.list_.add(number, {say(PW_KEY_MEDIA_CLASS), say(PW_KEY_MEDIA_ROLE), say(PW_KEY_NODE_NAME),
                                    say(PW_KEY_NODE_NICK), say(PW_KEY_NODE_DESCRIPTION)});
            self.report();
        }
        const char* const name = say(PW_KEY_METADATA_NAME);
        if (std::strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0 && name && std::strcmp(name, "default") == 0)
            followDefaults(self, number);
    }

    static void followDefaults(CameraRegistry& self, std::uint32_t number)
    {
        Connection& connection = *self.connection_;
        connection.metadataListener.stop();
        connection.metadata.reset(
            static_cast<pw_proxy*>(pw_registry_bind(reinterpret_cast<pw_registry*>(connection.registry.get()), number,
                                                    PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0)));
        if (!connection.metadata)
            return;
        connection.metadataNumber = number;
        static const pw_metadata_events events = [] {
            pw_metadata_events list{};
            list.version = PW_VERSION_METADATA_EVENTS;
            list.property = defaultChanged;
            return list;
        }();
        pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(connection.metadata.get()),
                                 connection.metadataListener.hook(), &events, &self);
        // The defaults come in answer to this; what is there is known when they are.
        connection.settlingCall = pw_core_sync(connection.core.get(), PW_ID_CORE, 0);
    }

    static void removed(void* data, std::uint32_t number)
    {
        CameraRegistry& self = of(data);
        self.list_.remove(number);
        if (number == self.connection_->metadataNumber)
            self.list_.setDefault(nullptr);
        self.report();
    }

    static int defaultChanged(void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                              const char* value)
    {
        CameraRegistry& self = of(data);
        // No key stands for all of them, which were removed.
        if (subject == PW_ID_CORE && (!key || std::strcmp(key, "default.video.source") == 0)) {
            self.list_.setDefault(key ? value : nullptr);
            self.report();
        }
        return 0;
    }

    static void done(void* data, std::uint32_t number, int call)
    {
        CameraRegistry& self = of(data);
        if (number != PW_ID_CORE || call != self.connection_->settlingCall)
            return;
        self.isSettled_ = true;
        self.connection_->settled = std::chrono::steady_clock::now();
        self.report();
    }

    static void failed(void* data, std::uint32_t number, int /*call*/, int result, const char* message)
    {
        if (number == PW_ID_CORE && result == -EPIPE)
            of(data).connectionBroke();
        else
            qCDebug(webcamLog, "PipeWire reports an error of object %u: %s", number, message ? message : "");
    }

    static void retryIsDue(void* data, std::uint64_t /*expirations*/) { of(data).retry(); }

    static void folderChanged(void* data, int /*descriptor*/, std::uint32_t /*mask*/)
    {
        CameraRegistry& self = of(data);
        if (!self.socket_.hasAppeared() || (self.connection_ && !self.connection_->isBroken))
            return;
        self.retryDelay_ = shortestRetry;
        self.retryLater();
    }
};

CameraRegistry::CameraRegistry(Handler onChange)
    : onChange_(std::move(onChange)), socket_(daemonSocket()), loop_(makeThreadLoop("nimbrale-cams")),
      retryDelay_(shortestRetry)
{
    if (!loop_) {
        qCWarning(webcamLog, "No thread for the cameras: %s", std::strerror(errno));
        return;
    }
    pw_loop* const loop = pw_thread_loop_get_loop(loop_.get());
    retryTimer_ = {loop, pw_loop_add_timer(loop, &Events::retryIsDue, this)};
    if (socket_.descriptor() >= 0)
        socketSource_ = {loop,
                         pw_loop_add_io(loop, socket_.descriptor(), SPA_IO_IN, false, &Events::folderChanged, this)};
    connect();
    if (pw_thread_loop_start(loop_.get()) != 0)
        qCWarning(webcamLog, "No thread for the cameras: %s", std::strerror(errno));
}

CameraRegistry::~CameraRegistry()
{
    if (!loop_)
        return;
    pw_thread_loop_stop(loop_.get());
    connection_.reset();
    socketSource_.reset();
    retryTimer_.reset();
}

void CameraRegistry::connect()
{
    auto connection = std::make_unique<Connection>();
    connection->context.reset(pw_context_new(pw_thread_loop_get_loop(loop_.get()), nullptr, 0));
    if (connection->context)
        connection->core.reset(pw_context_connect(connection->context.get(), nullptr, 0));
    if (!connection->core) {
        retryLater();
        return;
    }
    static const pw_core_events coreEvents = [] {
        pw_core_events list{};
        list.version = PW_VERSION_CORE_EVENTS;
        list.done = Events::done;
        list.error = Events::failed;
        return list;
    }();
    pw_core_add_listener(connection->core.get(), connection->coreListener.hook(), &coreEvents, this);
    connection->registry.reset(
        reinterpret_cast<pw_proxy*>(pw_core_get_registry(connection->core.get(), PW_VERSION_REGISTRY, 0)));
    if (!connection->registry) {
        retryLater();
        return;
    }
    static const pw_registry_events registryEvents = [] {
        pw_registry_events list{};
        list.version = PW_VERSION_REGISTRY_EVENTS;
        list.global = Events::added;
        list.global_remove = Events::removed;
        return list;
    }();
    pw_registry_add_listener(reinterpret_cast<pw_registry*>(connection->registry.get()),
                             connection->registryListener.hook(), &registryEvents, this);
    connection->settlingCall = pw_core_sync(connection->core.get(), PW_ID_CORE, 0);
    connection_ = std::move(connection);
}

void CameraRegistry::connectionBroke()
{
    // What belongs to the connection is given back later: this is called from within it.
    connection_->isBroken = true;
    // A daemon that breaks as soon as it is there is asked more and more seldom.
    if (std::chrono::steady_clock::now() > connection_->settled + longestRetry)
        retryDelay_ = shortestRetry;
    list_.clear();
    isSettled_ = true;
    report();
    retryLater();
}

void CameraRegistry::retryLater()
{
    timespec delay = timeOf(retryDelay_);
    pw_loop_update_timer(pw_thread_loop_get_loop(loop_.get()), retryTimer_.get(), &delay, nullptr, false);
    retryDelay_ = std::min(retryDelay_ * 2, longestRetry);
}

void CameraRegistry::retry()
{
    connection_.reset();
    isSettled_ = false;
    // Without a socket nothing needs to be tried before one appears, which is told where the folder can be watched.
    if (socket_.descriptor() >= 0 && access(daemonSocket().c_str(), F_OK) != 0)
        return;
    connect();
}

void CameraRegistry::report()
{
    if (!isSettled_)
        return;
    CameraSnapshot snapshot = list_.snapshot();
    if (snapshot == reported_)
        return;
    reported_ = snapshot;
    onChange_(snapshot);
}

} // namespace nimbrale::pipewire
