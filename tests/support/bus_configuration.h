#pragma once

#include <string>

namespace nimbrale::test {

/// For a bus that starts no services by itself, "system" or "session". Lets everybody do everything: only programs of
/// the one test find the socket.
[[nodiscard]] inline std::string busConfiguration(const std::string& type, const std::string& address)
{
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
           "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>" +
           type + "</type><listen>" + address +
           "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
           "eavesdrop=\"true\"/>"
           "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
}

} // namespace nimbrale::test
