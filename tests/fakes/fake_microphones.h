#pragma once

#include "platform/audio_sources.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// What a test sees of a source of sound that was opened and does to it; outlives the source.
class FakeOpenAudioSource {
public:
    std::string id; ///< empty for what the computer plays
    bool isOpen = true;

    /// Hands out a piece, on the test's own thread, which stands for the source's. A closed source has none to give.
    void play(std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds presentationTime) const
    {
        if (isOpen && handler)
            handler(std::move(audio), presentationTime);
    }
    void play(AudioBuffer audio, std::chrono::nanoseconds presentationTime) const
    {
        play(std::make_shared<const AudioBuffer>(std::move(audio)), presentationTime);
    }
    /// A piece of one level.
    void play(std::size_t frames, float level, int channels, std::chrono::nanoseconds presentationTime) const
    {
        AudioBuffer audio;
        audio.channels = channels;
        audio.samples.assign(frames * static_cast<std::size_t>(channels), level);
        play(std::move(audio), presentationTime);
    }

    AudioHandler handler;
};

/// What whoever opened it owns.
class FakeAudioSourceHandle final : public OpenAudioSource {
public:
    explicit FakeAudioSourceHandle(std::shared_ptr<FakeOpenAudioSource> state) : state_(std::move(state)) {}
    ~FakeAudioSourceHandle() override
    {
        state_->isOpen = false;
        state_->handler = {};
    }
    FakeAudioSourceHandle(const FakeAudioSourceHandle&) = delete;
    FakeAudioSourceHandle& operator=(const FakeAudioSourceHandle&) = delete;

private:
    std::shared_ptr<FakeOpenAudioSource> state_;
};

/// Sources that were opened, in order, and whether they can be.
class FakeAudioSources {
public:
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> openSource(const std::string& id, AudioHandler onAudio)
    {
        if (!openResult)
            return tl::make_unexpected(openResult.error());
        auto state = std::make_shared<FakeOpenAudioSource>();
        state->id = id;
        state->handler = std::move(onAudio);
        opened.push_back(state);
        return std::make_unique<FakeAudioSourceHandle>(std::move(state));
    }
    [[nodiscard]] std::size_t openCount() const
    {
        return static_cast<std::size_t>(
            std::ranges::count_if(opened, [](const auto& source) { return source->isOpen; }));
    }

    /// How sources opened from now on answer.
    Result<void> openResult;
    /// Closed ones included.
    std::vector<std::shared_ptr<FakeOpenAudioSource>> opened;
};

/// Microphones that the test plugs in, unplugs and speaks into.
class FakeMicrophones final : public Microphones, public FakeAudioSources {
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
        return openSource(id, std::move(onAudio));
    }

    /// Tells the observers; for a change of `list` or `preferred` that the test made itself.
    void notify() { observers_.notify(); }
    void plugIn(MicrophoneDevice device)
    {
        list.push_back(std::move(device));
        notify();
    }
    /// Whoever has it open hears nothing more; as with a real one, nobody is told.
    void unplug(const std::string& id)
    {
        std::erase_if(list, [&id](const MicrophoneDevice& device) { return device.id == id; });
        notify();
    }
    /// Answers the oldest question for access; there must be one.
    void answerAccess(bool isGranted)
    {
        const auto onAnswer = std::move(questions.front());
        questions.pop_front();
        onAnswer(isGranted);
    }

    std::vector<MicrophoneDevice> list;
    std::optional<std::string> preferred;
    /// Questions for access that wait for their answer.
    std::deque<std::function<void(bool isGranted)>> questions;

private:
    Observers observers_;
};

/// What the computer plays, by the test's hand.
class FakeSystemAudio final : public SystemAudio, public FakeAudioSources {
public:
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(AudioHandler onAudio) override
    {
        return openSource({}, std::move(onAudio));
    }
};

} // namespace nimbrale
