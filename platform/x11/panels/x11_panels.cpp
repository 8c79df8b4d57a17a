#include "platform/x11/panels/x11_panels.h"

#include "platform/x11/panels/screen_lock_watcher.h"
#include "platform/x11/panels/x11_panel.h"

#include <array>

namespace nimbrale::x11 {

struct X11Panels::Impl {
    Impl(Connection& connection, EventDispatcher& events, X11Screens& screens, MainQueue& queue,
         std::shared_ptr<PaintedRegions> painted)
        : compositing(connection, events), drawing(connection, queue),
          stack(connection, events, queue,
                [this](xcb_window_t window) { return context.area && context.area->contains(window); }),
          holes(connection, events, queue, compositing), cursors(connection),
          modifiers(connection, events), context{connection, events, screens, queue,     compositing,       drawing,
                                                 stack,      holes,  cursors, modifiers, std::move(painted)},
          screenLock(connection, events, queue, screens, stack,
                     [this] { return context.area ? context.area->pixels() : PixelRect{}; })
    {}

    CompositingWatcher compositing;
    DrawingResources drawing;
    PanelStack stack;
    PanelHoles holes;
    CursorTheme cursors;
    ModifierKeys modifiers;
    PanelContext context;
    ScreenLockWatcher screenLock;
};

X11Panels::X11Panels(Connection& connection, EventDispatcher& events, X11Screens& screens, MainQueue& queue,
                     std::shared_ptr<PaintedRegions> painted)
    : impl_(std::make_unique<Impl>(connection, events, screens, queue, std::move(painted)))
{}

X11Panels::~X11Panels() = default;

std::unique_ptr<Panel> X11Panels::create(const PanelOptions& options)
{
    return std::make_unique<X11Panel>(impl_->context, options);
}

void X11Panels::setVirtualArea(VirtualArea* area)
{
    impl_->context.area = area;
}

SessionLock& X11Panels::sessionLock()
{
    return impl_->screenLock;
}

Subscription X11Panels::keepBelow(std::uintptr_t nativeWindow)
{
    const auto window = static_cast<xcb_window_t>(nativeWindow);
    return std::make_shared<std::array<Subscription, 2>>(
        std::array{impl_->stack.keepBelow(window), impl_->holes.makeFor(window)});
}

void X11Panels::setInput(PanelInput input)
{
    impl_->context.input = input;
}

std::optional<EventTime> X11Panels::timeOfLastClick() const
{
    return impl_->context.timeOfLastClick;
}

} // namespace nimbrale::x11
