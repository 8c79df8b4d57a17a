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
            },
            openRemote_);
    return known_->snapshot;
}

void KnownDevices::connectAgain()
{
    if (registry_)
        registry_->connectAgain();
}

std::optional<bool> KnownDevices::hasSound() const
{
    if (!known_->snapshot.isKnown)
        return std::nullopt;
    return known_->snapshot.hasSound;
}

void KnownDevices::whenKnown(std::function<void()> work)
{
    known_->waiting->add(queue_, ask().isKnown, longestAnswer, std::move(work));
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
    judgeCameras();
    waiting->run();
}

void KnownDevices::Known::judgeCameras()
{
    if (!snapshot.isKnown)
        return;
    const bool isManaged = snapshot.hasManager || !snapshot.cameras.devices.empty();
    if (snapshot.hasDaemon && !isManaged) {
        if (!managerTimer)
            managerTimer = queue.schedule(longestWithoutManager, [this] { setHasCameras(false); });
        return;
    }
    managerTimer.reset();
    setHasCameras(snapshot.hasDaemon);
}

void KnownDevices::Known::setHasCameras(bool has)
{
    if (std::exchange(hasCameras, has) != has)
        hasCamerasObservers.notify();
}

} // namespace nimbrale::pipewire
