#include "platform/x11/virtual_display/virtual_area.h"

#include "platform/x11/server/compositing_watcher.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/server_grab.h"
#include "platform/x11/server/window_manager_name.h"
#include "platform/x11/virtual_display/area_probe.h"
#include "platform/x11/virtual_display/area_spot.h"
#include "platform/x11/virtual_display/area_windows.h"
#include "platform/x11/virtual_display/composite_overlay.h"
#include "platform/x11/virtual_display/kept_picture.h"

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <xcb/shape.h>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Time for a compositing manager to set itself up, or for a window to be mapped and painted.
constexpr auto settleDelay = 300ms;
// Ten times what a compositing manager that knows the screen's size was seen to take.
constexpr auto lateAfter = 500ms;

/// Whose children the windows are.
enum class Place {
    untried, ///< the root's, and it has not been found out where this compositing manager is best started with
    root,
    overlay,
    /// The root's just because the compositing manager has taken the overlay off the screen, as some do while one
    /// window covers all of it.
    rootForAWhile
};

} // namespace

struct VirtualArea::Impl {
    Connection& connection;
    MainQueue& mainQueue;
    VirtualArea& owner;
    CompositeOverlay overlay;
    CompositingWatcher compositing;
    AreaWindows windows;
    PixelRect pixels;
    bool isVerified = false;
    Subscription managerChanges;
    Subscription shapeChanges;
    Subscription overlayMappings;
    std::unique_ptr<Timer> probeTimer;
    std::unique_ptr<Timer> lateTimer;
    Place place = Place::untried;
    /// Whether the windows have been children of the other of root and overlay since the last change.
    bool wasMoved = false;
    /// Whether this compositing manager does not leave alone what is in the overlay.
    bool isOverlayRefused = false;
    std::unique_ptr<AreaProbe> probe;

    Impl(Connection& theConnection, EventDispatcher& events, MainQueue& theMainQueue, VirtualArea& theOwner)
        : connection(theConnection), mainQueue(theMainQueue), owner(theOwner), overlay(theConnection),
          compositing(theConnection, events), windows(theConnection, events, theMainQueue)
    {
        watch(events);
        windows.onContested = [this] { contested(); };
    }

    void watch(EventDispatcher& events);
    void managerChanged();
    void probeSoon();
    void choosePlace();
    void startProbe();
    void probeEnded(bool wasSeen);
    void contested();
    void overlayTried(bool wasSeen);
    [[nodiscard]] bool isInOverlay() const { return place == Place::overlay; }
    void enterOverlay();
    void leaveOverlay();
    void cover(const PixelRect& area, const std::function<void()>& changeLayout);
    void exposeAll() const;
    [[nodiscard]] bool prefersOverlay();
};

void VirtualArea::Impl::watch(EventDispatcher& events)
{
    managerChanges = compositing.observeChanges([this] { managerChanged(); });
    shapeChanges = events.add({connection.extensions().shape.firstEvent + XCB_SHAPE_NOTIFY}, [this](const auto& event) {
        if (overlay.window() != XCB_WINDOW_NONE &&
            eventAs<xcb_shape_notify_event_t>(event).affected_window == overlay.window())
            overlay.open(pixels);
    });
    overlayMappings = events.add({XCB_MAP_NOTIFY, XCB_UNMAP_NOTIFY}, [this](const auto& event) {
        // Both events have the window at the same place. The delay before the probe gives a screen locker the time to
        // be noticed: what the windows show until then is of before the lock.
        const bool isGone = eventType(event) == XCB_UNMAP_NOTIFY;
        const bool isOverlays =
            overlay.window() != XCB_WINDOW_NONE && eventAs<xcb_map_notify_event_t>(event).event == overlay.window();
        if (isOverlays && (isGone ? isInOverlay() : place == Place::rootForAWhile))
            probeSoon();
    });
}

// What the last compositing manager needed says nothing of the next one, and the overlay must not outlive it.
void VirtualArea::Impl::managerChanged()
{
    leaveOverlay();
    place = Place::untried;
    isOverlayRefused = false;
    probeSoon();
    if (isVerified && owner.onVerified)
        owner.onVerified();
}

void VirtualArea::Impl::probeSoon()
{
    isVerified = false;
    probe.reset();
    probeTimer.reset();
    if (!isInOverlay() && place != Place::rootForAWhile)
        overlay.release();
    if (pixels.isEmpty())
        return;
    if (compositing.askManager() == XCB_WINDOW_NONE) {
        isVerified = true;
        return;
    }
    wasMoved = false;
    probeTimer = mainQueue.schedule(settleDelay, [this] {
        choosePlace();
        startProbe();
    });
}

// While the overlay is off the screen the server paints what comes to the root, and the overlay is held only to hear of
// its return. What a probe tells meanwhile says nothing of later.
void VirtualArea::Impl::choosePlace()
{
    const bool wantsOverlay = place == Place::untried ? prefersOverlay() : place != Place::root;
    const bool isOverlayOff = wantsOverlay && overlay.acquire() && !overlay.isOnScreen();
    if (isOverlayOff && isInOverlay())
        cover(pixels, [this] { windows.moveInto(connection.root()); });
    if (isOverlayOff)
        place = Place::rootForAWhile;
    else if (!isInOverlay())
        place = Place::root;
    if (wantsOverlay && !isOverlayOff)
        enterOverlay();
}

// Which of the two ways is tried first; the probe decides.
bool VirtualArea::Impl::prefersOverlay()
{
    return showsPicturesBetterInOverlay(windowManagerName(connection));
}

void VirtualArea::Impl::startProbe()
{
    probe = std::make_unique<AreaProbe>(connection, mainQueue, pixels, spotInFront(connection, windows, pixels),
                                        std::nullopt, [this](bool wasSeen) { probeEnded(wasSeen); });
    lateTimer = mainQueue.schedule(lateAfter, [this] {
        if (probe && !isInOverlay() && owner.onLate)
            owner.onLate();
    });
}

void VirtualArea::Impl::probeEnded(bool wasSeen)
{
    probe.reset();
    if (wasSeen) {
        isVerified = true;
        if (isInOverlay())
            exposeAll();
        if (owner.onVerified)
            owner.onVerified();
        return;
    }
    if (place == Place::rootForAWhile)
        return;
    if (!wasMoved && compositing.askManager() != XCB_WINDOW_NONE) {
        wasMoved = true;
        isOverlayRefused = isOverlayRefused || isInOverlay();
        if (isInOverlay())
            leaveOverlay();
        else
            enterOverlay();
        startProbe();
        return;
    }
    if (owner.onUnusable) {
        owner.onUnusable({ErrorCode::unsupported,
                          "The desktop's compositing manager does not show the virtual display. Share the window "
                          "instead, or turn compositing off."});
    }
}

// No child of the root can come to lie above one of the overlay's. But some compositing managers draw over those, so it
// is tried with a few pixels before the windows go there. An overlay that no compositing manager draws into is left
// alone: it would hide the desktop while this process holds it, and with this process it would take along the card.
void VirtualArea::Impl::contested()
{
    if (place != Place::root || isOverlayRefused || !isVerified || probe)
        return;
    const xcb_window_t manager = compositing.askManager();
    if (manager == XCB_WINDOW_NONE || !overlay.isHeldBy(manager) || !overlay.acquire()) {
        isOverlayRefused = true;
        return;
    }
    overlay.open(pixels);
    probe = std::make_unique<AreaProbe>(connection, mainQueue, pixels, AreaProbe::Spot{overlay.window()},
                                        spotInFront(connection, windows, pixels),
                                        [this](bool wasSeen) { overlayTried(wasSeen); });
}

void VirtualArea::Impl::overlayTried(bool wasSeen)
{
    probe.reset();
    if (!wasSeen) {
        isOverlayRefused = true;
        overlay.release();
        connection.flush();
        return;
    }
    enterOverlay();
    wasMoved = false;
    startProbe();
}

void VirtualArea::Impl::enterOverlay()
{
    if (isInOverlay() || !overlay.acquire())
        return;
    overlay.open(pixels);
    cover(pixels, [this] { windows.moveInto(overlay.window()); });
    place = Place::overlay;
}

// A change of the screen's size costs windows their picture, and the server hands out the new screen's memory as others
// left it, to be seen until each window, or the compositing manager for all of them, has painted anew. So the area gets
// a copy of the picture that was there, in the same moment: as the frontmost window's background, which the server
// paints whenever it uncovers the window, and on the screen itself, whatever window lies there.
void VirtualArea::Impl::cover(const PixelRect& area, const std::function<void()>& changeLayout)
{
    std::optional<KeptPicture> picture;
    if (!area.isEmpty())
        picture.emplace(connection);
    const ServerGrab grab(connection);
    if (picture)
        picture->take(windows.frontmost(), area.width, area.height);
    windows.cover(area);
    changeLayout();
    if (picture)
        picture->showOnScreen(area.x, area.y);
    overlay.closeAllBut(area);
    pixels = area;
}

void VirtualArea::Impl::leaveOverlay()
{
    if (place == Place::rootForAWhile)
        place = Place::root;
    if (overlay.window() == XCB_WINDOW_NONE)
        return;
    probe.reset();
    if (!isInOverlay()) {
        overlay.release();
        return;
    }
    cover(pixels, [this] {
        windows.moveInto(connection.root());
        overlay.release();
    });
    place = Place::root;
}

// Some compositing managers draw over the overlay's children when the screen has changed. Covering everything with a
// window that paints nothing, and taking it away, makes the server show backgrounds and ask for the rest.
void VirtualArea::Impl::exposeAll() const
{
    xcb_connection_t* const raw = connection.get();
    const xcb_window_t cover = connection.newId();
    const std::array<std::uint32_t, 2> values = {XCB_BACK_PIXMAP_NONE, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, cover, overlay.window(), static_cast<std::int16_t>(pixels.x),
                      static_cast<std::int16_t>(pixels.y), static_cast<std::uint16_t>(pixels.width),
                      static_cast<std::uint16_t>(pixels.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values.data());
    xcb_map_window(raw, cover);
    xcb_destroy_window(raw, cover);
    connection.flush();
}

VirtualArea::VirtualArea(Connection& connection, EventDispatcher& events, MainQueue& mainQueue)
    : impl_(new Impl(connection, events, mainQueue, *this))
{}

VirtualArea::~VirtualArea()
{
    impl_->leaveOverlay();
}

void VirtualArea::add(xcb_window_t window, AreaRole role)
{
    impl_->windows.add(window, role);
    impl_->probeSoon();
}

void VirtualArea::replace(xcb_window_t gone, xcb_window_t window)
{
    impl_->windows.replace(gone, window);
    // What was shown to find out may have been in the one that has gone.
    if (!impl_->isVerified)
        impl_->probeSoon();
}

void VirtualArea::remove(xcb_window_t window)
{
    impl_->windows.remove(window);
}

bool VirtualArea::contains(xcb_window_t window) const
{
    return impl_->windows.contains(window);
}

void VirtualArea::setPixels(const PixelRect& pixels, const std::function<void()>& changeLayout)
{
    const bool isNew = impl_->pixels != pixels;
    if (isNew)
        impl_->overlay.open(pixels);
    impl_->cover(pixels, changeLayout);
    if (pixels.isEmpty())
        impl_->leaveOverlay();
    // A compositing manager that draws over what is in the overlay does so after any change of the displays.
    if (isNew || usesOverlay())
        impl_->probeSoon();
}

void VirtualArea::takeOver(const PixelRect& pixels)
{
    {
        KeptPicture picture(impl_->connection);
        const ServerGrab grab(impl_->connection);
        picture.takeFromScreen(pixels);
        impl_->windows.cover(pixels);
        picture.showOnScreen(pixels.x, pixels.y);
    }
    impl_->pixels = pixels;
    impl_->probeSoon();
}

void VirtualArea::leave()
{
    impl_->windows.forgetAll();
    if (impl_->isInOverlay())
        impl_->place = Place::root;
    impl_->pixels = {};
    impl_->overlay.leaveOpen();
    impl_->probeSoon();
}

const PixelRect& VirtualArea::pixels() const
{
    return impl_->pixels;
}

xcb_window_t VirtualArea::parent() const
{
    return impl_->windows.parent();
}

bool VirtualArea::usesOverlay() const
{
    return impl_->isInOverlay();
}

bool VirtualArea::isVerified() const
{
    return impl_->isVerified;
}

} // namespace nimbrale::x11
