#include "platform/x11/panels/x11_panel.h"

#include "platform/x11/layers/window_shape.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr xcb_button_t leftButton = 1;

/// A window has at least one pixel.
PixelRect windowPixels(const X11Screens& screens, const Rect& frame)
{
    PixelRect pixels = screens.space().pixelsOf(frame);
    pixels.width = std::max(pixels.width, 1);
    pixels.height = std::max(pixels.height, 1);
    return pixels;
}

} // namespace

X11Panel::Native::Native(PanelContext& context, PanelStyle style, const PixelRect& pixels, Layer& root)
    : window(context.connection, style, pixels),
      compositor(context.drawing, context.queue, root, {window.id(), window.depth(), window.format()}),
      painted(context.painted)
{
    compositor.onPaint = [this](const PixelRegion& region) { painted->set(window.id(), region); };
}

X11Panel::Native::~Native()
{
    painted->forget(window.id());
}

X11Panel::X11Panel(PanelContext& context, const PanelOptions& options)
    : context_(context), style_(options.style), level_(options.level), title_(options.title), frame_(options.frame),
      scale_(context.screens.space().scaleAt(options.frame)), pixels_(windowPixels(context.screens, options.frame))
{
    root_.setFrame({0, 0, frame_.width, frame_.height});
    makeNative();
    guard_ = std::make_unique<WindowGuard>(
        context_.connection, context_.events, context_.queue, [this] { return wantedWindow(); },
        [this](WindowDamage damage) { repair(damage); });
    exposures_ = context_.events.add({XCB_EXPOSE}, [this](const auto& event) {
        const auto& expose = eventAs<xcb_expose_event_t>(event);
        if (expose.window == native_->window.id())
            native_->compositor.handleExposure({expose.x, expose.y, expose.width, expose.height}, event.full_sequence);
    });
    buttons_ = context_.events.add({XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE}, [this](const auto& event) {
        handleButton(eventAs<xcb_button_press_event_t>(event));
    });
    motions_ = context_.events.add(
        {XCB_MOTION_NOTIFY}, [this](const auto& event) { handleMotion(eventAs<xcb_motion_notify_event_t>(event)); });
    screensChange_ = context_.screens.observeChanges([this] { setFrame(frame_); });
    compositingChange_ = context_.compositing.observeChanges([this] { updateTranslucency(); });
    holesChange_ = context_.holes.observeChanges([this] { updateHoles(); });
}

X11Panel::~X11Panel()
{
    orderOut();
    root_.setHost(nullptr);
}

void X11Panel::makeNative()
{
    native_ = std::make_unique<Native>(context_, style_, pixels_, root_);
    native_->window.setTitle(title_);
    native_->compositor.didConfigure(pixels_.width, pixels_.height, scale_, 0, 0);
    root_.setHost(&native_->compositor);
    updateTranslucency();
    updateMouseShape();
    updateHoles();
    updateCursor();
}

WindowGuard::Wanted X11Panel::wantedWindow() const
{
    return {.window = native_->window.id(),
            .isManaged = style_ == PanelStyle::mirrorWindow,
            .isShown = isShown_,
            .parent = area_ ? area_->parent() : context_.connection.root(),
            .pixels = pixels_};
}

void X11Panel::repair(WindowDamage damage)
{
    const auto alive = std::weak_ptr(alive_);
    // The grab that a press is ends with the window that it is on, and nobody reports the release.
    breakOffPress();
    if (alive.expired())
        return;
    const bool wasShown = isShown_;
    wasHidden();
    if (damage == WindowDamage::destroyed) {
        root_.setHost(nullptr);
        makeNative();
    }
    if (damage == WindowDamage::adopted) {
        xcb_connection_t* const raw = context_.connection.get();
        mayFail(raw, xcb_reparent_window_checked(raw, native_->window.id(), context_.connection.root(),
                                                 static_cast<std::int16_t>(pixels_.x),
                                                 static_cast<std::int16_t>(pixels_.y)));
    }
    native_->window.configure(pixels_);
    if (wasShown && order_ == Order::front)
        orderFront();
    else if (wasShown)
        orderBack();
    context_.connection.flush();
}

void X11Panel::breakOffPress()
{
    waitingMotion_.reset();
    if (!std::exchange(isPressed_, false))
        return;
    constexpr Point outside{-1, -1};
    const auto callback = onMouseUp;
    if (callback)
        callback({outside, {frame_.x + outside.x, frame_.y + outside.y}, false});
}

void X11Panel::setFrame(const Rect& frame)
{
    const PixelRect pixels = windowPixels(context_.screens, frame);
    const double scale = context_.screens.space().scaleAt(frame);
    const bool isResized = pixels.width != pixels_.width || pixels.height != pixels_.height;
    // A picture stays in place on the screen in a resize, but travels along when the window merely moves.
    const int dx = isResized ? pixels.x - pixels_.x : 0;
    const int dy = isResized ? pixels.y - pixels_.y : 0;
    native_->compositor.willConfigure(dx, dy);
    if (pixels != pixels_)
        native_->window.configure(pixels);
    frame_ = frame;
    pixels_ = pixels;
    const bool isRescaled = std::exchange(scale_, scale) != scale;
    root_.setFrame({0, 0, frame.width, frame.height});
    updateHoles();
    native_->compositor.didConfigure(pixels.width, pixels.height, scale, dx, dy);
    updateMouseShape();
    context_.connection.flush();
    if (isRescaled && onBackingScaleChange)
        onBackingScaleChange();
}

void X11Panel::updateTranslucency()
{
    if (style_ != PanelStyle::overlay)
        return;
    const bool isBlended = context_.compositing.isComposited() && native_->window.hasAlpha();
    native_->compositor.setTranslucency(isBlended ? Translucency::composited : Translucency::cutOut);
    native_->compositor.commit();
}

void X11Panel::setMouseRegion(const std::vector<Rect>& region)
{
    if (mouseRegion_ == region)
        return;
    mouseRegion_ = region;
    updateMouseShape();
    context_.connection.flush();
}

void X11Panel::updateMouseShape()
{
    PixelRegion region;
    if (style_ == PanelStyle::overlay) {
        for (const Rect& rect : mouseRegion_)
            region.add(outwardPixels({rect.x, frame_.height - rect.maxY(), rect.width, rect.height}, scale_));
    }
    setWindowShape(context_.connection, native_->window.id(), XCB_SHAPE_SK_INPUT, region);
}

void X11Panel::updateHoles()
{
    if (style_ != PanelStyle::overlay)
        return;
    PixelRegion holes(context_.holes.region());
    holes.translate(-pixels_.x, -pixels_.y);
    native_->compositor.setHoles(holes);
}

void X11Panel::setCursor(CursorShape shape)
{
    if (cursor_ == shape)
        return;
    cursor_ = shape;
    updateCursor();
    context_.connection.flush();
}

void X11Panel::updateCursor()
{
    if (!cursor_)
        return;
    const std::uint32_t cursor = context_.cursors.cursor(*cursor_);
    xcb_change_window_attributes(context_.connection.get(), native_->window.id(), XCB_CW_CURSOR, &cursor);
}

void X11Panel::setTitle(const std::string& title)
{
    title_ = title;
    native_->window.setTitle(title);
    context_.connection.flush();
}

void X11Panel::orderFront()
{
    order_ = Order::front;
    if (style_ == PanelStyle::mirrorWindow)
        native_->window.restack(XCB_STACK_MODE_ABOVE);
    else
        context_.stack.raise(native_->window.id(), level_,
                             style_ == PanelStyle::fullScreen ? OnLockedScreen::shown : OnLockedScreen::covered);
    show();
}

void X11Panel::orderBack()
{
    order_ = Order::back;
    context_.stack.remove(native_->window.id());
    native_->window.restack(XCB_STACK_MODE_BELOW);
    const bool wasShown = isShown_;
    show();
    // Window managers put a new window where they like.
    if (!wasShown && style_ == PanelStyle::mirrorWindow)
        native_->window.restack(XCB_STACK_MODE_BELOW);
    context_.connection.flush();
}

void X11Panel::show()
{
    if (isShown_)
        return;
    isShown_ = true;
    if (style_ == PanelStyle::fullScreen && context_.area && !area_) {
        area_ = context_.area;
        area_->add(native_->window.id());
    }
    native_->compositor.willMap();
    native_->window.map();
    native_->compositor.didMap();
    context_.connection.flush();
}

void X11Panel::orderOut()
{
    waitingMotion_.reset();
    isPressed_ = false;
    if (!isShown_)
        return;
    native_->window.unmap();
    wasHidden();
    context_.connection.flush();
}

void X11Panel::wasHidden()
{
    isShown_ = false;
    native_->compositor.didUnmap();
    context_.stack.remove(native_->window.id());
    if (area_)
        area_->remove(native_->window.id());
    area_ = nullptr;
}

void X11Panel::handleButton(const xcb_button_press_event_t& event)
{
    if (event.event != native_->window.id() || event.detail != leftButton)
        return;
    const auto alive = std::weak_ptr(alive_);
    deliverMotion();
    if (alive.expired())
        return;
    const bool isPress = event.response_type == XCB_BUTTON_PRESS;
    if (isPress == isPressed_ || (isPress && context_.input == PanelInput::disabled))
        return;
    isPressed_ = isPress;
    context_.timeOfLastClick = event.time;
    swallowCommand(event.state, isPress);
    const MouseEvent mouse = mouseEvent(event.root_x, event.root_y, event.state);
    const auto held = context_.screens.pointer().hold({event.root_x, event.root_y});
    if (const auto callback = isPress ? onMouseDown : onMouseUp)
        callback(mouse);
}

void X11Panel::handleMotion(const xcb_motion_notify_event_t& event)
{
    if (event.event != native_->window.id() || !isPressed_)
        return;
    swallowCommand(event.state, false);
    const bool isPosted = waitingMotion_.has_value();
    waitingMotion_ = event;
    if (isPosted)
        return;
    context_.queue.post([this, alive = std::weak_ptr(alive_)] {
        if (alive.expired())
            return;
        // Moves that came while the last one was dealt with replace this one.
        context_.events.dispatch();
        if (!alive.expired())
            deliverMotion();
    });
}

void X11Panel::swallowCommand(std::uint16_t state, bool isPress)
{
    const bool isHeld = context_.modifiers.isCommandHeld(state);
    if (isHeld && (isPress || !isCommandSwallowed_))
        context_.modifiers.swallowCommand();
    isCommandSwallowed_ = isHeld;
}

void X11Panel::deliverMotion()
{
    const auto motion = std::exchange(waitingMotion_, std::nullopt);
    if (!motion || !onMouseDragged)
        return;
    const auto callback = onMouseDragged;
    const auto held = context_.screens.pointer().hold({motion->root_x, motion->root_y});
    callback(mouseEvent(motion->root_x, motion->root_y, motion->state));
}

MouseEvent X11Panel::mouseEvent(int rootX, int rootY, std::uint16_t state) const
{
    // By the place that the panel has now: an event may still tell positions in the window as it was before a move.
    const Point location{(rootX - pixels_.x) / scale_, frame_.height - (rootY - pixels_.y) / scale_};
    return {location, context_.screens.space().pointOf({rootX, rootY}), context_.modifiers.isCommandHeld(state)};
}

} // namespace nimbrale::x11
