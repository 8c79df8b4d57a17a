#pragma once

namespace nimbrale::x11 {

/// What a client of the X server has there, as far as it tells who reads the screen.
struct ReaderFacts {
    bool hasWindows = false;
    bool hasSharedMemory = false;
    /// Whether it hears of what is drawn.
    bool hasDamage = false;
    /// Whether it hears when the pointer's image changes.
    bool followsPointerImage = false;
};

/// Whether that client shares the screen. Browsers do so through a connection of its own, which shows nothing, has
/// memory to fetch pictures through, and adds the pointer to them; others hear of what is drawn instead. It is made for
/// a share and goes with it. What compositing managers, panels and pagers have is like that, but they show windows, and
/// a browser's other connections draw or list screens. Pure.
[[nodiscard]] inline bool readsScreen(const ReaderFacts& client)
{
    return !client.hasWindows && client.hasSharedMemory && (client.hasDamage || client.followsPointerImage);
}

} // namespace nimbrale::x11
