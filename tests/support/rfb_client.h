#pragma once

#include <QPoint>
#include <QRect>

#include <filesystem>
#include <string>
#include <vector>

namespace nimbrale::test {

/// Asks a VNC server, over its local socket, for one output per rectangle, as a viewer does whose window is spread over
/// several displays. Blocks for at most a few seconds. Returns what went wrong; empty when the server did it.
[[nodiscard]] std::string arrangeVncOutputs(const std::filesystem::path& socketPath, const std::vector<QRect>& outputs);

/// Moves the pointer as a viewer's mouse does, and returns when the server has taken that. Blocks for at most a few
/// seconds. Returns what went wrong; empty when nothing did.
[[nodiscard]] std::string moveVncPointer(const std::filesystem::path& socketPath, QPoint position);

} // namespace nimbrale::test
