#include "platform/screens.h"

namespace nimbrale {

std::optional<Screen> findScreen(const Screens& screens, DisplayID displayID)
{
    for (const Screen& screen : screens.screens()) {
        if (screen.displayID == displayID)
            return screen;
    }
    return std::nullopt;
}

} // namespace nimbrale
