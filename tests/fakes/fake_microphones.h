#pragma once

#include "platform/audio_sources.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// What a test sees of an opened microphone and does to it; outlives the microphone.
struct FakeOpenMicrophone {
    std::string id;
    AudioHandler onAudio;
    bool isOpen = true;

    /// Hands out a piece of sound, on the test's own thread, which stands for the microphone's.
    void deliver(AudioBuffer audio, std::chrono::nanoseconds presentationTime) const
    {
        if (isOpen)
            onAudio(std::make_shared<const AudioBuffer>(std::move(audio)), presentationTime);
    }
};

/// Microphones that the test plugs in and speaks into.
class FakeMicrophones final : public Microphones {
public:
    [[nodiscard]] std::vector<MicrophoneDevice> devices() override { return list; }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return preferred; }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        questions.push_back(std::move(onAnswer));
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        if (openError)
            return tl::make_unexpected(*openError);
        opened.push_back(std::make_shared<FakeOpenMicrophone>(FakeOpenMicrophone{id, std::move(onAudio)}));
        return std::make_unique<Handle>(opened.back());
    }

    /// Tells the observers; for a change of `list` or `preferred` that the test made itself.
    void notify() { observers_.notify(); }
    /// Answers the oldest question for access; there must be one.
    void answerAccess(bool isGranted)
    {
        const auto onAnswer = std::move(questions.front());
        questions.pop_front();
        onAnswer(isGranted);
    }

    std::vector<MicrophoneDevice> list;
    std::optional<std::string> preferred;
    std::optional<Error> openError;
    /// Questions for access that wait for their answer.
    std::deque<std::function<void(bool isGranted)>> questions;
    /// Every microphone that was ever opened, in order.
    std::vector<std::shared_ptr<FakeOpenMicrophone>> opened;

private:
    class Handle final : public OpenAudioSource {
    public:
        explicit Handle(std::shared_ptr<FakeOpenMicrophone> state) : state_(std::move(state)) {}
        ~Handle() override
        {
            state_->isOpen = false;
            state_->onAudio = nullptr;
        }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;

    private:
        std::shared_ptr<FakeOpenMicrophone> state_;
    };

    Observers observers_;
};

} // namespace nimbrale
