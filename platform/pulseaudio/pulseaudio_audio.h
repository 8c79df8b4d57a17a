#pragma once

#include "platform/audio_sources.h"
#include "platform/main_queue.h"

#include <chrono>
#include <memory>

namespace nimbrale::pulseaudio {

/// How long the server may take to tell of its devices before whoever waits for them goes on without.
constexpr std::chrono::seconds longestAnswer{3};

/// The microphones that the session's PulseAudio knows, as it comes and goes. The server asks nobody whether they may
/// be used: access is always granted, once they are known. `queue` must outlive it. Main thread only.
[[nodiscard]] std::unique_ptr<Microphones> createPulseaudioMicrophones(MainQueue& queue);

/// What the session's PulseAudio plays. Main thread only.
[[nodiscard]] std::unique_ptr<SystemAudio> createPulseaudioSystemAudio();

} // namespace nimbrale::pulseaudio
