#include "platform/combined_cameras.h"

#include <utility>

namespace nimbrale {

namespace {

class CombinedCameras final : public CombinedDevices<Cameras> {
public:
    using CombinedDevices::CombinedDevices;

    [[nodiscard]] std::vector<CameraDevice> devices() const override { return used().devices(); }
    [[nodiscard]] std::optional<std::string> preferredDevice() const override { return used().preferredDevice(); }
    [[nodiscard]] std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) override
    {
        return used().open(id, std::move(handlers));
    }
};

} // namespace

std::unique_ptr<Cameras> combineCameras(std::unique_ptr<Cameras> first, DeviceService service,
                                        std::unique_ptr<Cameras> second)
{
    return std::make_unique<CombinedCameras>(std::move(first), std::move(service), std::move(second));
}

} // namespace nimbrale
