#pragma once

#include "platform/audio_sources.h"
#include "platform/pipewire/lasting_connection.h"
#include "platform/pipewire/node_sleep.h"
#include "platform/pipewire/node_watch.h"
#include "platform/pipewire/sound_ring.h"
#include "platform/pipewire/sound_timeline.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace nimbrale::pipewire {

/// One source of sound that is open, over a connection of its own with a thread of its own, on which the handler is
/// called. What it listens to may go and come back, and the daemon too. Main thread only.
class AudioSource final : public OpenAudioSource {
public:
    /// Fails when there is no daemon that answers. `microphone` is the node's name; without one it is what the computer
    /// plays, which fails too where nothing can play.
    [[nodiscard]] static Result<std::unique_ptr<OpenAudioSource>> open(std::optional<std::string> microphone,
                                                                       AudioHandler onAudio);
    /// Waits until the daemon has let the source go, but not for longer than half a second.
    ~AudioSource() override;
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;

private:
    struct Events;

    AudioSource(std::optional<std::string> microphone, AudioHandler onAudio);

    [[nodiscard]] Result<void> start();
    void watch(DaemonConnection& connection);
    void nodeAdded(std::uint32_t number, const NodeProperties& properties);
    void nodeRemoved(std::uint32_t number);
    void nodeFellAsleep();
    void startStream();
    void stopStream();
    void tryAgainLater(const char* reason);
    void tryAgainAfter(std::chrono::milliseconds delay);
    void changeFormat(const spa_pod* parameter);
    void takeSound();
    void handOver();
    [[nodiscard]] const char* name() const;

    const std::optional<std::string> microphone_;
    const AudioHandler onAudio_;
    std::atomic<bool> isClosing_ = false;

    // The daemon's thread for data writes these.
    SoundRing ring_;
    std::atomic<bool> hasOverrun_ = false;
    /// How many channels the format has that is set; none before.
    std::atomic<int> channels_ = 0;
    /// Stays until no data come any more, other than the owner of the stream.
    std::atomic<pw_stream*> streamOfData_ = nullptr;

    // The loop's thread has these.
    SoundTimeline timeline_;
    bool hasLoggedOverrun_ = false;
    bool hasLoggedProblem_ = false; ///< since there was sound
    std::set<std::uint32_t> nodes_; ///< those that can be listened to

    LastingConnection connection_;
    LoopSource soundIsThere_;
    LoopSource retryTimer_;
    std::unique_ptr<NodeWatch> watch_;
    std::map<std::uint32_t, NodeSleep> sleeps_; ///< of the nodes that can be listened to
    Stream stream_;
    Listener streamListener_;
};

} // namespace nimbrale::pipewire
