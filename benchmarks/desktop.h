#pragma once

#include "tests/support/private_desktop.h"
#include "tests/support/shown_windows.h"

#include <QRect>
#include <QSize>

#include <array>
#include <memory>
#include <string>

namespace nimbrale::benchmarks {

using test::overlayWindowAt;
using test::windowAt;

/// What puts the windows together on the screen.
enum class Compositing { byServer, byPicom, byMarco, byXfwm4, byKwin, byMutter };
/// All but the server.
inline constexpr std::array compositingManagers{Compositing::byPicom, Compositing::byMarco, Compositing::byXfwm4,
                                                Compositing::byKwin, Compositing::byMutter};
/// As a row's subject has it: "picom".
[[nodiscard]] std::string nameOf(Compositing compositing);

/// A desktop with one display of that size, which can grow by a virtual display as large. Nobody
/// watches it over a network, and there is no window manager but one that composites, so that the server works only for
/// what is measured. Throws Failure when there is no Xvfb for it or no such compositing manager.
[[nodiscard]] std::unique_ptr<test::PrivateDesktop> startDesktop(const QSize& display,
                                                                 Compositing compositing = Compositing::byServer);

/// A window of another application in root pixels, repainted at that rate in one of nimbrale_animation's modes, until
/// the process is ended. Throws Failure when it does not show.
[[nodiscard]] std::unique_ptr<test::Process> startContent(test::PrivateDesktop& desktop, const std::string& mode,
                                                          const QRect& area, int framesPerSecond);

/// Moves the pointer about within `area`, in root pixels, so often a second, until the process is ended. Throws Failure
/// when it does not move.
[[nodiscard]] std::unique_ptr<test::Process> startPointer(test::PrivateDesktop& desktop, const QRect& area,
                                                          int movesPerSecond);

inline constexpr QSize fullHd{1920, 1080};
inline constexpr QSize ultraHd{3840, 2160};

} // namespace nimbrale::benchmarks
