#pragma once

#include "platform/ffmpeg/av_handles.h"
#include "platform/result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale::ffmpeg {

enum class Track { video, audio };

/// Makes the bytes of a movie in pieces (fragments): a header without any picture, then pieces that each tell what they
/// hold, so that a file of them can be read however short it is cut. The tracks do not wait for each other. One thread
/// at a time.
class PieceMuxer {
public:
    using Bytes = std::vector<std::uint8_t>;

    /// For the streams of these encoders, which are needed for this call alone; `audio` may be null.
    [[nodiscard]] static Result<std::unique_ptr<PieceMuxer>> create(const AVCodecContext& video,
                                                                    const AVCodecContext* audio);
    ~PieceMuxer();
    PieceMuxer(const PieceMuxer&) = delete;
    PieceMuxer& operator=(const PieceMuxer&) = delete;

    /// What the file begins with. Once, before anything is added.
    [[nodiscard]] Result<Bytes> header();
    /// `packet` belongs to the piece that is being made. Each track's first packet has the time 0, and none is earlier
    /// than the end of the one before.
    [[nodiscard]] Result<void> add(Track track, PacketHandle packet);
    /// The piece of all that was added since the piece before; empty when nothing was.
    [[nodiscard]] Result<Bytes> endPiece();

private:
    struct Stream {
        int index = 0;
        int ticksPerSecond = 0;
    };

    explicit PieceMuxer(FormatContextHandle context);

    [[nodiscard]] bool addStream(Track track, const AVCodecContext& encoder);
    [[nodiscard]] Bytes takeBytes();

    FormatContextHandle context_;
    Stream video_;
    Stream audio_;
};

} // namespace nimbrale::ffmpeg
