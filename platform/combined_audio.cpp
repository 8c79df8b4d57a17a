#include "platform/combined_audio.h"

#include <utility>

namespace nimbrale {

namespace {

class CombinedMicrophones final : public CombinedDevices<Microphones> {
public:
    using CombinedDevices::CombinedDevices;

    [[nodiscard]] std::vector<MicrophoneDevice> devices() override { return used().devices(); }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return used().preferredDevice(); }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return used().open(id, std::move(onAudio));
    }
};

class CombinedSystemAudio final : public SystemAudio {
public:
    CombinedSystemAudio(std::unique_ptr<SystemAudio> first, std::unique_ptr<SystemAudio> second)
        : first_(std::move(first)), second_(std::move(second))
    {}

    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(AudioHandler onAudio) override
    {
        auto opened = first_->open(onAudio);
        if (opened)
            return opened;
        auto other = second_->open(std::move(onAudio));
        return other ? std::move(other) : std::move(opened);
    }

private:
    std::unique_ptr<SystemAudio> first_;
    std::unique_ptr<SystemAudio> second_;
};

} // namespace

std::unique_ptr<Microphones> combineMicrophones(std::unique_ptr<Microphones> first, DeviceService service,
                                                std::unique_ptr<Microphones> second)
{
    return std::make_unique<CombinedMicrophones>(std::move(first), std::move(service), std::move(second));
}

std::unique_ptr<SystemAudio> combineSystemAudio(std::unique_ptr<SystemAudio> first, std::unique_ptr<SystemAudio> second)
{
    return std::make_unique<CombinedSystemAudio>(std::move(first), std::move(second));
}

} // namespace nimbrale
