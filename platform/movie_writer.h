#pragma once

#include "platform/audio_buffer.h"
#include "platform/observers.h"
#include "platform/result.h"
#include "platform/surface_reader.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale {

/// H.264, High profile, BT.709 in the limited range.
struct MovieVideo {
    /// In pixels; both even, at least 2.
    int width = 0;
    int height = 0;
    /// Bits per second.
    std::int64_t averageBitRate = 0;
    /// Pictures per second at most.
    int expectedFrameRate = 30;
    /// Pictures. A key frame also comes when as many would have come at the expected rate, however few have.
    int maximumKeyFrameInterval = 60;

    bool operator==(const MovieVideo&) const = default;
};

/// MPEG-4 AAC.
struct MovieAudio {
    int sampleRate = 48000;
    int channels = 2;
    /// Bits per second.
    int bitRate = 192000;

    bool operator==(const MovieAudio&) const = default;
};

struct MovieSettings {
    /// Where the movie is to be. Where something of that name exists when the movie is finished, it gets the next free
    /// name: "Name 2.mov".
    std::filesystem::path file;
    MovieVideo video;
    /// Absent: no sound.
    std::optional<MovieAudio> audio;

    bool operator==(const MovieSettings&) const = default;
};

/// A QuickTime movie that is being written. Until it is finished it lies beside its final place under another name, in
/// pieces of a second that a crash leaves whole.
///
/// All times are CLOCK_MONOTONIC. Used and destroyed on one thread of the caller's choice. Encoding and writing happen
/// on threads of its own; nothing here waits for them but the destructor, which lets a finish under way come to its end
/// as long as the disk answers, and leaves what was neither finished nor cancelled as a crash would. A disk that
/// answers only later still gets the movie then, if the process lives, and no completion runs any more.
class MovieWriter {
public:
    /// Runs on a thread of the writer's own, where it must neither wait nor destroy the writer.
    using Completion = std::function<void(Result<std::filesystem::path> movie)>;

    virtual ~MovieWriter() = default;

    /// The movie begins at `time`; nothing is written before. Once, before anything is appended.
    virtual void startSession(std::chrono::nanoseconds time) = 0;

    /// Whether a picture that is appended now would be encoded in time; where not, leave it out.
    [[nodiscard]] virtual bool isReadyForVideo() const = 0;
    /// The picture shown from `time` on, of the video's size; times rise. It is read before this returns. A picture may
    /// stay for any time: the movie shows it until the next one or the end. `picture.changed` counts from the picture
    /// given before.
    virtual void appendVideo(const SurfaceReader::Picture& picture, std::chrono::nanoseconds time) = 0;
    /// A picture was left out. How many were is logged when the movie is finished.
    virtual void dropVideo() = 0;
    /// The picture appended last is still shown at `time`. Call it about once a second while nothing changes, so that a
    /// crash loses no more of a still screen than of a moving one.
    virtual void repeatVideo(std::chrono::nanoseconds time) = 0;
    /// Interleaved samples at the audio's rate and channels, which begin at `time`. What is missing since the sound
    /// before is silence. Never dropped. Only where the settings have audio.
    virtual void appendAudio(const AudioBuffer& audio, std::chrono::nanoseconds time) = 0;

    /// The movie ends at `time`. Encodes what is left, makes an ordinary movie of the pieces and gives it its name.
    /// When that fails, the pieces stay where they are and the error says where. Nothing may be appended any more.
    virtual void finish(std::chrono::nanoseconds time, Completion completion) = 0;
    /// Removes what was written.
    virtual void cancel() = 0;
    /// Why nothing can be written any more, if so: the disk is full or gone, or the encoder failed or does not answer.
    /// What was written before can still be finished. Whoever asks logs it; what fails after `finish` the writer logs
    /// itself, and it is known when the completion runs. Any thread.
    [[nodiscard]] virtual std::optional<Error> failure() const = 0;
    /// Whether the disk has not answered for ten seconds, before or after `finish`; what waits for it is written when
    /// it does. Of the time between two questions a second counts at most: where nobody asked, the whole process may
    /// have stood still. Any thread.
    [[nodiscard]] virtual bool isStalled() = 0;
};

/// What became of a movie that its writer never finished.
struct RecoveredMovie {
    /// The movie under its final name; or, where it could not be recovered, what is left of it.
    std::filesystem::path file;
    /// Absent when it was recovered.
    std::optional<Error> error;

    bool operator==(const RecoveredMovie&) const = default;
};

/// Main thread only.
class Movies {
public:
    virtual ~Movies() = default;

    /// Looks for what encodes such a movie best, which takes a moment where there is a graphics card; a `create` with
    /// the same video takes what was found. `completion` is called once on the main thread, within two seconds, perhaps
    /// before this returns; not when another preparation or the end comes first. There need not be one.
    virtual void prepare(const MovieVideo& video, std::function<void()> completion) = 0;
    /// Makes the movie's file, on another thread: the disk may not answer for as long as it likes. `completion` is
    /// called on the main queue, later; where there is no movie with the reason, in sentences for the user. Whoever
    /// drops what this returns before gives the movie up, and nothing is left of it when the disk has answered.
    [[nodiscard]] virtual Subscription
    create(const MovieSettings& settings,
           std::function<void(Result<std::unique_ptr<MovieWriter>> writer)> completion) = 0;
    /// Finishes the movies in `folder` that a crash has left, and leaves alone those that somebody still writes.
    /// Movies of which nothing can be saved are removed when they hold no picture at all. `completion` is called on the
    /// main queue, with all that were found, unless the application ends before.
    virtual void recover(const std::filesystem::path& folder,
                         std::function<void(std::vector<RecoveredMovie> movies)> completion) = 0;
};

} // namespace nimbrale
