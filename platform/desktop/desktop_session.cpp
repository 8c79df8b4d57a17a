#include "platform/desktop/desktop_session.h"

#include <QtGlobal>

namespace nimbrale {

bool namesX11Display()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

bool namesWaylandDisplay()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

} // namespace nimbrale
