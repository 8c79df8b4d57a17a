#pragma once

#include "platform/movie_writer.h"

#include <filesystem>
#include <set>
#include <vector>

namespace nimbrale::ffmpeg {

/// Finishes movies whose writers are gone. On any thread, but one at a time.
class MovieRecovery {
public:
    /// Makes movies of what writers have left in `folder` and gives them their names; each is in the result. What
    /// somebody still writes is left alone, and what holds no picture is removed without a word. What cannot be
    /// recovered stays and is in the result of the first call only. Links, pipes and files of other users are nobody's
    /// leftovers. A folder that is not there holds nothing; one that cannot be read neither, and is logged.
    [[nodiscard]] std::vector<RecoveredMovie> recover(const std::filesystem::path& folder);

private:
    std::set<std::filesystem::path> reported_;
};

} // namespace nimbrale::ffmpeg
