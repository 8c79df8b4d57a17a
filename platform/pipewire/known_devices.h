#pragma once

#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/pipewire/device_list.h"
#include "platform/pipewire/node_registry.h"
#include "platform/waiting_work.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrale::pipewire {

/// What the main thread knows of the session's devices. The daemon is asked from the first question on, and not before.
/// Main thread only.
class KnownDevices {
public:
    /// How long the daemon may take to tell of its devices before whoever waits for them goes on without.
    static constexpr std::chrono::seconds longestAnswer{3};

    /// `queue` must outlive it. `openRemote` is for a sandbox, whose portal hands out connections.
    explicit KnownDevices(MainQueue& queue, RemoteQuestion openRemote = {})
        : queue_(queue), openRemote_(std::move(openRemote))
    {}

    /// What is known so far; what is known later is told to the observers.
    [[nodiscard]] const NodeSnapshot& ask();
    /// What connections are asked for with; empty where the daemon has its socket.
    [[nodiscard]] const RemoteQuestion& openRemote() const { return openRemote_; }
    /// A connection may be had now that was refused before.
    void connectAgain();
    /// Asks, and runs `work` on the main queue as soon as the devices are known or the daemon cannot be reached, unless
    /// this object goes before.
    void whenKnown(std::function<void()> work);
    /// Whether the daemon has devices for sound; absent while that is not known. The daemon is not asked.
    [[nodiscard]] std::optional<bool> hasSound() const;
    /// Whether there is a daemon; absent while that is not known. It is not asked.
    [[nodiscard]] std::optional<bool> hasDaemon() const;
    /// What `hasDaemon` says may have changed.
    [[nodiscard]] Subscription observeDaemon(std::function<void()> observer)
    {
        return known_->daemonObservers.add(std::move(observer));
    }
    /// What `hasSound` says may have changed.
    [[nodiscard]] Subscription observeSound(std::function<void()> observer)
    {
        return known_->soundObservers.add(std::move(observer));
    }
    [[nodiscard]] Subscription observeCameras(std::function<void()> observer)
    {
        return known_->cameraObservers.add(std::move(observer));
    }
    [[nodiscard]] Subscription observeMicrophones(std::function<void()> observer)
    {
        return known_->microphoneObservers.add(std::move(observer));
    }

private:
    struct Known {
        NodeSnapshot snapshot;
        Observers cameraObservers;
        Observers microphoneObservers;
        Observers soundObservers;
        Observers daemonObservers;
        std::shared_ptr<WaitingWork> waiting = std::make_shared<WaitingWork>(); ///< for the devices

        void learn(const NodeSnapshot& news);
    };

    MainQueue& queue_;
    const RemoteQuestion openRemote_;
    std::shared_ptr<Known> known_ = std::make_shared<Known>();
    std::unique_ptr<NodeRegistry> registry_;
};

} // namespace nimbrale::pipewire
