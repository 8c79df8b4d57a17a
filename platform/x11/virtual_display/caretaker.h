#pragma once

#include <string>

namespace nimbrale::x11 {

/// Starts the program that removes the virtual display of this X screen when the client that has it goes without doing
/// so: killed, crashed, or cut off by another client. It ends by itself when the display goes, in order or not. To be
/// called while the display is claimed. Without it, only the next start would remove what was left.
void startCaretaker(const std::string& displayName);

} // namespace nimbrale::x11
