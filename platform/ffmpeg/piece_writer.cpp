#include "platform/ffmpeg/piece_writer.h"

#include "platform/ffmpeg/video_encoder.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace nimbrale::ffmpeg {

namespace {

using std::chrono::nanoseconds;

constexpr nanoseconds pieceLength = std::chrono::seconds(1);
constexpr nanoseconds shortestEarlyPiece = pieceLength / 2;
/// What the tables of an ordinary movie's index take for a packet at most, and everything else in it.
constexpr std::size_t indexBytesPerPacket = 40;
constexpr std::size_t indexBytes = 65536;

nanoseconds timeOf(std::int64_t ticks, int ticksPerSecond)
{
    return nanoseconds(av_rescale(ticks, std::nano::den, ticksPerSecond));
}

} // namespace

PieceWriter::PieceWriter(std::unique_ptr<PieceMuxer> muxer, int descriptor, int audioTicksPerSecond)
    : muxer_(std::move(muxer)), file_(descriptor), audioTicksPerSecond_(audioTicksPerSecond),
      disk_("Nimbrale.movie-disk")
{}

Result<std::unique_ptr<PieceWriter>> PieceWriter::create(const AVCodecContext& video, const AVCodecContext* audio,
                                                         int descriptor)
{
    auto muxer = PieceMuxer::create(video, audio);
    if (!muxer)
        return tl::make_unexpected(muxer.error());
    const Result<PieceMuxer::Bytes> header = (*muxer)->header();
    if (!header)
        return tl::make_unexpected(header.error());
    std::unique_ptr<PieceWriter> pieces(new PieceWriter(*std::move(muxer), descriptor, audio ? audio->sample_rate : 0));
    if (const Result<void> written = pieces->file_.append(*header, pieces->indexSize()); !written)
        return tl::make_unexpected(written.error());
    return pieces;
}

std::size_t PieceWriter::indexSize() const
{
    return indexBytes + packets_ * indexBytesPerPacket;
}

Result<void> PieceWriter::addVideo(PacketHandle packet)
{
    Result<void> written = lastVideo_ ? writeVideoUntil(packet->pts) : Result<void>();
    lastVideo_ = std::move(packet);
    return written;
}

Result<void> PieceWriter::writeVideoUntil(std::int64_t tick)
{
    lastVideo_->duration = tick - lastVideo_->pts;
    return write(Track::video, std::move(lastVideo_), timeOf(tick, videoTicksPerSecond));
}

Result<void> PieceWriter::addAudio(PacketHandle packet)
{
    const nanoseconds end = timeOf(packet->pts + packet->duration, audioTicksPerSecond_);
    return write(Track::audio, std::move(packet), end);
}

Result<void> PieceWriter::write(Track track, PacketHandle packet, nanoseconds end)
{
    {
        const std::lock_guard lock(mutex_);
        if (synchronizeError_)
            return tl::make_unexpected(*synchronizeError_);
    }
    if (Result<void> added = muxer_->add(track, std::move(packet)); !added)
        return added;
    ++packets_;
    reached_ = std::max(reached_, end);
    return reached_ - pieceBegin_ >= pieceLength ? endPiece() : Result<void>();
}

Result<void> PieceWriter::endPieceEarly()
{
    return reached_ - pieceBegin_ >= shortestEarlyPiece ? endPiece() : Result<void>();
}

Result<void> PieceWriter::endPiece()
{
    const Result<PieceMuxer::Bytes> piece = muxer_->endPiece();
    if (!piece)
        return tl::make_unexpected(piece.error());
    pieceBegin_ = reached_;
    if (Result<void> written = file_.append(*piece, indexSize()); !written)
        return written;
    synchronize();
    return {};
}

void PieceWriter::synchronize()
{
    // A disk that takes longer gets the next piece together with those after it.
    if (isSynchronizing_.exchange(true))
        return;
    disk_.post([this] {
        if (const Result<void> done = file_.synchronize(); !done) {
            const std::lock_guard lock(mutex_);
            synchronizeError_ = done.error();
        }
        isSynchronizing_ = false;
    });
}

Result<void> PieceWriter::end(std::int64_t videoEnd)
{
    if (Result<void> written = lastVideo_ ? writeVideoUntil(videoEnd) : Result<void>(); !written)
        return written;
    return endPiece();
}

} // namespace nimbrale::ffmpeg
