#pragma once

#include "platform/result.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Where an extension's events begin and which opcode it has; absent extensions have neither. A request to an absent
/// extension ends the connection, so every use of an optional one asks `isPresent` first.
struct Extension {
    bool isPresent = false;
    std::uint8_t firstEvent = 0;
    std::uint8_t majorOpcode = 0;
};

struct Extensions {
    Extension composite;
    Extension damage;
    Extension fixes;
    Extension input;
    Extension randr;
    Extension render;
    Extension resources;
    Extension shape;
    Extension sharedMemory;
    Extension sync;
};

/// One connection to the X server, with what every user of it asks first. Belongs to one thread, but for `get`, which
/// xcb lets any thread send through.
class Connection {
public:
    /// Fails with a message for the user when there is no server, or when it lacks RENDER, XFIXES or SHAPE.
    /// `displayName` empty means the environment's display.
    [[nodiscard]] static Result<std::unique_ptr<Connection>> open(const std::string& displayName = {});
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] xcb_connection_t* get() const { return connection_; }
    [[nodiscard]] const xcb_screen_t& screen() const { return *screen_; }
    [[nodiscard]] xcb_window_t root() const { return screen_->root; }
    [[nodiscard]] int screenNumber() const { return screenNumber_; }
    [[nodiscard]] const Extensions& extensions() const { return extensions_; }
    /// RandR's version as major * 100 + minor; 0 without RandR.
    [[nodiscard]] int randrVersion() const { return randrVersion_; }
    [[nodiscard]] bool isLost() const { return xcb_connection_has_error(connection_) != 0; }

    /// Interned once per name.
    [[nodiscard]] xcb_atom_t atom(const std::string& name);
    /// Empty for an atom that the server does not know.
    [[nodiscard]] std::string atomName(xcb_atom_t atom) const;
    /// The first 32-bit value of a property of that type; absent when the property, the type or the window is.
    [[nodiscard]] std::optional<std::uint32_t> property32(xcb_window_t window, xcb_atom_t property, xcb_atom_t type);

    /// All 32-bit values of a property of that type; empty where there is none.
    [[nodiscard]] std::vector<std::uint32_t> numbers32(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const;

    /// RENDER's format of a visual; 0 for a visual that it cannot draw.
    [[nodiscard]] xcb_render_pictformat_t formatOf(xcb_visualid_t visual) const;
    [[nodiscard]] bool hasAlpha(xcb_render_pictformat_t format) const;
    /// 32 bits a pixel with alpha, premultiplied.
    [[nodiscard]] xcb_render_pictformat_t argbFormat() const { return argbFormat_; }
    /// 8 bits of alpha alone.
    [[nodiscard]] xcb_render_pictformat_t alphaFormat() const { return alphaFormat_; }
    /// The format of windows made with the root's visual.
    [[nodiscard]] xcb_render_pictformat_t rootFormat() const { return formatOf(screen_->root_visual); }
    /// A visual of depth 32 with alpha; 0 when the server has none.
    [[nodiscard]] xcb_visualid_t argbVisual() const { return argbVisual_; }

    /// Adds those bits to, or takes them off, what the connection hears of a window that it did not make, whether or
    /// not the window is still there. Whoever adds some takes the same off again: use `WindowEvents`.
    void addWindowEvents(xcb_window_t window, std::uint32_t events);
    void removeWindowEvents(xcb_window_t window, std::uint32_t events);

    /// Waits until the server has done all that was sent before.
    void synchronize();
    void flush() { xcb_flush(connection_); }
    [[nodiscard]] std::uint32_t newId() { return xcb_generate_id(connection_); }

private:
    Connection(xcb_connection_t* connection, int screenNumber);
    void queryExtensions();
    void queryFormats();
    void applyWindowEvents(xcb_window_t window);

    xcb_connection_t* connection_;
    int screenNumber_;
    xcb_screen_t* screen_ = nullptr;
    Extensions extensions_;
    int randrVersion_ = 0;
    std::map<std::string, xcb_atom_t> atoms_;
    std::multimap<xcb_window_t, std::uint32_t> windowEvents_;
    std::map<xcb_visualid_t, xcb_render_pictformat_t> formats_;
    std::map<xcb_render_pictformat_t, bool> formatHasAlpha_;
    xcb_render_pictformat_t argbFormat_ = 0;
    xcb_render_pictformat_t alphaFormat_ = 0;
    xcb_visualid_t argbVisual_ = 0;
};

} // namespace nimbrale::x11
