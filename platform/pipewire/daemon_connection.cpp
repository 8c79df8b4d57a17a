#include "platform/pipewire/daemon_connection.h"

#include "platform/log.h"

#include <cerrno>
#include <mutex>

namespace nimbrale::pipewire {

struct DaemonConnection::Events {
    static DaemonConnection& of(void* data) { return *static_cast<DaemonConnection*>(data); }

    static void done(void* data, std::uint32_t number, int call)
    {
        DaemonConnection& self = of(data);
        if (number != PW_ID_CORE)
            return;
        self.answeredCall_ = call;
        pw_thread_loop_signal(self.loop_, false);
        if (self.handlers_.onAnswer)
            self.handlers_.onAnswer(call);
    }

    static void failed(void* data, std::uint32_t number, int /*call*/, int result, const char* message)
    {
        DaemonConnection& self = of(data);
        if (number != PW_ID_CORE || result != -EPIPE) {
            // Such as that a device went while something was asked of it; what matters comes as a change of state.
            qCDebug(sessionLog, "PipeWire reports an error of object %u: %s", number, message ? message : "");
            return;
        }
        self.isGone_ = true;
        pw_thread_loop_signal(self.loop_, false);
        if (self.handlers_.onGone)
            self.handlers_.onGone();
    }
};

std::unique_ptr<DaemonConnection> DaemonConnection::open(pw_thread_loop* loop, Handlers handlers, DataPriority priority,
                                                         const RemoteQuestion& openRemote)
{
    // Asked before the lock is taken, since it may take its time.
    FileDescriptor remote = openRemote ? openRemote() : FileDescriptor();
    // The library asks for the user's name in a way that is not meant for several threads, and all of them connect anew
    // at the same moment when the daemon is back.
    static std::mutex onlyOne;
    const std::lock_guard lock(onlyOne);
    std::unique_ptr<DaemonConnection> connection(new DaemonConnection(loop, std::move(handlers)));
    // The library's own configuration for clients in real time; it owns the properties.
    pw_properties* const properties =
        priority == DataPriority::realTime ? pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr) : nullptr;
    connection->context_.reset(pw_context_new(pw_thread_loop_get_loop(loop), properties, 0));
    if (!connection->context_)
        return nullptr;
    // The library closes the descriptor, even where it fails.
    connection->core_.reset(remote ? pw_context_connect_fd(connection->context_.get(), remote.release(), nullptr, 0)
                                   : pw_context_connect(connection->context_.get(), nullptr, 0));
    if (!connection->core_)
        return nullptr;
    static const pw_core_events events = [] {
        pw_core_events list{};
        list.version = PW_VERSION_CORE_EVENTS;
        list.done = Events::done;
        list.error = Events::failed;
        return list;
    }();
    pw_core_add_listener(connection->core_.get(), connection->listener_.hook(), &events, connection.get());
    return connection;
}

int DaemonConnection::ask()
{
    return pw_core_sync(core_.get(), PW_ID_CORE, 0);
}

bool DaemonConnection::settle(std::chrono::milliseconds patience)
{
    timespec end{};
    pw_thread_loop_get_time(loop_, &end, std::chrono::nanoseconds(patience).count());
    const int call = ask();
    while (answeredCall_ != call && !isGone_) {
        if (pw_thread_loop_timed_wait_full(loop_, &end) != 0)
            return false;
    }
    return !isGone_;
}

} // namespace nimbrale::pipewire
