#pragma once

#include "platform/audio_buffer.h"
#include "platform/observers.h"
#include "platform/result.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

struct MicrophoneDevice {
    /// The same whenever the microphone is plugged in, at the same socket of the computer.
    std::string id;
    /// What the user knows it by; UTF-8.
    std::string name;

    bool operator==(const MicrophoneDevice&) const = default;
};

/// A source of sound that is open. It goes on for as long as it is held: while the device is gone, asleep or without a
/// driver there is no sound, and when it is back there is sound again, at its true times. Destroying it closes the
/// source; no handler is called any more then. Main thread only.
class OpenAudioSource {
public:
    virtual ~OpenAudioSource() = default;
};

/// Gets a piece of sound, in 32-bit floats at 48000 Hz, and when its first sample was heard or played:
/// CLOCK_MONOTONIC. The times are the device's own, so that a piece that was lost leaves a gap, and pieces may overlap
/// by less than a millisecond where a device's clock drifts. Called on a thread of the source's own, one call at a
/// time; it must not wait for the main thread.
using AudioHandler =
    std::function<void(std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds presentationTime)>;

/// The computer's microphones. Main thread only.
class Microphones {
public:
    virtual ~Microphones() = default;

    /// Those that are there now, in the system's order; never what a loudspeaker plays. The system is not asked before
    /// the first call for devices, other than to observe them; what is there becomes known a moment later, which is
    /// told like a change.
    [[nodiscard]] virtual std::vector<MicrophoneDevice> devices() = 0;
    /// The one that the user prefers in all programs, or that the system chose for them, if there is any such.
    [[nodiscard]] virtual std::optional<std::string> preferredDevice() = 0;
    /// A microphone came or went, or another one is preferred.
    [[nodiscard]] virtual Subscription observeDevices(std::function<void()> observer) = 0;

    /// Asks the user, where the system wants that, whether this application may use microphones. `onAnswer` is called
    /// later, on the main queue, when the answer and the devices are known or cannot be had, unless the application
    /// ends before.
    virtual void requestAccess(std::function<void(bool isGranted)> onAnswer) = 0;
    /// Opens a microphone by its identifier. Fails when the system refuses; a microphone that stays silent or goes does
    /// not fail, and is logged.
    [[nodiscard]] virtual Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id,
                                                                        AudioHandler onAudio) = 0;
};

/// What the computer plays, all programs together. Main thread only.
class SystemAudio {
public:
    virtual ~SystemAudio() = default;

    /// Follows the output that the user prefers, as it changes. Always two channels. Fails when the system has no sound
    /// that can be listened to.
    [[nodiscard]] virtual Result<std::unique_ptr<OpenAudioSource>> open(AudioHandler onAudio) = 0;
};

} // namespace nimbrale
