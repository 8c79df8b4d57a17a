#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace nimbrale::x11 {

/// Which bit of an event's state the Command key (Super) sets on this keyboard. Main thread only.
class ModifierKeys {
public:
    /// Both must outlive it.
    ModifierKeys(Connection& connection, EventDispatcher& events);
    ModifierKeys(const ModifierKeys&) = delete;
    ModifierKeys& operator=(const ModifierKeys&) = delete;

    [[nodiscard]] bool isCommandHeld(std::uint16_t state) const { return (state & commandMask_) != 0; }
    /// To be called while the Command key is held: what the desktop does when that key alone was pressed, such as to
    /// open an overview, does not happen when it is released. For the desktop a key that means nothing is pressed
    /// beside it. Without XTEST, or where every key means something, nothing is done.
    void swallowCommand();

private:
    void resolve();

    Connection& connection_;
    std::uint16_t commandMask_ = XCB_MOD_MASK_4;
    /// Present where a key means nothing.
    std::optional<xcb_keycode_t> unusedKey_;
    Subscription handler_;
};

} // namespace nimbrale::x11
