#pragma once

#include "platform/event_time.h"
#include "platform/geometry.h"
#include "platform/layer.h"
#include "platform/observers.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

enum class PanelStyle {
    overlay,     ///< see-through, kept above the desktop at its level, never focused, listed in no picker
    fullScreen,  ///< opaque, for the virtual display, kept above at its level, never focused
    mirrorWindow ///< an ordinary window without decoration that pickers list by its title, never focused by itself
};

/// Panels of a higher level stand in front of panels of a lower one, and all of them in front of ordinary windows.
namespace panel_level {
inline constexpr int webcam = 999;
inline constexpr int frame = 1000;
inline constexpr int virtualDisplay = 1000;
inline constexpr int tip = 1001;
} // namespace panel_level

enum class CursorShape { arrow, pointingHand, openHand, closedHand, resizeBottomRight };

struct PanelOptions {
    PanelStyle style = PanelStyle::overlay;
    /// Screen coordinates.
    Rect frame;
    /// One of `panel_level`; without meaning for a mirror window.
    int level = panel_level::frame;
    /// What pickers and tools show; UTF-8.
    std::string title;
};

struct MouseEvent {
    /// Points from the panel's bottom-left corner, y grows upward.
    Point locationInPanel;
    /// Screen coordinates.
    Point screenLocation;
    /// Whether the Command key (Super) is held in the state that the event reports.
    bool isCommandHeld = false;
};

/// A window of the application outside the toolkit, showing a layer tree. Created hidden. Main thread only.
class Panel {
public:
    virtual ~Panel() = default;

    /// Fills the panel; its frame follows the panel's size.
    [[nodiscard]] virtual Layer& rootLayer() = 0;

    /// Screen coordinates, never adjusted to fit a screen.
    [[nodiscard]] virtual Rect frame() const = 0;
    /// Takes effect at once, contents included: parts that stay in place on the screen keep their picture.
    virtual void setFrame(const Rect& frame) = 0;
    /// Pixels per point where the panel is.
    [[nodiscard]] virtual double backingScaleFactor() const = 0;

    /// An overlay takes clicks inside these rectangles (points from the bottom-left corner, y upward); all others go to
    /// what lies below. At first it takes none. Panels of the other styles never take any.
    virtual void setMouseRegion(const std::vector<Rect>& region) = 0;
    virtual void setCursor(CursorShape shape) = 0;
    /// UTF-8.
    virtual void setTitle(const std::string& title) = 0;

    /// Shows the panel in front of its level, without giving it the focus.
    virtual void orderFront() = 0;
    /// Shows the panel behind all other windows.
    virtual void orderBack() = 0;
    virtual void orderOut() = 0;

    /// The left button only. A drag is reported until its release, wherever the pointer goes; of several moves that
    /// wait only the newest is reported. The panel may be destroyed within these calls.
    std::function<void(const MouseEvent&)> onMouseDown;
    std::function<void(const MouseEvent&)> onMouseDragged;
    std::function<void(const MouseEvent&)> onMouseUp;
    /// The panel came to stand where the scale is another one.
    std::function<void()> onBackingScaleChange;
};

/// Whether the user can do anything with the panels.
enum class PanelInput {
    enabled,
    disabled ///< clicks on panels do nothing and reach nothing else either; a press under way goes on to its release
};

class Panels {
public:
    virtual ~Panels() = default;

    [[nodiscard]] virtual std::unique_ptr<Panel> create(const PanelOptions& options) = 0;
    /// Keeps all panels behind a window of the toolkit, by its native identifier, for as long as the subscription lives
    /// and the window is shown. Any number of windows at once; their order among themselves is the window manager's.
    /// For windows that the user works in while panels lie over them.
    [[nodiscard]] virtual Subscription keepBelow(std::uintptr_t nativeWindow) = 0;
    /// Of all panels, those that are made later included.
    virtual void setInput(PanelInput input) = 0;
    /// When the user last pressed or released a button on a panel; absent before the first time. Desktops bring a
    /// window to the front only for something that the user did, and want to know when that was.
    [[nodiscard]] virtual std::optional<EventTime> timeOfLastClick() const = 0;
};

} // namespace nimbrale
