#pragma once

#include "platform/audio_sources.h"
#include "platform/pulseaudio/server_connection.h"
#include "platform/pulseaudio/sound_clock.h"
#include "platform/pulseaudio/stream_times.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace nimbrale::pulseaudio {

/// One source of sound that is open, over a connection of its own with a thread of its own, on which the handler is
/// called. What it listens to may go and come back, and the server too. Main thread only.
class AudioSource final : public OpenAudioSource {
public:
    /// Fails when there is no server that answers. `microphone` is the source's name; without one it is what the
    /// computer plays, which fails too where nothing can play.
    [[nodiscard]] static Result<std::unique_ptr<OpenAudioSource>> open(std::optional<std::string> microphone,
                                                                       AudioHandler onAudio);
    /// Waits for the piece that is being handled.
    ~AudioSource() override;
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;

private:
    struct Events;

    /// What the first look for the source found.
    enum class Finding { nothingYet, noServer, noSource, source };

    AudioSource(std::optional<std::string> microphone, AudioHandler onAudio);

    [[nodiscard]] Result<void> start();
    void found(Finding finding);
    void look();
    void use(const std::string& source, int channels);
    void missed();
    void stopStream();
    void tryAgainLater(const char* reason);
    void takeSound();
    void askForTimes();
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeOfNextPiece() const;
    void handOver(std::chrono::nanoseconds measured, const float* samples, std::size_t count);
    [[nodiscard]] const char* name() const;

    const std::optional<std::string> microphone_;
    const AudioHandler onAudio_;
    std::atomic<bool> isClosing_ = false;

    std::mutex findingMutex_;
    std::condition_variable findingChanged_;
    Finding finding_ = Finding::nothingYet;

    // The loop's thread has these.
    SoundClock clock_;
    StreamTimes times_;
    std::chrono::nanoseconds asked_{}; ///< when `timesQuestion_` was, on CLOCK_MONOTONIC
    int piecesSinceQuestion_ = 0;
    bool hasLoggedProblem_ = false; ///< since there was sound
    pa_context* context_ = nullptr; ///< null while there is no server
    std::string source_;            ///< which the stream listens to
    int channels_ = 0;              ///< of the stream

    ServerConnection connection_;
    std::optional<LoopTimer> retryTimer_;
    Question outputQuestion_;
    Question sourceQuestion_;
    Stream stream_;
    Question timesQuestion_; ///< where the stream is
};

} // namespace nimbrale::pulseaudio
