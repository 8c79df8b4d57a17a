#pragma once

#include "tests/support/private_desktop.h"

#include <filesystem>
#include <string>

namespace nimbrale::test {

/// Puts a stand-in for the file manager on the desktop, which shows nothing and only notes what it was asked to show.
/// Returns the PATH with which programs find it before the real one.
[[nodiscard]] std::string putFileManager(const PrivateDesktop& desktop);
/// What it was asked to show, each on a line.
[[nodiscard]] std::string revealedOn(const PrivateDesktop& desktop);

} // namespace nimbrale::test
