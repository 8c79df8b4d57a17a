#pragma once

#include "platform/pipewire/daemon_connection.h"
#include "platform/pipewire/daemon_socket.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// A connection to the daemon that is made again whenever the daemon is, on a thread of its own. A daemon that ends as
/// soon as it is there is asked more and more seldom, and one that is not there not at all before its socket appears.
class LastingConnection {
public:
    /// All are called on the thread, with the loop locked.
    struct Handlers {
        /// There is a daemon.
        std::function<void(DaemonConnection& connection)> onConnected;
        /// As `DaemonConnection::Handlers::onAnswer`.
        std::function<void(int call)> onAnswer = {};
        /// There is no daemon, or none any more. Called at the start, too.
        std::function<void()> onGone;
        /// What was made over the connection is to be given back, which goes then.
        std::function<void()> onRelease;
    };

    /// `thread` names the thread and may have 15 bytes. With `openRemote`, which is asked on the thread, a daemon that
    /// was never reached is tried again when `connectAgain` says so, and one that was more and more seldom: whether it
    /// has a socket here does not matter.
    LastingConnection(const char* thread, Handlers handlers, DataPriority priority = DataPriority::ordinary,
                      RemoteQuestion openRemote = {});
    /// As `stop`.
    ~LastingConnection() { stop(); }
    LastingConnection(const LastingConnection&) = delete;
    LastingConnection& operator=(const LastingConnection&) = delete;

    /// Connects and starts the thread. False where the system has no threads left, which is logged.
    [[nodiscard]] bool start();
    /// Ends the thread and gives everything back; no handler but `onRelease` is called any more after it.
    void stop();

    /// Tries at once to reach the daemon, unless it is reached already. The thread that starts and stops it.
    void connectAgain();

    /// Null where the system has no threads left.
    [[nodiscard]] pw_thread_loop* loop() const { return loop_.get(); }
    /// Null while there is no daemon. With the loop locked.
    [[nodiscard]] DaemonConnection* connection() const;

private:
    struct Events;

    void connect();
    void connectionBroke();
    void retrySoon();
    void retryLater();
    void retry();
    void release();

    Handlers handlers_;
    DataPriority priority_;
    const RemoteQuestion openRemote_;
    SocketWatch socket_;
    ThreadLoop loop_;
    LoopSource retryTimer_;
    LoopSource toldToTry_;
    LoopSource socketSource_;
    std::chrono::milliseconds retryDelay_;
    bool isStopped_ = false;
    std::chrono::steady_clock::time_point connected_;
    std::unique_ptr<DaemonConnection> connection_;
};

} // namespace nimbrale::pipewire
