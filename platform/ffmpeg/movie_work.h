#pragma once

#include "platform/disk_queue.h"
#include "platform/ffmpeg/movie_encoding.h"
#include "platform/ffmpeg/movie_place.h"
#include "platform/ffmpeg/stall_watch.h"
#include "platform/movie_writer.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace nimbrale::ffmpeg {

/// The side of a movie that encodes and writes, on a thread of its own, which a disk that does not answer may hold up
/// for as long as it likes. So it outlives the writer then, and does what it was given as soon as the disk answers.
/// Any thread, where nothing else is said.
class MovieWork : public std::enable_shared_from_this<MovieWork> {
public:
    using Step = std::function<Result<void>(MovieEncoding& encoding)>;

    MovieWork(MoviePlace place, std::unique_ptr<MovieEncoding> encoding, std::chrono::milliseconds patience);

    /// Encodes a picture; it waits in the queue until then.
    void postPicture(Step step);
    /// Encodes sound that was added by the step, in turns with the pictures that wait.
    void postSound(Step step);
    /// `completion` is called on the work's thread, unless `abandon` comes first.
    void postFinish(std::chrono::nanoseconds end, MovieWriter::Completion completion);
    /// Does nothing more of what waits, and removes the file.
    void postRemoval();
    /// Does nothing more of what waits, and leaves the file as a crash would.
    void discard() { isDiscarded_ = true; }
    /// Waits for what was posted as long as the disk answers. When this returns, nothing of the caller's is called any
    /// more.
    void abandon();

    /// Pictures that were posted and are not encoded yet.
    [[nodiscard]] std::size_t waiting() const { return waiting_; }
    void countDropped() { ++dropped_; }
    [[nodiscard]] std::optional<Error> failure() const;
    /// See `MovieWriter::isStalled`.
    [[nodiscard]] bool isStalled();

private:
    // These run on the work's thread.
    [[nodiscard]] bool isEncoding() const;
    void encode(const Step& step);
    void encodeSound();
    [[nodiscard]] Result<std::filesystem::path> finish(std::chrono::nanoseconds end);
    [[nodiscard]] Result<std::filesystem::path> makeMovie();
    void complete(Result<std::filesystem::path> movie);
    void noteFailure(Error error);

    MoviePlace place_;
    std::unique_ptr<MovieEncoding> encoding_;
    bool isSoundPosted_ = false;
    /// Nothing may be written any more.
    bool isBroken_ = false;
    std::atomic<std::size_t> waiting_ = 0;
    std::atomic<std::size_t> dropped_ = 0;
    std::atomic<bool> isDiscarded_ = false;
    mutable std::mutex mutex_;
    std::optional<Error> failure_;
    bool isFinishing_ = false;
    /// Held while the completion runs: whoever abandons the work may release what it uses.
    std::mutex completionMutex_;
    MovieWriter::Completion completion_;
    std::mutex stallMutex_;
    StallWatch stall_;
    /// Last, so that it ends first.
    DiskQueue queue_{"Nimbrale.movie"};
};

} // namespace nimbrale::ffmpeg
