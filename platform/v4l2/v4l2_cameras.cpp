#include "platform/v4l2/v4l2_cameras.h"

#include "platform/v4l2/camera_input.h"
#include "platform/v4l2/camera_watch.h"
#include "platform/v4l2/v4l2_camera.h"

#include <algorithm>
#include <utility>

namespace nimbrale::v4l2 {

namespace {

class V4l2Cameras final : public Cameras {
public:
    V4l2Cameras(MainQueue& queue, std::filesystem::path folder, std::chrono::milliseconds patience)
        : queue_(queue), folder_(std::move(folder)), patience_(patience)
    {}

    [[nodiscard]] std::vector<CameraDevice> devices() const override
    {
        std::vector<CameraDevice> devices;
        std::ranges::transform(ask(), std::back_inserter(devices), &CameraNode::device);
        return devices;
    }
    [[nodiscard]] std::optional<std::string> preferredDevice() const override { return std::nullopt; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return known_->observers.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        queue_.post([onAnswer = std::move(onAnswer)] { onAnswer(true); });
    }
    [[nodiscard]] std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) override
    {
        const std::vector<CameraNode>& nodes = ask();
        const auto node = std::ranges::find(nodes, id, [](const CameraNode& candidate) { return candidate.device.id; });
        // One that has just gone is told by the open camera, like one that goes a moment later.
        return std::make_unique<V4l2Camera>(queue_, node != nodes.end() ? *node : CameraNode{{id, id}, {}},
                                            std::move(handlers), patience_);
    }

private:
    /// What the main thread knows; what is posted to it may come after the end.
    struct Known {
        std::vector<CameraNode> nodes;
        Observers observers;
    };

    [[nodiscard]] const std::vector<CameraNode>& ask() const
    {
        if (!watch_)
            watch_ = std::make_unique<CameraWatch>(
                folder_, [&queue = queue_, weak = std::weak_ptr(known_)](const std::vector<CameraNode>& nodes) {
                    queue.post([weak, nodes] {
                        const std::shared_ptr<Known> known = weak.lock();
                        if (known && std::exchange(known->nodes, nodes) != nodes)
                            known->observers.notify();
                    });
                });
        return known_->nodes;
    }

    MainQueue& queue_;
    const std::filesystem::path folder_;
    const std::chrono::milliseconds patience_;
    std::shared_ptr<Known> known_ = std::make_shared<Known>();
    mutable std::unique_ptr<CameraWatch> watch_; ///< from the first question on
};

} // namespace

std::unique_ptr<Cameras> createV4l2Cameras(MainQueue& queue, std::filesystem::path folder,
                                           std::chrono::milliseconds patience)
{
    CameraInput::quietLibrary();
    return std::make_unique<V4l2Cameras>(queue, std::move(folder), patience);
}

} // namespace nimbrale::v4l2
