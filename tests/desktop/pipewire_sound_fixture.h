#pragma once

#include "platform/pipewire/pipewire_audio.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/desktop/sound_listener.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace nimbrale::test {

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
