#pragma once

#include "platform/person_segmentation.h"
#include "platform/result.h"

#include <filesystem>
#include <memory>

namespace nimbrale::opencv {

/// With the model in that file (`modelFile` names it). An error says when it is missing or damaged. The computing is
/// done on the caller's thread alone: a second one would gain little and be missed by the meeting.
[[nodiscard]] Result<std::unique_ptr<PersonSegmentation>>
createPersonSegmentation(const std::filesystem::path& modelFile);

} // namespace nimbrale::opencv
