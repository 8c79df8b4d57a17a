#include "platform/pipewire/pipewire_audio.h"

#include "platform/pipewire/audio_source.h"

#include <utility>

namespace nimbrale::pipewire {

namespace {

class PipewireMicrophones final : public Microphones {
public:
    PipewireMicrophones(KnownDevices& known, AccessQuestion access) : known_(known), access_(std::move(access)) {}

    [[nodiscard]] std::vector<MicrophoneDevice> devices() override { return known_.ask().microphones.devices; }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return known_.ask().microphones.preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return known_.observeMicrophones(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        access_([&known = known_, weak = std::weak_ptr(alive_), onAnswer = std::move(onAnswer)](bool isGranted) {
            if (weak.expired())
                return;
            if (isGranted)
                known.whenKnown([onAnswer] { onAnswer(true); });
            else
                onAnswer(false);
        });
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return AudioSource::open(id, std::move(onAudio));
    }

private:
    KnownDevices& known_;
    AccessQuestion access_;
    /// An answer may come after the end.
    std::shared_ptr<void> alive_ = std::make_shared<int>();
};

class PipewireSystemAudio final : public SystemAudio {
public:
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(AudioHandler onAudio) override
    {
        return AudioSource::open(std::nullopt, std::move(onAudio));
    }
};

} // namespace

std::unique_ptr<Microphones> createPipewireMicrophones(KnownDevices& known, AccessQuestion access)
{
    return std::make_unique<PipewireMicrophones>(known, std::move(access));
}

std::unique_ptr<SystemAudio> createPipewireSystemAudio()
{
    return std::make_unique<PipewireSystemAudio>();
}

} // namespace nimbrale::pipewire
