#pragma once

#include "platform/pipewire/pipewire_audio.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/desktop/sound_fixture.h"

#include <memory>
#include <string>

namespace nimbrale::test {

/// The microphones and the system's sound on it.
class PipewireSoundTest : public SoundTest<PipewireSessionTest> {
protected:
    ~PipewireSoundTest() override { microphones.reset(); } // They use what is known.
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

    bool isGranted = true; ///< what whoever asks for access is told
    std::unique_ptr<pipewire::KnownDevices> known;
};

} // namespace nimbrale::test
