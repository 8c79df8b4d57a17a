#include "platform/pipewire/known_devices.h"

#include <utility>

namespace nimbrale::pipewire {

const NodeSnapshot& KnownDevices::ask()
{
    if (!registry_)
        registry_ = std::make_unique<NodeRegistry>(
            [&queue = queue_, weak = std::weak_ptr(known_)](const NodeSnapshot& snapshot) {
                queue.post([weak, snapshot] {
                    if (const std::shared_ptr<Known> known = weak.lock())
                        known->learn(snapshot);
                });
            });
    return known_->snapshot;
}

std::optional<bool> KnownDevices::hasSound() const
{
    if (!known_->snapshot.isKnown)
        return std::nullopt;
    return known_->snapshot.hasSound;
}

void KnownDevices::whenKnown(std::function<void()> work)
{
    const bool isKnown = ask().isKnown;
    known_->waiting.push_back(std::move(work));
    if (isKnown) {
        queue_.post([weak = std::weak_ptr(known_)] {
            if (const std::shared_ptr<Known> known = weak.lock())
                known->stopWaiting();
        });
    } else if (!known_->patience) {
        known_->patience = queue_.schedule(longestAnswer, [known = known_.get()] { known->stopWaiting(); });
    }
}

void KnownDevices::Known::learn(const NodeSnapshot& news)
{
    const NodeSnapshot before = std::exchange(snapshot, news);
    if (before.cameras != snapshot.cameras)
        cameraObservers.notify();
    if (before.microphones != snapshot.microphones)
        microphoneObservers.notify();
    if (before.isKnown != snapshot.isKnown || before.hasSound != snapshot.hasSound)
        soundObservers.notify();
    stopWaiting();
}

void KnownDevices::Known::stopWaiting()
{
    const auto timer = std::move(patience); // This may run within its call.
    for (const auto& work : std::exchange(waiting, {}))
        work();
}

} // namespace nimbrale::pipewire
