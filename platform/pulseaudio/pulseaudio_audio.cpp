#include "platform/pulseaudio/pulseaudio_audio.h"

#include "platform/pulseaudio/audio_source.h"
#include "platform/pulseaudio/source_list.h"

#include <utility>

namespace nimbrale::pulseaudio {

namespace {

class PulseaudioMicrophones final : public Microphones {
public:
    explicit PulseaudioMicrophones(MainQueue& queue) : queue_(queue) {}

    [[nodiscard]] std::vector<MicrophoneDevice> devices() override { return ask().microphones; }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return ask().preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return known_->observers.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override;
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return AudioSource::open(id, std::move(onAudio));
    }

private:
    /// What the main thread knows; what is posted to it may come after the end.
    struct Known {
        SourceSnapshot snapshot;
        Observers observers;
        std::vector<std::function<void(bool isGranted)>> waiting; ///< for the devices
        std::unique_ptr<Timer> patience;

        void learn(const SourceSnapshot& news);
        void answer();
    };

    const SourceSnapshot& ask();

    MainQueue& queue_;
    std::shared_ptr<Known> known_ = std::make_shared<Known>();
    std::unique_ptr<SourceList> sources_;
};

void PulseaudioMicrophones::requestAccess(std::function<void(bool isGranted)> onAnswer)
{
    const bool isKnown = ask().isKnown;
    known_->waiting.push_back(std::move(onAnswer));
    if (isKnown) {
        queue_.post([weak = std::weak_ptr(known_)] {
            if (const std::shared_ptr<Known> known = weak.lock())
                known->answer();
        });
    } else if (!known_->patience) {
        known_->patience = queue_.schedule(longestAnswer, [known = known_.get()] { known->answer(); });
    }
}

const SourceSnapshot& PulseaudioMicrophones::ask()
{
    if (!sources_)
        sources_ = std::make_unique<SourceList>(
            [&queue = queue_, weak = std::weak_ptr(known_)](const SourceSnapshot& snapshot) {
                queue.post([weak, snapshot] {
                    if (const std::shared_ptr<Known> known = weak.lock())
                        known->learn(snapshot);
                });
            });
    return known_->snapshot;
}

void PulseaudioMicrophones::Known::learn(const SourceSnapshot& news)
{
    const SourceSnapshot before = std::exchange(snapshot, news);
    if (before.microphones != snapshot.microphones || before.preferred != snapshot.preferred)
        observers.notify();
    answer();
}

void PulseaudioMicrophones::Known::answer()
{
    const auto timer = std::move(patience); // This may run within its call.
    for (const auto& onAnswer : std::exchange(waiting, {}))
        onAnswer(true);
}

class PulseaudioSystemAudio final : public SystemAudio {
public:
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(AudioHandler onAudio) override
    {
        return AudioSource::open(std::nullopt, std::move(onAudio));
    }
};

} // namespace

std::unique_ptr<Microphones> createPulseaudioMicrophones(MainQueue& queue)
{
    return std::make_unique<PulseaudioMicrophones>(queue);
}

std::unique_ptr<SystemAudio> createPulseaudioSystemAudio()
{
    return std::make_unique<PulseaudioSystemAudio>();
}

} // namespace nimbrale::pulseaudio
