#pragma once

#include "platform/pipewire/camera_list.h"
#include "platform/pipewire/daemon_socket.h"
#include "platform/pipewire/handles.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// Follows which cameras the daemon has, on a thread of its own, as the daemon comes and goes.
class CameraRegistry {
public:
    using Handler = std::function<void(const CameraSnapshot& snapshot)>;

    /// `onChange` is called on the registry's thread when something changed, which counts from nothing at all, and not
    /// before the daemon has told of all that it has.
    explicit CameraRegistry(Handler onChange);
    /// No handler is called any more after it.
    ~CameraRegistry();
    CameraRegistry(const CameraRegistry&) = delete;
    CameraRegistry& operator=(const CameraRegistry&) = delete;

private:
    struct Connection;
    struct Events;

    void connect();
    void connectionBroke();
    void retryLater();
    void retry();
    void report();

    Handler onChange_;
    CameraList list_;
    CameraSnapshot reported_;
    SocketWatch socket_;
    ThreadLoop loop_;
    LoopSource retryTimer_;
    LoopSource socketSource_;
    std::chrono::milliseconds retryDelay_;
    bool isSettled_ = false; ///< the daemon has told of all that it has
    std::unique_ptr<Connection> connection_;
};

} // namespace nimbrale::pipewire
