#pragma once

#include "platform/file_descriptor.h"
#include "platform/pipewire/handles.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// How a connection's data are moved.
enum class DataPriority {
    ordinary, ///< by a thread like any other
    realTime  ///< by a thread that comes before others, where the system lets it
};

/// Asks somebody, such as the portal of a sandbox, for a new connection to the daemon; nothing where there is none to
/// have. Called on the threads of connections, where it may wait for the answer.
using RemoteQuestion = std::function<FileDescriptor()>;

/// A connection to the daemon, over a loop. To be used and destroyed with the loop locked, on the loop's thread, or
/// while that does not run; whatever was made over it goes before it does.
class DaemonConnection {
public:
    /// Called by the loop, from within the connection, which must not be destroyed then.
    struct Handlers {
        /// The daemon has done all that was asked of it before the call of that number.
        std::function<void(int call)> onAnswer = {};
        /// The daemon ended. Nothing is called any more after it.
        std::function<void()> onGone = {};
    };

    /// Null when there is no daemon. It is reached by what `openRemote` gives, or else by its socket.
    [[nodiscard]] static std::unique_ptr<DaemonConnection> open(pw_thread_loop* loop, Handlers handlers,
                                                                DataPriority priority = DataPriority::ordinary,
                                                                const RemoteQuestion& openRemote = {});
    DaemonConnection(const DaemonConnection&) = delete;
    DaemonConnection& operator=(const DaemonConnection&) = delete;

    [[nodiscard]] pw_core* core() const { return core_.get(); }
    [[nodiscard]] bool isGone() const { return isGone_; }
    /// Asks for an answer, and returns its call's number.
    [[nodiscard]] int ask();
    /// Waits until the daemon has done what was asked of it, if it does so within that time. With the loop locked, on
    /// another thread than its own.
    [[nodiscard]] bool settle(std::chrono::milliseconds patience);

private:
    struct Events;

    DaemonConnection(pw_thread_loop* loop, Handlers handlers) : loop_(loop), handlers_(std::move(handlers)) {}

    pw_thread_loop* loop_;
    Handlers handlers_;
    bool isGone_ = false;
    int answeredCall_ = 0;
    Context context_;
    Core core_;
    Listener listener_;
};

} // namespace nimbrale::pipewire
