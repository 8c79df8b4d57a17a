#pragma once

#include "platform/ffmpeg/piece_file.h"
#include "platform/ffmpeg/piece_muxer.h"
#include "platform/serial_queue.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

namespace nimbrale::ffmpeg {

/// Writes the encoders' packets to a file, in pieces of a second, each of which is handed to the system whole and
/// brought to the disk at once, on a thread of its own: a slow disk holds up nothing. One thread at a time. After an
/// error only the destructor may be called, which waits for the disk.
class PieceWriter {
public:
    /// Writes the header. `descriptor`, an empty file, is used as long as this lives; the encoders for this call alone.
    /// `audio` may be null.
    [[nodiscard]] static Result<std::unique_ptr<PieceWriter>> create(const AVCodecContext& video,
                                                                     const AVCodecContext* audio, int descriptor);

    /// The picture before is shown until this one. The first one has the time 0; times rise.
    [[nodiscard]] Result<void> addVideo(PacketHandle packet);
    [[nodiscard]] Result<void> addAudio(PacketHandle packet);
    /// Ends the piece although it is shorter than a second, unless it is very short.
    [[nodiscard]] Result<void> endPieceEarly();
    /// The last picture is shown until `videoEnd`, in ticks. Nothing may be added any more.
    [[nodiscard]] Result<void> end(std::int64_t videoEnd);

private:
    PieceWriter(std::unique_ptr<PieceMuxer> muxer, int descriptor, int audioTicksPerSecond);

    [[nodiscard]] Result<void> write(Track track, PacketHandle packet, std::chrono::nanoseconds end);
    [[nodiscard]] Result<void> writeVideoUntil(std::int64_t tick);
    [[nodiscard]] Result<void> endPiece();
    [[nodiscard]] std::size_t indexSize() const;
    void synchronize();

    std::unique_ptr<PieceMuxer> muxer_;
    PieceFile file_;
    int audioTicksPerSecond_;
    /// Waits for the next one, which tells how long it is shown.
    PacketHandle lastVideo_;
    std::chrono::nanoseconds pieceBegin_{0};
    std::chrono::nanoseconds reached_{0};
    std::size_t packets_ = 0;
    std::atomic<bool> isSynchronizing_ = false;
    std::mutex mutex_;
    std::optional<Error> synchronizeError_;
    /// Last, so that it ends first.
    SerialQueue disk_;
};

} // namespace nimbrale::ffmpeg
