#pragma once

#include "tests/support/marionette.h"

#include <QRect>

#include <filesystem>
#include <string>
#include <vector>

namespace nimbrale::test {

// Firefox as the browser of a call: how it is started, and how its picker is answered, for which it has no switch.

inline constexpr const char* firefoxProgram = "firefox-esr";

/// Makes the profile, in which all traffic goes over loopback and nothing asks or greets, and returns the arguments
/// that open `address` with it in a window of that size.
[[nodiscard]] std::vector<std::string> firefoxArguments(const QRect& window, const std::filesystem::path& profile,
                                                        const std::string& address);
/// Puts the browser's window there.
[[nodiscard]] bool placeFirefox(Marionette& browser, const QRect& window);
/// Waits until the browser asks what to share, chooses the screen or window that its list calls `source`, and allows
/// it. Empty, or what went wrong.
[[nodiscard]] std::string chooseInFirefox(Marionette& browser, const std::string& source, Milliseconds timeout);

} // namespace nimbrale::test
