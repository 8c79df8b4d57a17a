#include "platform/x11/virtual_display/virtual_area.h"

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/server_grab.h"
#include "platform/x11/server/window_events.h"
#include "platform/x11/virtual_display/area_probe.h"
#include "platform/x11/virtual_display/composite_overlay.h"
#include "platform/x11/virtual_display/kept_picture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Time for a compositing manager to set itself up, or for a window to be mapped and painted.
constexpr auto settleDelay = 300ms;

// Against a program that answers each of ours by one of its own: enough for no viewer to notice, and little work.
constexpr std::size_t mostRaises = 100;
constexpr auto raiseSpan = 200ms;

PixelRect placeOf(AreaRole role, const PixelRect& area)
{
    if (role != AreaRole::picture && !area.isEmpty())
        return {area.x, 0, area.width, area.y + area.height};
    return area;
}

} // namespace

struct VirtualArea::Impl {
    struct Entry {
        xcb_window_t window = XCB_WINDOW_NONE;
        AreaRole role = AreaRole::picture;
    };
    using Entries = std::vector<Entry>;

    Connection& connection;
    MainQueue& mainQueue;
    VirtualArea& owner;
    CompositeOverlay overlay;
    xcb_atom_t compositorSelection;
    /// Back to front.
    Entries windows;
    PixelRect pixels;
    bool isVerified = false;
    WindowEvents rootEvents;
    Subscription compositorChanges;
    Subscription shapeChanges;
    Subscription restackings;
    CorrectionLimiter raises{mostRaises, raiseSpan};
    std::unique_ptr<Timer> raiseTimer;
    std::unique_ptr<Timer> probeTimer;
    /// Whether it has been found out where this compositing manager is best started with.
    bool isKnown = false;
    /// Whether the windows have been children of the other of root and overlay since the last change.
    bool wasMoved = false;
    std::unique_ptr<AreaProbe> probe;

    Impl(Connection& theConnection, MainQueue& theMainQueue, VirtualArea& theOwner)
        : connection(theConnection), mainQueue(theMainQueue), owner(theOwner), overlay(theConnection),
          compositorSelection(theConnection.atom("_NET_WM_CM_S" + std::to_string(theConnection.screenNumber())))
    {}

    void watch(EventDispatcher& events);
    [[nodiscard]] bool hasCompositor() const;
    void probeSoon();
    void startProbe();
    [[nodiscard]] std::optional<PixelRect> placeIfShown(xcb_window_t window) const;
    void probeEnded(bool wasSeen);
    void enterOverlay();
    void leaveOverlay();
    void cover(const PixelRect& place, const std::function<void()>& changeLayout);
    void configure(xcb_window_t window, const PixelRect& place) const;
    void exposeAll() const;
    void moveAllInto(xcb_window_t parent) const;
    void moveInto(xcb_window_t parent, const Entry& entry) const;
    [[nodiscard]] bool isOurs(xcb_window_t window) const;
    [[nodiscard]] bool isMoveOfFrontmost(const xcb_generic_event_t& event) const;
    [[nodiscard]] bool mayBeCoveredAfter(const xcb_generic_event_t& event) const;
    void raiseSoon();
    void raise();
    void stackBelow(const Entries::const_reverse_iterator& front) const;
    [[nodiscard]] bool isInRoot(const Entry& entry) const;
    [[nodiscard]] bool prefersOverlay();
};

void VirtualArea::Impl::watch(EventDispatcher& events)
{
    const Extensions& extensions = connection.extensions();
    rootEvents = WindowEvents(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY);
    compositorChanges =
        events.add({extensions.fixes.firstEvent + XCB_XFIXES_SELECTION_NOTIFY}, [this](const auto& event) {
            if (eventAs<xcb_xfixes_selection_notify_event_t>(event).selection != compositorSelection)
                return;
            // What the last compositing manager needed says nothing of the next one, and the overlay must not outlive
            // it.
            leaveOverlay();
            isKnown = false;
            probeSoon();
            if (isVerified && owner.onVerified)
                owner.onVerified();
        });
    shapeChanges = events.add({extensions.shape.firstEvent + XCB_SHAPE_NOTIFY}, [this](const auto& event) {
        if (overlay.window() != XCB_WINDOW_NONE &&
            eventAs<xcb_shape_notify_event_t>(event).affected_window == overlay.window())
            overlay.open(pixels);
    });
    restackings = events.add({XCB_CONFIGURE_NOTIFY, XCB_MAP_NOTIFY, XCB_REPARENT_NOTIFY, XCB_CIRCULATE_NOTIFY},
                             [this](const auto& event) {
                                 if (isMoveOfFrontmost(event))
                                     stackBelow(windows.crbegin());
                                 else if (mayBeCoveredAfter(event))
                                     raiseSoon();
                             });
}

bool VirtualArea::Impl::isOurs(xcb_window_t window) const
{
    return std::any_of(windows.begin(), windows.end(), [&](const Entry& entry) { return entry.window == window; });
}

// Whoever moves the frontmost window in the stack, a panel that gives way to a window that the user works in, leaves
// the ones behind it where they are.
bool VirtualArea::Impl::isMoveOfFrontmost(const xcb_generic_event_t& event) const
{
    return eventType(event) == XCB_CONFIGURE_NOTIFY && !windows.empty() && overlay.window() == XCB_WINDOW_NONE &&
           eventAs<xcb_configure_notify_event_t>(event).window == windows.back().window;
}

bool VirtualArea::Impl::mayBeCoveredAfter(const xcb_generic_event_t& event) const
{
    const xcb_window_t root = connection.root();
    if (windows.empty() || pixels.isEmpty())
        return false;
    switch (eventType(event)) {
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        const int borders = 2 * configure.border_width;
        const PixelRect place{configure.x, configure.y, configure.width + borders, configure.height + borders};
        return configure.event == root && !isOurs(configure.window) &&
               placeOf(AreaRole::backdrop, pixels).intersects(place);
    }
    case XCB_MAP_NOTIFY: {
        const auto& map = eventAs<xcb_map_notify_event_t>(event);
        return map.event == root && !isOurs(map.window);
    }
    case XCB_REPARENT_NOTIFY: {
        const auto& reparent = eventAs<xcb_reparent_notify_event_t>(event);
        return reparent.parent == root && !isOurs(reparent.window);
    }
    default: {
        const auto& circulate = eventAs<xcb_circulate_notify_event_t>(event);
        return circulate.event == root && !isOurs(circulate.window);
    }
    }
}

// At once where that does not happen all the time: each moment counts.
void VirtualArea::Impl::raiseSoon()
{
    if (raiseTimer)
        return;
    const auto wait = raises.delay(CorrectionLimiter::Clock::now());
    if (wait <= CorrectionLimiter::Clock::duration::zero()) {
        raise();
        return;
    }
    raiseTimer = mainQueue.schedule(wait, [this] {
        raiseTimer.reset();
        raise();
    });
}

void VirtualArea::Impl::raise()
{
    raises.note(CorrectionLimiter::Clock::now());
    for (auto entry = windows.rbegin(); entry != windows.rend(); ++entry) {
        if (!isInRoot(*entry))
            continue;
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        mayFail(connection.get(),
                xcb_configure_window_checked(connection.get(), entry->window, XCB_CONFIG_WINDOW_STACK_MODE, &above));
        stackBelow(entry);
        break;
    }
    connection.flush();
}

// Those that stand there already stay where they are, and nobody hears of it.
void VirtualArea::Impl::stackBelow(const Entries::const_reverse_iterator& front) const
{
    xcb_window_t above = front->window;
    for (auto entry = std::next(front); entry != windows.rend(); ++entry) {
        if (!isInRoot(*entry))
            continue;
        const std::array<std::uint32_t, 2> values = {above, XCB_STACK_MODE_BELOW};
        mayFail(connection.get(),
                xcb_configure_window_checked(connection.get(), entry->window,
                                             XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE, values.data()));
        above = entry->window;
    }
    connection.flush();
}

bool VirtualArea::Impl::isInRoot(const Entry& entry) const
{
    return overlay.window() == XCB_WINDOW_NONE || entry.role == AreaRole::shade;
}

bool VirtualArea::Impl::hasCompositor() const
{
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection.get(), xcb_get_selection_owner(connection.get(), compositorSelection), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

void VirtualArea::Impl::probeSoon()
{
    isVerified = false;
    probe.reset();
    probeTimer.reset();
    if (pixels.isEmpty())
        return;
    if (!hasCompositor()) {
        isVerified = true;
        return;
    }
    wasMoved = false;
    probeTimer = mainQueue.schedule(settleDelay, [this] {
        if (!isKnown && prefersOverlay())
            enterOverlay();
        isKnown = true;
        startProbe();
    });
}

// Which of the two ways is tried first; the probe decides. These two paint nothing where there is no real display.
bool VirtualArea::Impl::prefersOverlay()
{
    const auto check =
        connection.property32(connection.root(), connection.atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW);
    if (!check)
        return false;
    const Reply<xcb_get_property_reply_t> name(xcb_get_property_reply(
        connection.get(),
        xcb_get_property(connection.get(), 0, *check, connection.atom("_NET_WM_NAME"), XCB_ATOM_ANY, 0, 8), nullptr));
    if (!name || name->format != 8)
        return false;
    const std::string text(static_cast<const char*>(xcb_get_property_value(name.get())),
                           static_cast<std::size_t>(xcb_get_property_value_length(name.get())));
    return text == "KWin" || text == "Xfwm4";
}

// In the frontmost window, since that is what has to be seen; a window of its own in front of it would have its place
// disputed.
void VirtualArea::Impl::startProbe()
{
    const int x = pixels.x + pixels.width;
    const int y = pixels.y + pixels.height;
    xcb_window_t parent = overlay.window() != XCB_WINDOW_NONE ? overlay.window() : connection.root();
    PixelRect place;
    for (const auto& [window, role] : windows) {
        if (role == AreaRole::shade)
            continue;
        const auto shown = placeIfShown(window);
        const bool holdsCorner = shown && shown->x <= x - AreaProbe::pixelCount && shown->y < y &&
                                 shown->x + shown->width >= x && shown->y + shown->height >= y;
        if (!holdsCorner)
            continue;
        parent = window;
        place = *shown;
    }
    probe = std::make_unique<AreaProbe>(connection, mainQueue, parent, place.x, place.y, pixels,
                                        [this](bool wasSeen) { probeEnded(wasSeen); });
}

std::optional<PixelRect> VirtualArea::Impl::placeIfShown(xcb_window_t window) const
{
    xcb_connection_t* const raw = connection.get();
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, window), nullptr));
    const Reply<xcb_get_geometry_reply_t> place(xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
    if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE || !place)
        return std::nullopt;
    return PixelRect{place->x, place->y, place->width, place->height};
}

void VirtualArea::Impl::probeEnded(bool wasSeen)
{
    probe.reset();
    if (wasSeen) {
        isVerified = true;
        if (overlay.window() != XCB_WINDOW_NONE)
            exposeAll();
        if (owner.onVerified)
            owner.onVerified();
        return;
    }
    if (!wasMoved && hasCompositor()) {
        wasMoved = true;
        if (overlay.window() != XCB_WINDOW_NONE)
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

void VirtualArea::Impl::enterOverlay()
{
    if (overlay.window() != XCB_WINDOW_NONE || !overlay.acquire())
        return;
    overlay.open(pixels);
    cover(pixels, [this] { moveAllInto(overlay.window()); });
}

// A change of the screen's size costs windows their picture, and the server hands out the new screen's memory as others
// left it, to be seen until each window, or the compositing manager for all of them, has painted anew. So the area gets
// a copy of the picture that was there, in the same moment: as the frontmost window's background, which the server
// paints whenever it uncovers the window, and on the screen itself, whatever window lies there.
void VirtualArea::Impl::cover(const PixelRect& place, const std::function<void()>& changeLayout)
{
    std::optional<KeptPicture> picture;
    if (!place.isEmpty())
        picture.emplace(connection);
    const ServerGrab grab(connection);
    if (picture) {
        picture->take(windows.empty() ? Entry{}.window : windows.back().window, place.width, place.height);
        for (const Entry& entry : windows)
            configure(entry.window, placeOf(entry.role, place));
    }
    changeLayout();
    if (picture)
        picture->showOnScreen(place.x, place.y);
    overlay.closeAllBut(place);
    pixels = place;
}

void VirtualArea::Impl::configure(xcb_window_t window, const PixelRect& place) const
{
    const std::array<std::uint32_t, 4> values = {
        static_cast<std::uint32_t>(place.x), static_cast<std::uint32_t>(place.y),
        static_cast<std::uint32_t>(place.width), static_cast<std::uint32_t>(place.height)};
    mayFail(connection.get(), xcb_configure_window_checked(connection.get(), window,
                                                           XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                                                               XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                                                           values.data()));
}

void VirtualArea::Impl::leaveOverlay()
{
    if (overlay.window() == XCB_WINDOW_NONE)
        return;
    probe.reset();
    cover(pixels, [this] {
        moveAllInto(connection.root());
        overlay.release();
    });
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

// A window that is moved comes to lie in front of its new siblings, so moving all in their order keeps it.
void VirtualArea::Impl::moveAllInto(xcb_window_t parent) const
{
    for (const Entry& entry : windows) {
        if (entry.role != AreaRole::shade)
            moveInto(parent, entry);
    }
}

// One that is being destroyed is no loss.
void VirtualArea::Impl::moveInto(xcb_window_t parent, const Entry& entry) const
{
    const PixelRect place = placeOf(entry.role, pixels);
    mayFail(connection.get(),
            xcb_reparent_window_checked(connection.get(), entry.window, parent, static_cast<std::int16_t>(place.x),
                                        static_cast<std::int16_t>(place.y)));
}

VirtualArea::VirtualArea(Connection& connection, EventDispatcher& events, MainQueue& mainQueue)
    : impl_(new Impl(connection, mainQueue, *this))
{
    xcb_xfixes_select_selection_input(connection.get(), connection.root(), impl_->compositorSelection,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    impl_->watch(events);
}

VirtualArea::~VirtualArea()
{
    impl_->leaveOverlay();
}

void VirtualArea::add(xcb_window_t window, AreaRole role)
{
    impl_->windows.push_back({window, role});
    if (usesOverlay() && role != AreaRole::shade)
        impl_->moveInto(impl_->overlay.window(), impl_->windows.back());
    impl_->probeSoon();
}

void VirtualArea::remove(xcb_window_t window)
{
    const auto entry = std::find_if(impl_->windows.begin(), impl_->windows.end(),
                                    [&](const Impl::Entry& each) { return each.window == window; });
    if (entry == impl_->windows.end())
        return;
    if (usesOverlay() && entry->role != AreaRole::shade)
        impl_->moveInto(impl_->connection.root(), *entry);
    impl_->windows.erase(entry);
}

void VirtualArea::setPixels(const PixelRect& pixels, const std::function<void()>& changeLayout)
{
    const bool isNew = impl_->pixels != pixels;
    if (isNew)
        impl_->overlay.open(pixels);
    impl_->cover(pixels, changeLayout);
    if (pixels.isEmpty())
        impl_->leaveOverlay();
    if (isNew)
        impl_->probeSoon();
}

const PixelRect& VirtualArea::pixels() const
{
    return impl_->pixels;
}

xcb_window_t VirtualArea::parent() const
{
    return usesOverlay() ? impl_->overlay.window() : impl_->connection.root();
}

bool VirtualArea::usesOverlay() const
{
    return impl_->overlay.window() != XCB_WINDOW_NONE;
}

bool VirtualArea::isVerified() const
{
    return impl_->isVerified;
}

} // namespace nimbrale::x11
