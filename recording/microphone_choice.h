#pragma once

#include "platform/audio_sources.h"
#include "recording/recorder_error.h"

#include <optional>
#include <string>

namespace nimbrale {

/// The microphone of that identifier; the default one, or else the first, where the identifier is empty or of none that
/// is there. Nothing where no identifier is given: no microphone is wanted. An error where there is none at all.
[[nodiscard]] tl::expected<std::optional<MicrophoneDevice>, RecorderError>
chooseMicrophone(Microphones& microphones, const std::optional<std::string>& id);

/// "The microphone … can't be used."
[[nodiscard]] RecorderError microphoneNotUsable(const MicrophoneDevice& device);

} // namespace nimbrale
