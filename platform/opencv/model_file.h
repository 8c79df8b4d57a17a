#pragma once

#include "platform/result.h"

#include <QByteArray>

#include <filesystem>

namespace nimbrale::opencv {

/// Where a program in that folder has its model: beside itself, as in the folder of a build, or else where an
/// installation puts data. The file need not be there.
[[nodiscard]] std::filesystem::path modelFile(const std::filesystem::path& programFolder);

/// The model's bytes, proven to be those that this program was made for; an error says that the file is missing or
/// damaged.
[[nodiscard]] Result<QByteArray> readModel(const std::filesystem::path& file);

} // namespace nimbrale::opencv
