#include "platform/pipewire/pipewire_cameras.h"

#include "platform/pipewire/camera_registry.h"
#include "platform/pipewire/camera_stream.h"

#include <algorithm>
#include <utility>

namespace nimbrale::pipewire {

namespace {

class PipewireCameras final : public Cameras {
public:
    PipewireCameras(MainQueue& queue, AccessQuestion access, std::chrono::seconds patience)
        : queue_(queue), access_(std::move(access)), patience_(patience)
    {}

    [[nodiscard]] std::vector<CameraDevice> devices() const override { return known_->snapshot.devices; }
    [[nodiscard]] std::optional<std::string> preferredDevice() const override { return known_->snapshot.preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return known_->observers.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override { access_(std::move(onAnswer)); }
    [[nodiscard]] std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) override
    {
        const auto& devices = known_->snapshot.devices;
        const auto device = std::ranges::find(devices, id, &CameraDevice::id);
        // One that has just gone is told by its stream, like one that goes a moment later.
        return std::make_unique<CameraStream>(queue_, device != devices.end() ? *device : CameraDevice{id, id},
                                              std::move(handlers), patience_);
    }

private:
    /// What the main thread knows.
    struct Known {
        CameraSnapshot snapshot;
        Observers observers;
    };

    void tell(const CameraSnapshot& snapshot)
    {
        queue_.post([known = std::weak_ptr(known_), snapshot] {
            const std::shared_ptr<Known> current = known.lock();
            if (!current)
                return;
            current->snapshot = snapshot;
            current->observers.notify();
        });
    }

    MainQueue& queue_;
    AccessQuestion access_;
    std::chrono::seconds patience_;
    std::shared_ptr<Known> known_ = std::make_shared<Known>();
    CameraRegistry registry_{[this](const CameraSnapshot& snapshot) { tell(snapshot); }};
};

} // namespace

std::unique_ptr<Cameras> createPipewireCameras(MainQueue& queue, AccessQuestion access, std::chrono::seconds patience)
{
    return std::make_unique<PipewireCameras>(queue, std::move(access), patience);
}

} // namespace nimbrale::pipewire
