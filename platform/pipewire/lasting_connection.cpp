#include "platform/pipewire/lasting_connection.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace nimbrale::pipewire {

namespace {

constexpr std::chrono::milliseconds shortestRetry{100};
constexpr std::chrono::milliseconds longestRetry{5000};

} // namespace

struct LastingConnection::Events {
    static LastingConnection& of(void* data) { return *static_cast<LastingConnection*>(data); }

    static void retryIsDue(void* data, std::uint64_t /*expirations*/) { of(data).retry(); }

    static void toldToTry(void* data, std::uint64_t /*count*/) { of(data).retrySoon(); }

    static void folderChanged(void* data, int /*descriptor*/, std::uint32_t /*mask*/)
    {
        LastingConnection& self = of(data);
        if (self.socket_.hasAppeared())
            self.retrySoon();
    }
};

LastingConnection::LastingConnection(const char* thread, Handlers handlers, DataPriority priority,
                                     RemoteQuestion openRemote)
    : handlers_(std::move(handlers)), priority_(priority), openRemote_(std::move(openRemote)), socket_(daemonSocket()),
      loop_(makeThreadLoop(thread)), retryDelay_(shortestRetry)
{}

bool LastingConnection::start()
{
    if (loop_) {
        pw_loop* const loop = pw_thread_loop_get_loop(loop_.get());
        toldToTry_ = {loop, pw_loop_add_event(loop, &Events::toldToTry, this)};
        retryTimer_ = {loop, pw_loop_add_timer(loop, &Events::retryIsDue, this)};
        if (socket_.descriptor() >= 0)
            socketSource_ = {
                loop, pw_loop_add_io(loop, socket_.descriptor(), SPA_IO_IN, false, &Events::folderChanged, this)};
        // Whoever is asked for a connection may take long to answer, for which this thread must not wait.
        if (openRemote_)
            retryLater();
        else
            connect();
    }
    if (loop_ && pw_thread_loop_start(loop_.get()) == 0)
        return true;
    qCWarning(sessionLog, "No thread for what PipeWire tells: %s", std::strerror(errno));
    return false;
}

void LastingConnection::stop()
{
    if (!loop_ || std::exchange(isStopped_, true))
        return;
    pw_thread_loop_stop(loop_.get());
    release();
    socketSource_.reset();
    toldToTry_.reset();
    retryTimer_.reset();
}

void LastingConnection::connectAgain()
{
    // Not under the loop's lock, which its thread may keep while it waits for somebody's answer.
    if (toldToTry_.get())
        pw_loop_signal_event(pw_thread_loop_get_loop(loop_.get()), toldToTry_.get());
}

DaemonConnection* LastingConnection::connection() const
{
    return connection_ && !connection_->isGone() ? connection_.get() : nullptr;
}

void LastingConnection::connect()
{
    connection_ = DaemonConnection::open(loop_.get(), {handlers_.onAnswer, [this] { connectionBroke(); }}, priority_,
                                         openRemote_);
    if (connection_) {
        connected_ = std::chrono::steady_clock::now();
        handlers_.onConnected(*connection_);
        return;
    }
    handlers_.onGone();
    // Whoever refuses a connection at first gives it when the user has said so, which is told.
    const bool wasConnected = connected_ != std::chrono::steady_clock::time_point();
    if (!openRemote_ || wasConnected)
        retryLater();
}

void LastingConnection::connectionBroke()
{
    // What belongs to the connection is given back later: this is called from within it.
    if (std::chrono::steady_clock::now() > connected_ + longestRetry)
        retryDelay_ = shortestRetry;
    handlers_.onGone();
    retryLater();
}

void LastingConnection::retryLater()
{
    timespec delay = timeOf(retryDelay_);
    pw_loop_update_timer(pw_thread_loop_get_loop(loop_.get()), retryTimer_.get(), &delay, nullptr, false);
    retryDelay_ = std::min(retryDelay_ * 2, longestRetry);
}

void LastingConnection::retrySoon()
{
    if (connection())
        return;
    retryDelay_ = shortestRetry;
    retryLater();
}

void LastingConnection::retry()
{
    release();
    // Without a socket nothing needs to be tried before one appears, which is told where the folder can be watched.
    if (!openRemote_ && socket_.descriptor() >= 0 && access(daemonSocket().c_str(), F_OK) != 0)
        return;
    connect();
}

void LastingConnection::release()
{
    handlers_.onRelease();
    connection_.reset();
}

} // namespace nimbrale::pipewire
