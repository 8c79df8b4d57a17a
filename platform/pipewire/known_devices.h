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
    /// How long a session manager may take to come, which starts after the daemon, or to come back.
    static constexpr std::chrono::seconds longestWithoutManager{3};

    /// `queue` must outlive it. `openRemote` is for a sandbox, whose portal hands out connections.
    explicit KnownDevices(MainQueue& queue, RemoteQuestion openRemote = {})
        : queue_(queue), openRemote_(std::move(openRemote)), known_(std::make_shared<Known>(queue))
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
    /// Whether the daemon is who has the cameras; absent while that is not known. Without a session manager nobody
    /// brings it those of the computer: where it has no camera then, for a while, it is not. It is not asked.
    [[nodiscard]] std::optional<bool> hasCameras() const { return known_->hasCameras; }
    /// What `hasCameras` says has changed.
    [[nodiscard]] Subscription observeWhetherItHasCameras(std::function<void()> observer)
    {
        return known_->hasCamerasObservers.add(std::move(observer));
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
        explicit Known(MainQueue& mainQueue) : queue(mainQueue) {}

        MainQueue& queue;
        NodeSnapshot snapshot;
        std::optional<bool> hasCameras;
        std::unique_ptr<Timer> managerTimer; ///< while a session manager may still come
        Observers cameraObservers;
        Observers microphoneObservers;
        Observers soundObservers;
        Observers hasCamerasObservers;
        std::shared_ptr<WaitingWork> waiting = std::make_shared<WaitingWork>(); ///< for the devices

        void learn(const NodeSnapshot& news);
        void judgeCameras();
        void setHasCameras(bool has);
    };

    MainQueue& queue_;
    const RemoteQuestion openRemote_;
    std::shared_ptr<Known> known_;
    std::unique_ptr<NodeRegistry> registry_;
};

} // namespace nimbrale::pipewire
