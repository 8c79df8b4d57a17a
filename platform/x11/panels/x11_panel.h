#pragma once

#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/layers/layer_compositor.h"
#include "platform/x11/panels/cursor_theme.h"
#include "platform/x11/panels/modifier_keys.h"
#include "platform/x11/panels/panel_holes.h"
#include "platform/x11/panels/panel_stack.h"
#include "platform/x11/panels/panel_window.h"
#include "platform/x11/server/compositing_watcher.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/painted_regions.h"
#include "platform/x11/server/window_guard.h"
#include "platform/x11/virtual_display/virtual_area.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::x11 {

/// What all panels share.
struct PanelContext {
    Connection& connection;
    EventDispatcher& events;
    X11Screens& screens;
    MainQueue& queue;
    CompositingWatcher& compositing;
    DrawingResources& drawing;
    PanelStack& stack;
    PanelHoles& holes;
    CursorTheme& cursors;
    ModifierKeys& modifiers;
    std::shared_ptr<PaintedRegions> painted;
    VirtualArea* area = nullptr;
    PanelInput input = PanelInput::enabled;
    std::optional<EventTime> timeOfLastClick = {};
};

class X11Panel final : public Panel {
public:
    /// `context` must outlive it.
    X11Panel(PanelContext& context, const PanelOptions& options);
    ~X11Panel() override;
    X11Panel(const X11Panel&) = delete;
    X11Panel& operator=(const X11Panel&) = delete;

    [[nodiscard]] Layer& rootLayer() override { return root_; }
    [[nodiscard]] Rect frame() const override { return frame_; }
    void setFrame(const Rect& frame) override;
    [[nodiscard]] double backingScaleFactor() const override { return scale_; }
    void setMouseRegion(const std::vector<Rect>& region) override;
    void setCursor(CursorShape shape) override;
    void setTitle(const std::string& title) override;
    void orderFront() override;
    void orderBack() override;
    void orderOut() override;

private:
    /// The window, and what draws into it.
    struct Native {
        Native(PanelContext& context, PanelStyle style, const PixelRect& pixels, Layer& root);
        ~Native();
        Native(const Native&) = delete;
        Native& operator=(const Native&) = delete;

        PanelWindow window;
        LayerCompositor compositor;
        std::shared_ptr<PaintedRegions> painted;
    };
    enum class Order { front, back };

    void makeNative();
    [[nodiscard]] WindowGuard::Wanted wantedWindow() const;
    void repair(WindowDamage damage);
    void breakOffPress();
    void handleButton(const xcb_button_press_event_t& event);
    void handleMotion(const xcb_motion_notify_event_t& event);
    void deliverMotion();
    /// The Command key belongs to what is dragged while it is held, once for each time that it is.
    void swallowCommand(std::uint16_t state, bool isPress);
    [[nodiscard]] MouseEvent mouseEvent(int rootX, int rootY, std::uint16_t state) const;
    void updateTranslucency();
    void updateMouseShape();
    void updateHoles();
    void updateCursor();
    void show();
    /// The window is not shown any more, or not in its place.
    void wasHidden();

    PanelContext& context_;
    PanelStyle style_;
    int level_;
    std::string title_;
    Rect frame_;
    double scale_;
    /// Of the root.
    PixelRect pixels_;
    std::vector<Rect> mouseRegion_;
    std::optional<CursorShape> cursor_;
    bool isShown_ = false;
    Order order_ = Order::front;
    VirtualArea* area_ = nullptr;
    bool isPressed_ = false;
    bool isCommandSwallowed_ = false;
    std::optional<xcb_motion_notify_event_t> waitingMotion_;

    Layer root_;
    std::unique_ptr<Native> native_;
    std::unique_ptr<WindowGuard> guard_;
    Subscription exposures_;
    Subscription buttons_;
    Subscription motions_;
    Subscription screensChange_;
    Subscription compositingChange_;
    Subscription holesChange_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace nimbrale::x11
