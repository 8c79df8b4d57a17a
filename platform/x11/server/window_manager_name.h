#pragma once

#include "platform/x11/server/connection.h"

#include <string>

namespace nimbrale::x11 {

/// What the window manager calls itself, such as "KWin"; empty where none runs or it does not say. Waits for the
/// server.
[[nodiscard]] std::string windowManagerName(Connection& connection);

/// Whether that is a desktop shell which keeps what the pointer does over its bars to itself, whatever lies above them.
[[nodiscard]] bool keepsClicksOnItsBars(const std::string& windowManager);

/// Whether that is a desktop shell which draws notifications itself, so that no window of theirs can be left out.
[[nodiscard]] bool drawsNotificationsItself(const std::string& windowManager);

/// Whether that draws windows that it does not manage in front of all others, however the server stacks them.
[[nodiscard]] bool drawsUnmanagedWindowsInFront(const std::string& windowManager);

/// Whether that, as a compositing manager, takes note of damage over one connection and copies windows over another:
/// what is drawn in between is taken for shown, and is not, until the next damage of the same place.
[[nodiscard]] bool missesDamage(const std::string& windowManager);

/// Whether a picture that is shown beside the displays is better shown in the composite overlay window than painted by
/// that one, while it composites.
[[nodiscard]] bool showsPicturesBetterInOverlay(const std::string& windowManager);

} // namespace nimbrale::x11
