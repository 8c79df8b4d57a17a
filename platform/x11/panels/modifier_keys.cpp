#include "platform/x11/panels/modifier_keys.h"

#include "platform/x11/server/handles.h"

#include <set>

namespace nimbrale::x11 {

namespace {

// From the protocol's list of key symbols.
constexpr xcb_keysym_t superLeft = 0xffeb;
constexpr xcb_keysym_t superRight = 0xffec;
constexpr int modifierCount = 8;

std::set<xcb_keycode_t> superKeys(xcb_connection_t* connection)
{
    const xcb_setup_t* const setup = xcb_get_setup(connection);
    const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    const Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, setup->min_keycode, count), nullptr));
    std::set<xcb_keycode_t> keys;
    if (!mapping || mapping->keysyms_per_keycode == 0)
        return keys;
    const xcb_keysym_t* const symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int length = xcb_get_keyboard_mapping_keysyms_length(mapping.get());
    for (int index = 0; index < length; ++index) {
        if (symbols[index] == superLeft || symbols[index] == superRight)
            keys.insert(static_cast<xcb_keycode_t>(setup->min_keycode + index / mapping->keysyms_per_keycode));
    }
    return keys;
}

} // namespace

ModifierKeys::ModifierKeys(Connection& connection, EventDispatcher& events) : connection_(connection)
{
    handler_ = events.add({XCB_MAPPING_NOTIFY}, [this](const auto&) { resolve(); });
    resolve();
}

void ModifierKeys::resolve()
{
    commandMask_ = XCB_MOD_MASK_4;
    const Reply<xcb_get_modifier_mapping_reply_t> modifiers(
        xcb_get_modifier_mapping_reply(connection_.get(), xcb_get_modifier_mapping(connection_.get()), nullptr));
    if (!modifiers)
        return;
    const std::set<xcb_keycode_t> keys = superKeys(connection_.get());
    const xcb_keycode_t* const codes = xcb_get_modifier_mapping_keycodes(modifiers.get());
    std::uint16_t mask = 0;
    for (int index = 0; index < modifierCount * modifiers->keycodes_per_modifier; ++index) {
        if (keys.contains(codes[index]))
            mask = static_cast<std::uint16_t>(mask | 1 << index / modifiers->keycodes_per_modifier);
    }
    if (mask != 0)
        commandMask_ = mask;
}

} // namespace nimbrale::x11
