#pragma once

#include "platform/audio_sources.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// What is known of a sound service.
struct SoundService {
    /// Whether it has devices for sound of its own; absent before that is known. It is not asked by this.
    std::function<std::optional<bool>()> hasSound;
    /// The observer is told whenever that may have changed.
    std::function<Subscription(std::function<void()> observer)> observe;
};

/// The microphones of the first service where that has sound, and otherwise, for as long as it has none, those of the
/// second, which is not asked before. What was opened stays with the service that it was opened at. Access is asked for
/// at the first one. Main thread only.
[[nodiscard]] std::unique_ptr<Microphones> combineMicrophones(std::unique_ptr<Microphones> first, SoundService service,
                                                              std::unique_ptr<Microphones> second);

/// What the computer plays, of the first service where that can be listened to when it is opened, and otherwise of the
/// second. Where neither can, the first one's reason is told. Main thread only.
[[nodiscard]] std::unique_ptr<SystemAudio> combineSystemAudio(std::unique_ptr<SystemAudio> first,
                                                              std::unique_ptr<SystemAudio> second);

} // namespace nimbrale
