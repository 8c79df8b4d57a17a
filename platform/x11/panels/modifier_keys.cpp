#include "platform/x11/panels/modifier_keys.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <set>
#include <xcb/xtest.h>

namespace nimbrale::x11 {

namespace {

// From the protocol's list of key symbols.
constexpr xcb_keysym_t superLeft = 0xffeb;
constexpr xcb_keysym_t superRight = 0xffec;
constexpr int modifierCount = 8;

struct KnownKeys {
    std::set<xcb_keycode_t> super;
    std::optional<xcb_keycode_t> unused;
};

KnownKeys readKeys(xcb_connection_t* connection)
{
    const xcb_setup_t* const setup = xcb_get_setup(connection);
    const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    const Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, setup->min_keycode, count), nullptr));
    KnownKeys keys;
    if (!mapping || mapping->keysyms_per_keycode == 0)
        return keys;
    const xcb_keysym_t* symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
    for (int index = 0; index < count; ++index, symbols += mapping->keysyms_per_keycode) {
        const auto key = static_cast<xcb_keycode_t>(setup->min_keycode + index);
        const auto has = [&](auto matches) {
            return std::any_of(symbols, symbols + mapping->keysyms_per_keycode, matches);
        };
        if (has([](xcb_keysym_t symbol) { return symbol == superLeft || symbol == superRight; }))
            keys.super.insert(key);
        if (!has([](xcb_keysym_t symbol) { return symbol != XCB_NO_SYMBOL; }))
            keys.unused = key;
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
    const KnownKeys keys = readKeys(connection_.get());
    unusedKey_ = keys.unused;
    const Reply<xcb_get_modifier_mapping_reply_t> modifiers(
        xcb_get_modifier_mapping_reply(connection_.get(), xcb_get_modifier_mapping(connection_.get()), nullptr));
    if (!modifiers)
        return;
    const xcb_keycode_t* const codes = xcb_get_modifier_mapping_keycodes(modifiers.get());
    std::uint16_t mask = 0;
    for (int index = 0; index < modifierCount * modifiers->keycodes_per_modifier; ++index) {
        if (keys.super.contains(codes[index]))
            mask = static_cast<std::uint16_t>(mask | 1 << index / modifiers->keycodes_per_modifier);
    }
    if (mask != 0)
        commandMask_ = mask;
}

void ModifierKeys::swallowCommand()
{
    const xcb_query_extension_reply_t* const extension = xcb_get_extension_data(connection_.get(), &xcb_test_id);
    if (!unusedKey_ || !extension || !extension->present)
        return;
    for (const int type : {XCB_KEY_PRESS, XCB_KEY_RELEASE})
        xcb_test_fake_input(connection_.get(), static_cast<std::uint8_t>(type), *unusedKey_, XCB_CURRENT_TIME, XCB_NONE,
                            0, 0, 0);
    connection_.flush();
}

} // namespace nimbrale::x11
