#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"

#include <cstdint>
#include <memory>

namespace nimbrale::x11 {

/// Which bit of an event's state the Command key (Super) sets on this keyboard. Main thread only.
class ModifierKeys {
public:
    /// Both must outlive it.
    ModifierKeys(Connection& connection, EventDispatcher& events);
    ModifierKeys(const ModifierKeys&) = delete;
    ModifierKeys& operator=(const ModifierKeys&) = delete;

    [[nodiscard]] bool isCommandHeld(std::uint16_t state) const { return (state & commandMask_) != 0; }

private:
    void resolve();

    Connection& connection_;
    std::uint16_t commandMask_ = XCB_MOD_MASK_4;
    Subscription handler_;
};

} // namespace nimbrale::x11
