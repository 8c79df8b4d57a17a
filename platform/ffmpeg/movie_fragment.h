#pragma once

#include "platform/ffmpeg/sample_table.h"
#include "platform/result.h"

#include <cstdint>
#include <vector>

namespace nimbrale::ffmpeg {

/// What holds for a sample where its fragment says nothing else.
struct SampleDefaults {
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
    std::uint32_t flags = 0;
};

/// A track, as far as its fragments need it.
struct FragmentTrack {
    std::uint32_t id = 0;
    SampleDefaults defaults;
    /// When the next sample is decoded, where the fragment does not say it.
    std::int64_t nextTime = 0;
};

/// The samples that the `moof` with this content speaks of, in its order; each run at least one. `offset` is where the
/// `moof` begins in the file. Fails with ErrorCode::unsupported on what may be right but is written by others, and with
/// ErrorCode::permanent on what is wrong.
[[nodiscard]] Result<std::vector<SampleRun>> readFragment(Bytes content, std::int64_t offset,
                                                          const std::vector<FragmentTrack>& tracks);

} // namespace nimbrale::ffmpeg
