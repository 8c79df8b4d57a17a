#pragma once

#include <cstdint>
#include <set>
#include <tuple>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Says which requests the server refused although nobody expected it. Whoever expects an error deals with it where the
/// request is made, so that it never comes here (`mayFail`). Belongs to the thread that reads the connection's events.
class ErrorLog {
public:
    /// Logs the first error of each kind: the same request refused for the same reason is one line, however often.
    void report(const xcb_generic_error_t& error);

private:
    /// Error code, major and minor opcode.
    std::set<std::tuple<std::uint8_t, std::uint8_t, std::uint16_t>> reported_;
};

} // namespace nimbrale::x11
