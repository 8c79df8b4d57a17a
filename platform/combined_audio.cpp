#include "platform/combined_audio.h"

#include <utility>

namespace nimbrale {

namespace {

class CombinedMicrophones final : public Microphones {
public:
    CombinedMicrophones(std::unique_ptr<Microphones> first, SoundService service, std::unique_ptr<Microphones> second)
        : first_(std::move(first)), service_(std::move(service)), second_(std::move(second)),
          firstChanges_(first_->observeDevices([this] { notifyIf(!isSecondUsed_); })),
          secondChanges_(second_->observeDevices([this] { notifyIf(isSecondUsed_); })),
          serviceChanges_(service_.observe([this] { chooseAgain(); }))
    {}

    [[nodiscard]] std::vector<MicrophoneDevice> devices() override { return used().devices(); }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return used().preferredDevice(); }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        first_->requestAccess([this, weak = std::weak_ptr(alive_), onAnswer = std::move(onAnswer)](bool isGranted) {
            if (weak.expired())
                return;
            // The second's devices are to be known, too, where they are the ones that count.
            Microphones& counted = used();
            if (isGranted && &counted == second_.get())
                second_->requestAccess(onAnswer);
            else
                onAnswer(isGranted);
        });
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return used().open(id, std::move(onAudio));
    }

private:
    /// Before anything is known of the first, that one is asked, which makes it known.
    [[nodiscard]] Microphones& used()
    {
        isSecondUsed_ = service_.hasSound() == false;
        isAsked_ = true;
        return isSecondUsed_ ? *second_ : *first_;
    }
    void chooseAgain()
    {
        if (!isAsked_ || isSecondUsed_ == (service_.hasSound() == false))
            return;
        static_cast<void>(used().devices()); // So that they become known.
        observers_.notify();
    }
    void notifyIf(bool isUsed)
    {
        if (isUsed)
            observers_.notify();
    }

    std::unique_ptr<Microphones> first_;
    SoundService service_;
    std::unique_ptr<Microphones> second_;
    Observers observers_;
    bool isAsked_ = false;
    bool isSecondUsed_ = false;
    Subscription firstChanges_;
    Subscription secondChanges_;
    Subscription serviceChanges_;
    /// An answer may come after the end.
    std::shared_ptr<void> alive_ = std::make_shared<int>();
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

std::unique_ptr<Microphones> combineMicrophones(std::unique_ptr<Microphones> first, SoundService service,
                                                std::unique_ptr<Microphones> second)
{
    return std::make_unique<CombinedMicrophones>(std::move(first), std::move(service), std::move(second));
}

std::unique_ptr<SystemAudio> combineSystemAudio(std::unique_ptr<SystemAudio> first, std::unique_ptr<SystemAudio> second)
{
    return std::make_unique<CombinedSystemAudio>(std::move(first), std::move(second));
}

} // namespace nimbrale
