#include "platform/x11/displays/x11_screens.h"

#include "platform/x11/displays/display_scale.h"
#include "platform/x11/displays/randr_displays.h"
#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/displays/work_areas.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_events.h"
#include "platform/x11/server/window_manager_name.h"

#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Windows come and go in bursts, and each changes a property that work areas are computed from.
constexpr auto workAreaDelay = 100ms;

std::uint32_t hashOf(const std::string& name)
{
    std::uint32_t hash = 2166136261U;
    for (const char character : name) {
        hash ^= static_cast<unsigned char>(character);
        hash *= 16777619U;
    }
    return hash;
}

/// A panel on top whose height is no whole number of points takes the point that it begins: stored places are whole
/// points below it, and one that is read back must be the one that was stored.
Rect belowWholePoints(const Rect& visible, const Rect& frame)
{
    const double taken = std::ceil(frame.maxY() - visible.maxY() - 1e-6);
    return {visible.x, visible.y, visible.width, std::max(0.0, frame.maxY() - taken - visible.minY())};
}

std::optional<PixelPoint> pointerPosition(const Connection& connection)
{
    const Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection.get(), xcb_query_pointer(connection.get(), connection.root()), nullptr));
    if (!pointer)
        return std::nullopt;
    return PixelPoint{pointer->root_x, pointer->root_y};
}

} // namespace

struct X11Screens::Impl {
    Connection& connection;
    RandrLayout layout;
    WorkAreas workAreas;
    Observers observers;
    WindowEvents rootEvents;
    Subscription displayChanges;
    Subscription rootMoves;
    Subscription propertyChanges;
    Subscription pointerEvents;
    QTimer soon;
    std::map<xcb_atom_t, DisplayID> identifiers;
    xcb_atom_t ownMonitor = XCB_ATOM_NONE;
    ScreenSpace space;
    DisplayID mainDisplay = 0;
    PointerTracker pointer;

    explicit Impl(Connection& theConnection)
        : connection(theConnection), layout(theConnection), workAreas(theConnection),
          pointer([&theConnection] { return pointerPosition(theConnection); })
    {}

    void watch(X11Screens& owner, EventDispatcher& events);
    void propertyChanged(const xcb_property_notify_event_t& change);
    void startIn(std::chrono::milliseconds delay);
    [[nodiscard]] DisplayID identifierOf(xcb_atom_t atom, const std::string& name);
    [[nodiscard]] std::vector<X11Screen> read();
};

void X11Screens::Impl::watch(X11Screens& owner, EventDispatcher& events)
{
    rootEvents =
        WindowEvents(connection, connection.root(), XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    if (const Extension& randr = connection.extensions().randr; randr.isPresent) {
        xcb_randr_select_input(connection.get(), connection.root(),
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
        displayChanges =
            events.add({randr.firstEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY, randr.firstEvent + XCB_RANDR_NOTIFY},
                       [this](const auto&) { startIn(0ms); });
    }
    soon.setSingleShot(true);
    QObject::connect(&soon, &QTimer::timeout, [&owner] { owner.refresh(); });
    rootMoves = events.add({XCB_CONFIGURE_NOTIFY}, [this](const auto& event) {
        if (eventAs<xcb_configure_notify_event_t>(event).window == connection.root())
            startIn(0ms);
    });
    propertyChanges = events.add({XCB_PROPERTY_NOTIFY}, [this](const auto& event) {
        propertyChanged(eventAs<xcb_property_notify_event_t>(event));
    });
    pointerEvents =
        events.add({XCB_BUTTON_PRESS, XCB_BUTTON_RELEASE, XCB_MOTION_NOTIFY, XCB_ENTER_NOTIFY, XCB_LEAVE_NOTIFY},
                   [this](const auto&) { pointer.mayHaveMoved(); });
}

void X11Screens::Impl::propertyChanged(const xcb_property_notify_event_t& change)
{
    const bool isResources = change.window == connection.root() && change.atom == XCB_ATOM_RESOURCE_MANAGER;
    if (isResources || workAreas.dependOn(change.window, change.atom))
        startIn(workAreaDelay);
}

void X11Screens::Impl::startIn(std::chrono::milliseconds delay)
{
    if (!soon.isActive() || soon.remainingTimeAsDuration() > delay)
        soon.start(delay);
}

// Derived from the name alone, so that a stored identifier still means the same display after a restart. Two names
// that meet in one number are told apart by who came first.
DisplayID X11Screens::Impl::identifierOf(xcb_atom_t atom, const std::string& name)
{
    const auto known = identifiers.find(atom);
    if (known != identifiers.end())
        return known->second;
    DisplayID identifier = hashOf(name);
    const auto isTaken = [this](DisplayID candidate) {
        return std::any_of(identifiers.begin(), identifiers.end(),
                           [candidate](const auto& entry) { return entry.second == candidate; });
    };
    while (identifier == 0 || isTaken(identifier))
        ++identifier;
    identifiers[atom] = identifier;
    return identifier;
}

std::vector<X11Screen> X11Screens::Impl::read()
{
    const std::vector<RandrDisplay> found = RandrDisplays(connection, layout).read();
    const double scale = displayScale(connection);
    const RandrDisplay* main = nullptr;
    std::vector<PixelRect> real;
    std::vector<ScreenSpace::Display> displays;
    for (const RandrDisplay& display : found) {
        const bool isOwn = display.nameAtom == ownMonitor;
        displays.push_back({display.pixels, isOwn ? 1 : scale});
        if (isOwn)
            continue;
        real.push_back(display.pixels);
        if (!main || (display.isPrimary && !main->isPrimary))
            main = &display;
    }
    mainDisplay = main ? identifierOf(main->nameAtom, main->name) : 0;
    space = ScreenSpace(main ? main->pixels : PixelRect{}, scale, std::move(displays));

    const std::vector<PixelRect> free = workAreas.freeAreas(real);
    const bool areBarsOutOfReach = keepsClicksOnItsBars(windowManagerName(connection));
    std::vector<X11Screen> result;
    auto nextFree = free.begin();
    for (std::size_t index = 0; index < found.size(); ++index) {
        const RandrDisplay& display = found[index];
        const bool isOwn = display.nameAtom == ownMonitor;
        X11Screen entry;
        entry.pixels = display.pixels;
        entry.nameAtom = display.nameAtom;
        entry.screen.displayID = identifierOf(display.nameAtom, display.name);
        entry.screen.name = display.userName;
        entry.screen.frame = space.frameOf(index);
        entry.screen.visibleFrame = entry.screen.frame;
        if (!isOwn)
            entry.screen.visibleFrame = belowWholePoints(space.pointsOf(*nextFree++, index), entry.screen.frame);
        if (!isOwn && areBarsOutOfReach)
            entry.screen.reachableFrame = entry.screen.visibleFrame;
        entry.screen.backingScaleFactor = isOwn ? 1 : scale;
        result.push_back(entry);
    }
    return result;
}

X11Screens::X11Screens(Connection& connection, EventDispatcher& events) : impl_(new Impl(connection))
{
    impl_->watch(*this, events);
    screens_ = impl_->read();
}

X11Screens::~X11Screens() = default;

std::vector<Screen> X11Screens::screens() const
{
    std::vector<Screen> result;
    for (const X11Screen& entry : screens_)
        result.push_back(entry.screen);
    return result;
}

DisplayID X11Screens::mainDisplay() const
{
    return impl_->mainDisplay;
}

Point X11Screens::mouseLocation() const
{
    return impl_->space.pointOf(impl_->pointer.position());
}

Subscription X11Screens::observePointer(const Rect& area, std::function<void()> observer)
{
    const auto place = [&space = impl_->space, area] {
        const PixelRect pixels = space.pixelsOf(area);
        // Of a pixel that the edge runs through, too.
        return PixelRect{pixels.x - 1, pixels.y - 1, pixels.width + 2, pixels.height + 2};
    };
    return impl_->pointer.observeMoves(place, std::move(observer));
}

PointerTracker& X11Screens::pointer()
{
    return impl_->pointer;
}

Subscription X11Screens::observeChanges(std::function<void()> observer)
{
    return impl_->observers.add(std::move(observer));
}

std::optional<X11Screen> X11Screens::find(DisplayID displayID) const
{
    for (const X11Screen& entry : screens_) {
        if (entry.screen.displayID == displayID)
            return entry;
    }
    return std::nullopt;
}

std::optional<PixelPoint> X11Screens::pixelOf(Point regionPoint, DisplayID displayID) const
{
    for (std::size_t index = 0; index < screens_.size(); ++index) {
        if (screens_[index].screen.displayID == displayID)
            return impl_->space.pixelOf(regionPoint, index);
    }
    return std::nullopt;
}

const ScreenSpace& X11Screens::space() const
{
    return impl_->space;
}

DisplayID X11Screens::displayIDForMonitor(xcb_atom_t nameAtom)
{
    return impl_->identifierOf(nameAtom, impl_->connection.atomName(nameAtom));
}

void X11Screens::setOwnMonitor(xcb_atom_t nameAtom)
{
    if (impl_->ownMonitor == nameAtom)
        return;
    impl_->ownMonitor = nameAtom;
    refresh();
}

void X11Screens::refresh()
{
    impl_->soon.stop();
    const DisplayID mainBefore = impl_->mainDisplay;
    std::vector<X11Screen> now = impl_->read();
    const bool isSame = mainBefore == impl_->mainDisplay &&
                        std::equal(now.begin(), now.end(), screens_.begin(), screens_.end(),
                                   [](const X11Screen& first, const X11Screen& second) {
                                       return first.screen == second.screen && first.pixels == second.pixels &&
                                              first.nameAtom == second.nameAtom;
                                   });
    if (isSame)
        return;
    screens_ = std::move(now);
    impl_->pointer.placesMoved();
    impl_->observers.notify();
}

} // namespace nimbrale::x11
