#pragma once

#include <string>

namespace nimbrale::x11 {

/// Starts the program that takes care of the virtual display of this X screen when nobody has it any more: the client
/// that has it goes without removing it (killed, crashed, or cut off by another client), or leaves it because a program
/// reads the screen. The program keeps the display while that goes on (`keepWhileRead`), then removes it. It ends by
/// itself when the display goes or is taken over. To be called while the display is claimed, or for one that was left.
/// False, which is logged, when it cannot be started: only the next start would remove what was left.
bool startCaretaker(const std::string& displayName);

} // namespace nimbrale::x11
