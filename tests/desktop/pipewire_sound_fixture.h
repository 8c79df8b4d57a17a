#pragma once

#include "platform/pipewire/pipewire_audio.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/support/tone.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// What the programs of the tests play at.
constexpr double toneLevel = 0.4;

/// Somebody who listens, and remembers all that was heard.
class Listener {
public:
    struct Piece {
        std::chrono::nanoseconds time{};
        std::shared_ptr<const AudioBuffer> audio;

        [[nodiscard]] std::chrono::nanoseconds end() const
        {
            return time +
                   std::chrono::nanoseconds{static_cast<std::int64_t>(audio->frameCount()) * 1'000'000'000 / 48'000};
        }
    };

    [[nodiscard]] AudioHandler handler()
    {
        return [this](std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds time) {
            const std::lock_guard lock(mutex_);
            pieces_.push_back({time, std::move(audio)});
        };
    }
    [[nodiscard]] std::vector<Piece> pieces() const
    {
        const std::lock_guard lock(mutex_);
        return pieces_;
    }
    /// Forgets what was heard so far.
    void clear()
    {
        const std::lock_guard lock(mutex_);
        pieces_.clear();
    }
    /// The left channel of what was heard last.
    [[nodiscard]] std::vector<float> newest(std::size_t count) const
    {
        std::vector<float> samples;
        for (const Piece& piece : pieces()) {
            for (std::size_t frame = 0; frame < piece.audio->frameCount(); ++frame)
                samples.push_back(piece.audio->sample(frame, 0));
        }
        if (samples.size() > count)
            samples.erase(samples.begin(), samples.end() - static_cast<std::ptrdiff_t>(count));
        return samples;
    }
    /// How loud that frequency was in the last tenth of a second, as the level of a sine; 0 before so much was heard.
    [[nodiscard]] double levelOf(double frequency) const
    {
        constexpr std::size_t count = 4800;
        const std::vector<float> samples = newest(count);
        if (samples.size() < count)
            return 0;
        return levelOfTone(samples, frequency);
    }
    [[nodiscard]] bool hears(double frequency) const { return std::abs(levelOf(frequency) - toneLevel) < 0.04; }
    /// When each sound after at least half a second of silence began.
    [[nodiscard]] std::vector<std::chrono::nanoseconds> onsets() const
    {
        std::vector<std::chrono::nanoseconds> found;
        std::chrono::nanoseconds quietSince = std::chrono::nanoseconds::max();
        for (const Piece& piece : pieces()) {
            for (std::size_t frame = 0; frame < piece.audio->frameCount(); ++frame) {
                const auto time =
                    piece.time + std::chrono::nanoseconds{static_cast<std::int64_t>(frame) * 1'000'000'000 / 48'000};
                quietSince = std::min(quietSince, time);
                if (std::abs(piece.audio->sample(frame, 0)) < 0.02F)
                    continue;
                if (time - quietSince > std::chrono::milliseconds{500})
                    found.push_back(time);
                quietSince = time;
            }
        }
        return found;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Piece> pieces_;
};

/// The microphones and the system's sound on it.
class PipewireSoundTest : public PipewireSessionTest {
protected:
    void SetUp() override
    {
        PipewireSessionTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        known = std::make_unique<pipewire::KnownDevices>(queue);
        microphones = pipewire::createPipewireMicrophones(
            *known, [this](const std::function<void(bool)>& onAnswer) { onAnswer(isGranted); });
        systemAudio = pipewire::createPipewireSystemAudio();
    }

    [[nodiscard]] std::unique_ptr<VirtualSound> plugIn(const VirtualSound::Options& options)
    {
        std::string why;
        auto sound = VirtualSound::start(*pipewire, options, why);
        if (!sound)
            failTest(why);
        return sound;
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugInMicrophone(const std::string& id, double tone, int channels = 1)
    {
        return plugIn({.kind = "microphone",
                       .id = id,
                       .name = "Microphone " + id,
                       .more = {"--tone", std::to_string(tone), "--channels", std::to_string(channels)}});
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugInSink(const std::string& id)
    {
        return plugIn({.kind = "sink", .id = id, .name = "Loudspeaker " + id});
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> play(const std::string& sink, double tone)
    {
        return plugIn({.kind = "player",
                       .id = "player",
                       .name = "Player",
                       .more = {"--target", sink, "--tone", std::to_string(tone)}});
    }
    [[nodiscard]] bool isListed(const std::string& id)
    {
        const auto devices = microphones->devices();
        return std::ranges::any_of(devices, [&id](const MicrophoneDevice& device) { return device.id == id; });
    }
    [[nodiscard]] std::unique_ptr<OpenAudioSource> openMicrophone(const std::string& id, Listener& listener)
    {
        auto opened = microphones->open(id, listener.handler());
        if (opened)
            return std::move(*opened);
        failTest(opened.error().message);
        return nullptr;
    }
    [[nodiscard]] std::unique_ptr<OpenAudioSource> openSystemAudio(Listener& listener)
    {
        auto opened = systemAudio->open(listener.handler());
        if (opened)
            return std::move(*opened);
        failTest(opened.error().message);
        return nullptr;
    }

    bool isGranted = true; ///< what whoever asks for access is told
    std::unique_ptr<pipewire::KnownDevices> known;
    std::unique_ptr<Microphones> microphones;
    std::unique_ptr<SystemAudio> systemAudio;
};

} // namespace nimbrale::test
