#pragma once

#include "platform/pulseaudio/handles.h"

#include <chrono>
#include <functional>
#include <optional>

namespace nimbrale::pulseaudio {

/// A connection to the session's server that is made again whenever the server is, on a thread of its own. No server is
/// started for it. One that is not there, or ends as soon as it is, is asked more and more seldom.
class ServerConnection {
public:
    /// All are called on the thread.
    struct Handlers {
        /// There is a server, which can be asked. The context stays until `onGone`.
        std::function<void(pa_context* context)> onConnected;
        /// Something of what is watched came, went or changed.
        std::function<void()> onChanged;
        /// There is no server, or none any more. What was made over the connection is to be given back. Called for each
        /// attempt that fails, too.
        std::function<void()> onGone;
    };

    /// `thread` names the thread and may have 15 bytes. `watched` is what `onChanged` tells of.
    ServerConnection(const char* thread, pa_subscription_mask_t watched, Handlers handlers);
    /// As `stop`.
    ~ServerConnection() { stop(); }
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    /// Starts the thread, which connects. False where the system has no threads left, which is logged.
    [[nodiscard]] bool start();
    /// Ends the thread. No handler is called any more after it. What was made over the connection must go before this
    /// object does.
    void stop();

    /// Null where the system has no threads left.
    [[nodiscard]] pa_threaded_mainloop* loop() const { return loop_.get(); }

private:
    struct Events;

    void connect();
    void gone();

    const pa_subscription_mask_t watched_;
    Handlers handlers_;
    ThreadLoop loop_;
    std::chrono::microseconds retryDelay_;
    std::optional<LoopTimer> timer_;
    bool isRunning_ = false;
    bool isLost_ = true; ///< `onGone` was called for this attempt
    std::chrono::steady_clock::time_point connected_;
    Context context_;
    Question subscription_;
};

} // namespace nimbrale::pulseaudio
