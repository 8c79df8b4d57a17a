#pragma once

#include "platform/audio_sources.h"
#include "tests/desktop/sound_listener.h"
#include "tests/support/requirements.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace nimbrale::test {

/// The microphones and the system's sound of a sound service on a session of the test's own, whichever service it is.
/// `Session` is a fixture that has the session; who derives from this one makes the microphones and the system's sound.
template <typename Session>
class SoundTest : public Session {
protected:
    [[nodiscard]] bool isListed(const std::string& id)
    {
        const auto devices = microphones->devices();
        return std::ranges::any_of(devices, [&id](const MicrophoneDevice& device) { return device.id == id; });
    }
    /// Never null: the running test ends where it fails.
    [[nodiscard]] std::unique_ptr<OpenAudioSource> openMicrophone(const std::string& id, Listener& listener)
    {
        return require(microphones->open(id, listener.handler()));
    }
    [[nodiscard]] std::unique_ptr<OpenAudioSource> openSystemAudio(Listener& listener)
    {
        return require(systemAudio->open(listener.handler()));
    }

    std::unique_ptr<Microphones> microphones;
    std::unique_ptr<SystemAudio> systemAudio;

private:
    [[nodiscard]] static std::unique_ptr<OpenAudioSource> require(Result<std::unique_ptr<OpenAudioSource>> opened)
    {
        if (!opened)
            failTest(opened.error().message);
        return std::move(*opened);
    }
};

} // namespace nimbrale::test
