#pragma once

#include "platform/result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>
#include <vector>

namespace nimbrale::ffmpeg {

/// A file that pieces of a movie are appended to. After a failure it holds whole pieces only, and the disk has room for
/// the index that an ordinary movie needs. One thread at a time, `synchronize` apart.
class PieceFile {
public:
    /// `descriptor` stays the caller's; the file is empty.
    explicit PieceFile(int descriptor) : descriptor_(descriptor) {}

    /// `indexSize` is how many bytes the index of all pieces up to and with this one may take. An error is one that the
    /// user can be shown; nothing may be appended after it.
    [[nodiscard]] Result<void> append(std::span<const std::uint8_t> piece, std::size_t indexSize);
    /// Brings what was appended to the disk. Waits for the disk. Any thread, beside `append` too.
    [[nodiscard]] Result<void> synchronize() const;

private:
    void makeRoom(off_t reached, std::size_t indexSize);
    /// Keeps the disk's space behind the file for it.
    void setAside(off_t position, std::size_t indexSize) const;

    int descriptor_;
    /// Where each piece ends, the header being the first one.
    std::vector<off_t> ends_;
};

} // namespace nimbrale::ffmpeg
