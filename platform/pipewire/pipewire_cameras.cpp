#include "platform/pipewire/pipewire_cameras.h"

#include "platform/pipewire/camera_stream.h"

#include <algorithm>
#include <utility>

namespace nimbrale::pipewire {

namespace {

class PipewireCameras final : public Cameras {
public:
    PipewireCameras(MainQueue& queue, KnownDevices& known, AccessQuestion access, std::chrono::seconds patience)
        : queue_(queue), known_(known), access_(std::move(access)), patience_(patience)
    {}

    [[nodiscard]] std::vector<CameraDevice> devices() const override { return known_.ask().cameras.devices; }
    [[nodiscard]] std::optional<std::string> preferredDevice() const override { return known_.ask().cameras.preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return known_.observeCameras(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        access_([&known = known_, onAnswer = std::move(onAnswer)](bool isGranted) {
            // In a sandbox nobody reaches the daemon before.
            if (isGranted)
                known.connectAgain();
            onAnswer(isGranted);
        });
    }
    [[nodiscard]] std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) override
    {
        const std::vector<CameraDevice> known = devices();
        const auto device = std::ranges::find(known, id, &CameraDevice::id);
        // One that has just gone is told by its stream, like one that goes a moment later.
        return std::make_unique<CameraStream>(queue_, device != known.end() ? *device : CameraDevice{id, id},
                                              std::move(handlers), patience_, known_.openRemote());
    }

private:
    MainQueue& queue_;
    KnownDevices& known_;
    AccessQuestion access_;
    std::chrono::seconds patience_;
};

} // namespace

std::unique_ptr<Cameras> createPipewireCameras(MainQueue& queue, KnownDevices& known, AccessQuestion access,
                                               std::chrono::seconds patience)
{
    return std::make_unique<PipewireCameras>(queue, known, std::move(access), patience);
}

} // namespace nimbrale::pipewire
