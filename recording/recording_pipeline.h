#pragma once

#include "platform/movie_writer.h"
#include "platform/screen_capture.h"
#include "platform/surface_reader.h"
#include "recording/audio_mixer.h"
#include "recording/recorder_error.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// What a recording writes: brings the pictures and the mixed sound of the samples to the movie. The movie begins with
/// the first complete picture; sound before it is dropped. Made anywhere, then used and destroyed on one queue.
class RecordingPipeline {
public:
    using MovieResult = tl::expected<std::filesystem::path, RecorderError>;

    /// How often `tick` is to be called.
    static constexpr std::chrono::milliseconds tickInterval{500};

    /// `recordsAudio` where the writer has an audio track.
    RecordingPipeline(std::unique_ptr<MovieWriter> writer, std::unique_ptr<SurfaceReader> reader, bool recordsAudio);

    void takeScreen(const CaptureSample& sample);
    /// `presentationTime` on the clock of the screen's samples.
    void takeAudio(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime);
    /// Keeps a still picture, and the silence of a source that sleeps, in the movie up to about `now`, so that a crash
    /// loses no more of them than of what moves and sounds.
    void tick(std::chrono::nanoseconds now);
    /// Looks whether the disk still answers, as `tick` does. To be called as often, also while the movie is finished.
    void lookForStall();

    /// Ends the movie at `now`. `completion` gets the movie, or why there is none, on a thread of the writer's or
    /// within this call. Nothing is taken any more.
    void finish(std::chrono::nanoseconds now, std::function<void(MovieResult)> completion);
    /// Removes what was written. Nothing is taken any more.
    void cancel();

    /// Nothing more can be recorded, and why: the writer failed, or the pictures cannot be read. Told once. What was
    /// recorded before can still be finished. On this object's queue, or on the writer's thread before the completion
    /// of `finish`.
    std::function<void(const Error& error)> onFailure;
    /// The disk has not answered for ten seconds; what was recorded is written when it does. Told once, on this
    /// object's queue.
    std::function<void()> onStall;

private:
    void beginSession(std::chrono::nanoseconds time);
    void appendPicture(const std::shared_ptr<const Surface>& surface, std::chrono::nanoseconds time);
    void keepPicture(std::chrono::nanoseconds now);
    void addSound(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime);
    void writeMixed(bool flush);
    void checkWriter();
    void fail(const Error& error);

    std::unique_ptr<MovieWriter> writer_;
    std::unique_ptr<SurfaceReader> reader_;
    std::optional<AudioMixer> mixer_;
    /// Absent before the first picture.
    std::optional<std::chrono::nanoseconds> lastPictureTime_;
    /// The newest picture, where it is not in the movie yet.
    std::shared_ptr<const Surface> leftOut_;
    std::chrono::nanoseconds lastSoundTime_{};
    bool isFinishing_ = false;
    bool hasStalled_ = false;
    std::atomic<bool> hasFailed_ = false;
};

} // namespace nimbrale
