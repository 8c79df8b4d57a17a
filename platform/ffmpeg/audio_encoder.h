#pragma once

#include "platform/audio_buffer.h"
#include "platform/ffmpeg/av_handles.h"
#include "platform/movie_writer.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace nimbrale::ffmpeg {

/// Makes one unbroken AAC track of pieces of sound, by their times. Positions count samples of each channel from the
/// movie's start. One thread at a time.
///
/// The encoder's start-up delay takes the place of the first 1024 samples, 21 ms, which are lost; so everything after
/// them is where it belongs, for every player.
class AudioEncoder {
public:
    [[nodiscard]] static Result<std::unique_ptr<AudioEncoder>> create(const MovieAudio& audio);

    /// What a muxer wants to know of the stream.
    [[nodiscard]] const AVCodecContext& context() const { return *context_; }

    /// Sound that begins at `position`, interleaved or planar, of the settings' channels. What lies before the end of
    /// what came before is cut off, and a gap becomes silence.
    void append(const AudioBuffer& audio, std::int64_t position);
    /// The track ends at `position`: what is missing becomes silence. What is longer already stays. Nothing may be
    /// appended any more.
    void endAt(std::int64_t position);

    /// Encodes what is complete, `mostFrames` frames of 1024 samples at most: how long this takes is up to the caller.
    [[nodiscard]] Result<std::vector<PacketHandle>> encode(int mostFrames);
    /// Whether `encode` has anything to do.
    [[nodiscard]] bool hasWork() const;

private:
    struct Piece {
        std::int64_t position = 0;
        std::int64_t length = 0;
        AudioBuffer audio;
        /// Of the piece's first sample within the buffer.
        std::int64_t offset = 0;
    };

    AudioEncoder(CodecContextHandle context, int channels);

    [[nodiscard]] FrameHandle nextFrame();
    void copyPiece(const Piece& piece, AVFrame& frame) const;
    [[nodiscard]] int receive(std::vector<PacketHandle>& packets);

    CodecContextHandle context_;
    int channels_;
    std::deque<Piece> pieces_;
    /// Of the next sample to encode.
    std::int64_t next_;
    std::int64_t end_ = 0;
    bool isEnding_ = false;
    bool isFlushed_ = false;
};

} // namespace nimbrale::ffmpeg
