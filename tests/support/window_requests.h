#pragma once

#include "tests/support/private_desktop.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

/// Asks the window manager of a desktop for things as a pager does. Each request returns once the server has it; what
/// the window manager makes of it comes later.
class WindowRequests {
public:
    explicit WindowRequests(const PrivateDesktop& desktop) : desktop_(desktop) {}

    void minimize(std::uint32_t window) const;
    /// Brings it back and in front. `time` is the server's.
    void activate(std::uint32_t window, std::uint32_t time) const;
    /// Puts a window in front of all that have not asked for that, for good.
    void keepAbove(std::uint32_t window) const;
    /// Puts the top-left corner of a window, with its decoration, there at once, as a key does that tiles windows.
    void putAt(std::uint32_t window, QPoint corner) const;
    /// Workspaces are counted from 0.
    void moveToWorkspace(std::uint32_t window, std::uint32_t workspace) const;
    void showOnAllWorkspaces(std::uint32_t window) const;
    void switchToWorkspace(std::uint32_t workspace) const;

    void setWorkspaceCount(std::uint32_t count) const;
    [[nodiscard]] std::uint32_t workspaceCount() const;
    /// Absent where nobody says.
    [[nodiscard]] std::optional<std::uint32_t> currentWorkspace() const;
    /// What panels leave of the screen on the first workspace; a null rectangle where nobody says.
    [[nodiscard]] QRect workArea() const;

private:
    void send(const std::string& message, std::uint32_t window, std::uint32_t value, std::uint32_t second = 0,
              std::uint32_t third = 0) const;
    [[nodiscard]] std::vector<std::uint32_t> rootNumbers(const std::string& property) const;
    [[nodiscard]] std::uint32_t atom(const std::string& name) const;

    const PrivateDesktop& desktop_;
};

} // namespace nimbrale::test
