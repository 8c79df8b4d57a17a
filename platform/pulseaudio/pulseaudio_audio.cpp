#include "platform/pulseaudio/pulseaudio_audio.h"

#include "platform/pulseaudio/audio_source.h"
#include "platform/pulseaudio/source_list.h"
#include "platform/waiting_work.h"

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
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        const bool isKnown = ask().isKnown;
        known_->waiting->add(queue_, isKnown, longestAnswer, [onAnswer = std::move(onAnswer)] { onAnswer(true); });
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return AudioSource::open(id, std::move(onAudio));
    }

private:
    /// What the main thread knows; what is posted to it may come after the end.
    struct Known {
        SourceSnapshot snapshot;
        Observers observers;
        std::shared_ptr<WaitingWork> waiting = std::make_shared<WaitingWork>(); ///< for the devices

        void learn(const SourceSnapshot& news);
    };

    const SourceSnapshot& ask();

    MainQueue& queue_;
    std::shared_ptr<Known> known_ = std::make_shared<Known>();
    std::unique_ptr<SourceList> sources_;
};

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
    waiting->run();
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
