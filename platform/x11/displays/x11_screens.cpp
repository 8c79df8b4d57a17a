#include "platform/x11/displays/x11_screens.h"

#include "platform/x11/displays/display_scale.h"
#include "platform/x11/displays/randr_displays.h"
#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/displays/work_areas.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_events.h"

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

constexpr auto longestPointerRest = 200ms;

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

int nearestPixel(double value)
{
    return static_cast<int>(std::lround(value));
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
    /// Where screen points start: the bottom-left corner of the main display, in root pixels.
    PixelRect mainPixels;
    DisplayID mainDisplay = 0;
    double scale = 1;
    /// How often the pointer may have moved; 0 while nobody tells.
    std::atomic<std::uint64_t> pointerMoves = 0;
    /// Whether the next move is to be told to the observers.
    std::atomic<bool> isMoveAwaited = false;
    Observers mouseObservers;
    struct PointerAnswer {
        std::uint64_t moves = 0;
        std::chrono::steady_clock::time_point time;
        int rootX = 0;
        int rootY = 0;
    };
    PointerAnswer pointerAnswer;
    /// Where the mouse event happened that is being dealt with.
    std::optional<std::pair<int, int>> eventPlace;

    explicit Impl(Connection& theConnection)
        : connection(theConnection), layout(theConnection), workAreas(theConnection)
    {}

    void watch(X11Screens& owner, EventDispatcher& events);
    void propertyChanged(const xcb_property_notify_event_t& change);
    void startIn(std::chrono::milliseconds delay);
    [[nodiscard]] DisplayID identifierOf(xcb_atom_t atom, const std::string& name);
    [[nodiscard]] Point topLeftOf(int rootX, int rootY) const;
    [[nodiscard]] Rect pointsOf(const PixelRect& pixels, const PixelRect& display, bool isOwn) const;
    [[nodiscard]] std::vector<X11Screen> read();
    void askForPointer();
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
                   [this](const auto&) {
                       if (pointerMoves != 0)
                           ++pointerMoves;
                   });
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

Point X11Screens::Impl::topLeftOf(int rootX, int rootY) const
{
    return {(rootX - mainPixels.x) / scale, (mainPixels.y + mainPixels.height - rootY) / scale};
}

Rect X11Screens::Impl::pointsOf(const PixelRect& pixels, const PixelRect& display, bool isOwn) const
{
    if (!isOwn) {
        const Point corner = topLeftOf(pixels.x, pixels.y);
        const double height = pixels.height / scale;
        return {corner.x, corner.y - height, pixels.width / scale, height};
    }
    const Point corner = topLeftOf(display.x, display.y);
    return {corner.x + (pixels.x - display.x), corner.y - (pixels.y - display.y) - pixels.height,
            static_cast<double>(pixels.width), static_cast<double>(pixels.height)};
}

std::vector<X11Screen> X11Screens::Impl::read()
{
    const std::vector<RandrDisplay> found = RandrDisplays(connection, layout).read();
    const RandrDisplay* main = nullptr;
    std::vector<PixelRect> real;
    for (const RandrDisplay& display : found) {
        if (display.nameAtom == ownMonitor)
            continue;
        real.push_back(display.pixels);
        if (!main || (display.isPrimary && !main->isPrimary))
            main = &display;
    }
    mainPixels = main ? main->pixels : PixelRect{};
    mainDisplay = main ? identifierOf(main->nameAtom, main->name) : 0;
    scale = displayScale(connection);

    const std::vector<PixelRect> free = workAreas.freeAreas(real);
    std::vector<X11Screen> result;
    std::size_t realIndex = 0;
    for (const RandrDisplay& display : found) {
        const bool isOwn = display.nameAtom == ownMonitor;
        const PixelRect visible = isOwn ? display.pixels : free[realIndex++];
        X11Screen entry;
        entry.pixels = display.pixels;
        entry.nameAtom = display.nameAtom;
        entry.screen.displayID = identifierOf(display.nameAtom, display.name);
        entry.screen.name = display.userName;
        entry.screen.frame = pointsOf(display.pixels, display.pixels, isOwn);
        entry.screen.visibleFrame = belowWholePoints(pointsOf(visible, display.pixels, isOwn), entry.screen.frame);
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
    if (impl_->eventPlace)
        return pointOf(impl_->eventPlace->first, impl_->eventPlace->second);
    impl_->askForPointer();
    return pointOf(impl_->pointerAnswer.rootX, impl_->pointerAnswer.rootY);
}

Subscription X11Screens::observeMouse(std::function<void()> observer)
{
    return impl_->pointerMoves == 0 ? nullptr : impl_->mouseObservers.add(std::move(observer));
}

void X11Screens::pointerMoved()
{
    ++impl_->pointerMoves;
    if (impl_->isMoveAwaited.exchange(false))
        QMetaObject::invokeMethod(
            &impl_->soon, [impl = impl_.get()] { impl->mouseObservers.notify(); }, Qt::QueuedConnection);
}

std::shared_ptr<void> X11Screens::holdMouseAt(int rootX, int rootY)
{
    impl_->eventPlace = {rootX, rootY};
    return {impl_.get(), [](Impl* impl) { impl->eventPlace.reset(); }};
}

void X11Screens::Impl::askForPointer()
{
    // Both before the server is asked, so that a move in between is not taken for part of the answer.
    isMoveAwaited = true;
    const std::uint64_t moves = pointerMoves;
    const auto now = std::chrono::steady_clock::now();
    if (moves != 0 && moves == pointerAnswer.moves && now - pointerAnswer.time < longestPointerRest)
        return;
    const Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(connection.get(), xcb_query_pointer(connection.get(), connection.root()), nullptr));
    if (pointer)
        pointerAnswer = {moves, now, pointer->root_x, pointer->root_y};
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

const X11Screen* X11Screens::screenHolding(const Rect& screenRect) const
{
    const X11Screen* best = nullptr;
    double bestArea = 0;
    for (const X11Screen& entry : screens_) {
        const Rect common = entry.screen.frame.intersectedWith(screenRect);
        const double area = common.isEmpty() ? 0 : common.width * common.height;
        if (area > bestArea) {
            best = &entry;
            bestArea = area;
        }
    }
    return best;
}

PixelRect X11Screens::pixelsOf(const Rect& screenRect) const
{
    const X11Screen* const holder = screenHolding(screenRect);
    const bool isOwn = holder && impl_->ownMonitor != XCB_ATOM_NONE && holder->nameAtom == impl_->ownMonitor;
    const PixelRect& main = impl_->mainPixels;
    const double scale = isOwn ? 1 : impl_->scale;
    // The root pixel of the point (0, 0), and for the own monitor of the point at which its own scale starts.
    const double originX = isOwn ? holder->pixels.x - holder->screen.frame.minX() : main.x;
    const double originY = isOwn ? holder->pixels.y + holder->screen.frame.maxY() : main.y + main.height;
    const int left = nearestPixel(originX + screenRect.minX() * scale);
    const int right = nearestPixel(originX + screenRect.maxX() * scale);
    const int top = nearestPixel(originY - screenRect.maxY() * scale);
    const int bottom = nearestPixel(originY - screenRect.minY() * scale);
    return {left, top, right - left, bottom - top};
}

double X11Screens::scaleAt(const Rect& screenRect) const
{
    const X11Screen* const holder = screenHolding(screenRect);
    return holder ? holder->screen.backingScaleFactor : impl_->scale;
}

Point X11Screens::pointOf(int rootX, int rootY) const
{
    for (const X11Screen& entry : screens_) {
        const PixelRect& area = entry.pixels;
        const bool isInside =
            rootX >= area.x && rootX < area.x + area.width && rootY >= area.y && rootY < area.y + area.height;
        if (isInside && impl_->ownMonitor != XCB_ATOM_NONE && entry.nameAtom == impl_->ownMonitor)
            return {entry.screen.frame.minX() + (rootX - area.x), entry.screen.frame.maxY() - (rootY - area.y)};
    }
    return impl_->topLeftOf(rootX, rootY);
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
    impl_->observers.notify();
}

} // namespace nimbrale::x11
