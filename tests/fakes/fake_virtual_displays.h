#pragma once

#include "platform/virtual_displays.h"

#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace nimbrale {

struct FakeVirtualDisplayDevice;

/// Makes virtual displays that do as the test says. Knows the bounds of the other displays too.
class FakeVirtualDisplays final : public VirtualDisplays {
public:
    [[nodiscard]] Result<std::unique_ptr<VirtualDisplayDevice>>
    create(const VirtualDisplayDescriptor& descriptor) override;

    [[nodiscard]] PixelRect bounds(DisplayID displayID) const override
    {
        const auto found = boundsOf.find(displayID);
        return found == boundsOf.end() ? PixelRect{} : found->second;
    }
    /// The device made last; there must be one.
    [[nodiscard]] FakeVirtualDisplayDevice& device() const { return *devices.at(devices.size() - 1); }

    Result<void> createResult;
    DisplayID nextDisplayID = 77;
    std::map<DisplayID, PixelRect> boundsOf;
    std::vector<VirtualDisplayDescriptor> descriptors;
    /// In the order in which they were made, destroyed ones included.
    std::vector<std::shared_ptr<FakeVirtualDisplayDevice>> devices;
};

/// What a test sees of a virtual display and does to it; outlives the display.
struct FakeVirtualDisplayDevice {
    DisplayID displayID = 0;
    bool isAlive = true;
    /// Whether the display takes the sizes that it is asked for.
    bool followsSettings = true;
    Result<void> applyResult;
    Result<void> originResult;
    std::vector<VirtualDisplaySettings> appliedSettings;
    std::vector<Point> origins;
    VirtualDisplayDevice* handle = nullptr;
    /// Called while the display is being removed.
    std::function<void()> onRemoval;

    void becomeUnusable(Error error) const { handle->onUnusable(std::move(error)); }
};

/// What the code under test owns.
class FakeVirtualDisplayHandle final : public VirtualDisplayDevice {
public:
    FakeVirtualDisplayHandle(FakeVirtualDisplays& displays, std::shared_ptr<FakeVirtualDisplayDevice> device)
        : displays_(displays), device_(std::move(device))
    {
        device_->handle = this;
    }
    ~FakeVirtualDisplayHandle() override
    {
        if (device_->onRemoval)
            device_->onRemoval();
        device_->isAlive = false;
        device_->handle = nullptr;
        displays_.boundsOf.erase(device_->displayID);
    }
    FakeVirtualDisplayHandle(const FakeVirtualDisplayHandle&) = delete;
    FakeVirtualDisplayHandle& operator=(const FakeVirtualDisplayHandle&) = delete;

    [[nodiscard]] DisplayID displayID() const override { return device_->displayID; }
    [[nodiscard]] Result<void> applySettings(const VirtualDisplaySettings& settings) override
    {
        device_->appliedSettings.push_back(settings);
        if (device_->applyResult && device_->followsSettings) {
            PixelRect& bounds = displays_.boundsOf[device_->displayID];
            bounds.width = settings.modes.at(0).width;
            bounds.height = settings.modes.at(0).height;
        }
        return device_->applyResult;
    }
    [[nodiscard]] Result<void> setOrigin(int x, int y) override
    {
        device_->origins.push_back({static_cast<double>(x), static_cast<double>(y)});
        if (device_->originResult) {
            PixelRect& bounds = displays_.boundsOf[device_->displayID];
            bounds.x = x;
            bounds.y = y;
        }
        return device_->originResult;
    }

private:
    FakeVirtualDisplays& displays_;
    std::shared_ptr<FakeVirtualDisplayDevice> device_;
};

inline Result<std::unique_ptr<VirtualDisplayDevice>>
FakeVirtualDisplays::create(const VirtualDisplayDescriptor& descriptor)
{
    descriptors.push_back(descriptor);
    if (!createResult)
        return tl::make_unexpected(createResult.error());
    auto device = std::make_shared<FakeVirtualDisplayDevice>();
    device->displayID = nextDisplayID;
    devices.push_back(device);
    return std::make_unique<FakeVirtualDisplayHandle>(*this, device);
}

} // namespace nimbrale
