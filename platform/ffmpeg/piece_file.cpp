#include "platform/ffmpeg/piece_file.h"

#include "platform/disk.h"
#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace nimbrale::ffmpeg {

namespace {

Error notWritten(int code)
{
    if (code == ENOSPC || code == EDQUOT)
        return {ErrorCode::permanent, "The recording ended because the disk is full."};
    return {ErrorCode::permanent, std::string("The recording couldn't be written: ") + std::strerror(code) + "."};
}

} // namespace

Result<void> PieceFile::append(std::span<const std::uint8_t> piece, std::size_t indexSize)
{
    off_t position = ends_.empty() ? 0 : ends_.back();
    while (!piece.empty()) {
        const ssize_t written = pwrite(descriptor_, piece.data(), piece.size(), position);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            const int code = written < 0 ? errno : ENOSPC;
            makeRoom(position, indexSize);
            return tl::make_unexpected(notWritten(code));
        }
        position += written;
        piece = piece.subspan(static_cast<std::size_t>(written));
    }
    ends_.push_back(position);
    setAside(position, indexSize);
    return {};
}

void PieceFile::makeRoom(off_t reached, std::size_t indexSize)
{
    const off_t limit = reached - static_cast<off_t>(indexSize);
    // The header and the first piece stay: without them there is nothing to make an index for.
    while (ends_.size() > 2 && ends_.back() > limit)
        ends_.pop_back();
    const off_t end = ends_.empty() ? 0 : ends_.back();
    if (ftruncate(descriptor_, end) != 0)
        qCWarning(recordingLog, "An incomplete piece of a movie couldn't be removed: %s", std::strerror(errno));
    // Others may write to the same disk until the index comes.
    setAside(end, indexSize);
}

void PieceFile::setAside(off_t position, std::size_t indexSize) const
{
    // File systems that cannot do it have only the room that is made when the disk is full.
    (void)fallocate(descriptor_, FALLOC_FL_KEEP_SIZE, position, static_cast<off_t>(indexSize));
}

Result<void> PieceFile::synchronize() const
{
    const int error = bringToDisk(descriptor_);
    return error == 0 ? Result<void>() : tl::make_unexpected(notWritten(error));
}

} // namespace nimbrale::ffmpeg
