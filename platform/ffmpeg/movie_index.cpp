#include "platform/ffmpeg/movie_index.h"

#include "platform/disk.h"
#include "platform/ffmpeg/movie_pieces.h"
#include "platform/ffmpeg/movie_remux.h"
#include "platform/log.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace nimbrale::ffmpeg {

namespace {

bool isFull(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

/// 0, or why not.
int writeAt(int file, Bytes bytes, std::int64_t offset)
{
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += count;
    }
    return 0;
}

/// The header of an `mdat` over everything from the head to the index.
std::vector<std::uint8_t> mediaHeader(const MoviePieces& pieces)
{
    BoxWriter writer;
    writer.write32(1); // The size follows.
    writer.write32(boxType("mdat"));
    writer.write64(static_cast<std::uint64_t>(pieces.end - pieces.headOffset));
    return writer.bytes();
}

/// 0, or why not; the file consists of whole pieces then. Up to the last write it does for any reader, whatever else
/// has been written, and after it the file is an ordinary movie: 16 bytes within one block change at once.
int writeInPlace(int file, const MoviePieces& pieces, Bytes index)
{
    // A piece that was cut off would seem whole with the index behind it.
    int error = ::ftruncate(file, static_cast<off_t>(pieces.end)) == 0 ? 0 : errno;
    if (error == 0)
        error = writeAt(file, index, pieces.end);
    if (error == 0)
        error = bringToDisk(file);
    if (error == 0)
        error = writeAt(file, mediaHeader(pieces), pieces.headOffset);
    if (error == 0)
        return 0;
    if (::ftruncate(file, static_cast<off_t>(pieces.end)) != 0)
        qCWarning(recordingLog, "An unfinished index stays: %s", std::strerror(errno));
    return error;
}

Result<FinalizedMovie> finalizeInCopy(MoviePlace& place, const char* why)
{
    qCInfo(recordingLog, "%s is copied: %s", place.pieces().c_str(), why);
    auto copy = place.createCopy();
    if (!copy)
        return tl::make_unexpected(copy.error());
    const Result<void> written = remuxMovie(place.descriptor(), copy->get());
    const int error = written ? bringToDisk(copy->get()) : 0;
    if (!written || error != 0) {
        qCWarning(recordingLog, "%s was not copied: %s", place.pieces().c_str(),
                  written ? std::strerror(error) : written.error().message.c_str());
        place.removeCopy();
        return tl::make_unexpected(place.notSaved(ErrorCode::permanent));
    }
    if (const Result<void> replaced = place.replaceByCopy(std::move(*copy)); !replaced)
        return tl::make_unexpected(replaced.error());
    return FinalizedMovie::ordinary;
}

Result<FinalizedMovie> finalizeInPlace(MoviePlace& place, const MoviePieces& pieces)
{
    const auto index = writeIndex(pieces.head, pieces.tracks);
    if (!index)
        return finalizeInCopy(place, index.error().message.c_str());
    const int error = writeInPlace(place.descriptor(), pieces, *index);
    if (isFull(error)) {
        qCWarning(recordingLog, "No room for the index of %s: %s", place.pieces().c_str(), std::strerror(error));
        return tl::make_unexpected(place.notSaved(ErrorCode::temporary, "The disk is full."));
    }
    return error == 0 ? Result<FinalizedMovie>(FinalizedMovie::ordinary) : finalizeInCopy(place, std::strerror(error));
}

} // namespace

Result<FinalizedMovie> finalizeMovie(MoviePlace& place)
{
    const Result<MoviePieces> pieces = readPieces(place.descriptor());
    if (!pieces && pieces.error().code == ErrorCode::unsupported)
        return finalizeInCopy(place, pieces.error().message.c_str());
    if (!pieces) {
        qCWarning(recordingLog, "%s cannot be read: %s", place.pieces().c_str(), pieces.error().message.c_str());
        return tl::make_unexpected(place.notSaved(pieces.error().code));
    }
    if (pieces->kind == MoviePieces::Kind::empty)
        return FinalizedMovie::empty;
    if (pieces->kind == MoviePieces::Kind::pieces) {
        if (auto finalized = finalizeInPlace(place, *pieces); !finalized)
            return finalized;
    }
    if (const int error = bringToDisk(place.descriptor()); error != 0) {
        qCWarning(recordingLog, "%s was not brought to the disk: %s", place.pieces().c_str(), std::strerror(error));
        return tl::make_unexpected(place.notSaved(ErrorCode::temporary));
    }
    return FinalizedMovie::ordinary;
}

} // namespace nimbrale::ffmpeg
