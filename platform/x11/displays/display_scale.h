#pragma once

#include "platform/x11/server/connection.h"

#include <string>

namespace nimbrale::x11 {

/// Pixels per point of every real display, the same that the toolkit reckons with: the dots per inch over 96, times the
/// toolkit's factor. The dots per inch are the desktop's where the environment sets none for the toolkit.
[[nodiscard]] double displayScale(Connection& connection);

/// What the environment sets for the toolkit, as text; empty where it does not.
struct ToolkitVariables {
    /// A whole number that goes before the desktop's dots per inch.
    std::string dotsPerInch = {};
    std::string factor = {};
};

/// The same from the text of the X resource database. What is missing or is no positive number counts as 96 dots per
/// inch, or as a factor of 1; the scale is between 0.5 and 4.
[[nodiscard]] double displayScaleFrom(const std::string& database, const ToolkitVariables& variables);

/// Gives the toolkit a factor by its environment where the desktop scales whole windows (XFCE's "2x") without more dots
/// per inch, unless the user has set one. To be called before the toolkit's application object; main thread only. Does
/// nothing where there is no X server.
void scaleToolkitAsDesktop();

/// The factor for that from the text of the X resource database, the toolkit's own dots per inch as above, and the
/// desktop's "Gdk/WindowScalingFactor", 0 for none. The desktop's scale is the greater one: most desktops raise both.
[[nodiscard]] double toolkitFactorFrom(const std::string& database, const std::string& toolkits,
                                       int windowScalingFactor);

/// The value of a resource in the text of the X resource database, such as "192" for "Xft.dpi"; empty when it is not
/// there.
[[nodiscard]] std::string resourceValue(const std::string& database, const std::string& resource);

} // namespace nimbrale::x11
