#include "platform/x11/capture/window_stack.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_maker.h"

#include <utility>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shape.h>

namespace nimbrale::x11 {

WindowStack::WindowStack(Connection& connection, std::shared_ptr<PaintedRegions> painted)
    : connection_(connection), painted_(std::move(painted)), describer_(connection), classifier_(connection),
      processAtom_(connection.atom("_NET_WM_PID")), typeAtom_(connection.atom("_NET_WM_WINDOW_TYPE")),
      opacityAtom_(connection.atom("_NET_WM_WINDOW_OPACITY")), managedAtom_(connection.atom("WM_STATE")),
      stateAtom_(connection.atom("_NET_WM_STATE")), workspaceAtom_(connection.atom("_NET_WM_DESKTOP")),
      currentWorkspaceAtom_(connection.atom("_NET_CURRENT_DESKTOP"))
{
    xcb_connection_t* const raw = connection_.get();
    const std::uint32_t events =
        XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    // With the server grabbed no window can come between the redirect and the list.
    xcb_grab_server(raw);
    xcb_change_window_attributes(raw, connection_.root(), XCB_CW_EVENT_MASK, &events);
    // Automatic redirection is granted beside a compositor's manual one, in either order.
    xcb_composite_redirect_subwindows(raw, connection_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    const auto treeCookie = xcb_query_tree(raw, connection_.root());
    xcb_ungrab_server(raw);
    const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(raw, treeCookie, nullptr));
    if (tree) {
        const xcb_window_t* const children = xcb_query_tree_children(tree.get());
        addExisting({children, children + xcb_query_tree_children_length(tree.get())});
    }
    readCurrentWorkspace();
    classifyNew();
    connection_.flush();
}

// Whatever happens after the list was made is told by events, which come to the same as what is asked now.
void WindowStack::addExisting(const std::vector<xcb_window_t>& ids)
{
    const std::vector<bool> areMapped = describer_.areMapped(ids);
    for (std::size_t index = 0; index < ids.size(); ++index) {
        CapturedWindow* const window = add(ids[index]);
        if (window && areMapped[index])
            mapped(*window);
    }
}

template <typename Event>
void WindowStack::subscribe(EventRoutes& events, int type, void (WindowStack::*handler)(const Event&))
{
    subscriptions_.push_back(events.add(
        {type}, [this, handler](const xcb_generic_event_t& event) { (this->*handler)(eventAs<Event>(event)); }));
}

void WindowStack::registerHandlers(EventRoutes& events)
{
    subscribe(events, connection_.extensions().shape.firstEvent + XCB_SHAPE_NOTIFY, &WindowStack::handleShape);
    subscribe(events, XCB_CREATE_NOTIFY, &WindowStack::handleCreate);
    subscribe(events, XCB_DESTROY_NOTIFY, &WindowStack::handleDestroy);
    subscribe(events, XCB_MAP_NOTIFY, &WindowStack::handleMap);
    subscribe(events, XCB_UNMAP_NOTIFY, &WindowStack::handleUnmap);
    subscribe(events, XCB_REPARENT_NOTIFY, &WindowStack::handleReparent);
    subscribe(events, XCB_CONFIGURE_NOTIFY, &WindowStack::handleConfigure);
    subscribe(events, XCB_CIRCULATE_NOTIFY, &WindowStack::handleCirculate);
    subscribe(events, XCB_PROPERTY_NOTIFY, &WindowStack::handleProperty);
}

void WindowStack::handleCreate(const xcb_create_notify_event_t& event)
{
    if (event.parent != connection_.root())
        return;
    CapturedWindow* const window = add(event.window);
    if (!window)
        return;
    window->x = event.x;
    window->y = event.y;
    window->width = event.width;
    window->height = event.height;
    window->borderWidth = event.border_width;
    // Mostly it is not mapped yet, and the server never takes the memory.
    if (window->isTooLarge())
        unredirect(*window);
}

void WindowStack::handleDestroy(const xcb_destroy_notify_event_t& event)
{
    // The server has freed the damage with the window; only the record goes.
    if (CapturedWindow* const window = find(event.window))
        window->damage = XCB_NONE;
    remove(event.window);
}

void WindowStack::handleMap(const xcb_map_notify_event_t& event)
{
    CapturedWindow* const window = find(event.window);
    if (!window)
        return;
    mapped(*window);
    filled(*window);
}

void WindowStack::handleUnmap(const xcb_unmap_notify_event_t& event)
{
    CapturedWindow* const window = find(event.window);
    if (!window)
        return;
    unmapped(*window);
    redirectIfSmallEnough(*window);
}

CapturedWindow* WindowStack::add(xcb_window_t id)
{
    if (makerOf(connection_, id) == WindowMaker::server)
        return nullptr;
    CapturedWindow* const known = find(id);
    return known ? known : &order_.add(id);
}

void WindowStack::remove(xcb_window_t id)
{
    CapturedWindow* const window = find(id);
    if (!window)
        return;
    unmapped(*window);
    order_.remove(id);
}

void WindowStack::mapped(CapturedWindow& window)
{
    order_.setMapped(window, true);
    window.youngUntil.reset();
    window.owner = {};
    window.painted.reset();
    window.classifiedAs.reset();
    window.needsDescription = true;
    window.needsClassification = true;
    hasUnclassified_ = true;
}

void WindowStack::unmapped(CapturedWindow& window)
{
    changed(window, WindowChange::vanished);
    window.trail.clear();
    window.unknownPlaces = {};
    order_.setMapped(window, false);
    window.isDamaged = false;
    releasePixmap(window);
    if (window.damage != XCB_NONE)
        mayFail(connection_.get(), xcb_damage_destroy_checked(connection_.get(), window.damage));
    window.damage = XCB_NONE;
}

void WindowStack::classifyNew()
{
    if (std::exchange(hasChangedShapes_, false))
        readChangedShapes();
    // A client that is heard from now on may have changed since it was asked, and is asked once more.
    while (std::exchange(hasUnclassified_, false)) {
        describeNew();
        const std::vector<CapturedWindow*> fresh = mappedWhere([](const CapturedWindow& window) {
            return (window.needsClassification || window.isAskedAgain) && !window.needsDescription &&
                   !window.isInputOnly;
        });
        classifier_.classify(fresh);
        for (CapturedWindow* const window : fresh)
            classified(*window);
    }
}

template <typename Test>
std::vector<CapturedWindow*> WindowStack::mappedWhere(Test test)
{
    std::vector<CapturedWindow*> found;
    for (CapturedWindow* const window : windows()) {
        if (test(*window))
            found.push_back(window);
    }
    return found;
}

void WindowStack::describeNew()
{
    const auto fresh = mappedWhere([](const CapturedWindow& window) { return window.needsDescription; });
    for (CapturedWindow* const window : describer_.describe(fresh)) {
        if (window->isInputOnly)
            continue;
        namePixmap(*window);
        watchDamage(*window);
    }
}

void WindowStack::readChangedShapes()
{
    const auto changedWindows = mappedWhere([](const CapturedWindow& window) { return window.needsShape; });
    describer_.readShapes(changedWindows);
    for (const CapturedWindow* const window : changedWindows)
        changed(*window);
}

void WindowStack::watchDamage(CapturedWindow& window)
{
    if (window.damage != XCB_NONE || !connection_.extensions().damage.isPresent)
        return;
    window.damage = connection_.newId();
    mayFail(connection_.get(),
            xcb_damage_create_checked(connection_.get(), window.damage, window.id, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY));
}

void WindowStack::handleConfigure(const xcb_configure_notify_event_t& event)
{
    CapturedWindow* const found = find(event.window);
    if (!found) {
        clientConfigured(event.window);
        return;
    }
    CapturedWindow& window = *found;
    const bool isMoved = window.x != event.x || window.y != event.y;
    const bool isResized =
        window.width != event.width || window.height != event.height || window.borderWidth != event.border_width;
    const bool isRestacked = order_.below(window.id) != event.above_sibling;
    if (!isMoved && !isResized && !isRestacked)
        return;
    changed(window);
    if (window.painted && isResized)
        window.trail.leaveSize(window.bounds(), Clock::now());
    else if (window.painted && isMoved)
        window.trail.leavePlace(window.bounds(), Clock::now());
    else if (isMoved && window.managed.client != XCB_NONE)
        window.movingUntil = Clock::now() + HeldPlaces::longestLag;
    if (window.needsClassification && window.isMapped && (isMoved || isResized))
        window.unknownPlaces.add(window.reach(), Clock::now(), {});
    window.x = event.x;
    window.y = event.y;
    window.width = event.width;
    window.height = event.height;
    window.borderWidth = event.border_width;
    if (isResized)
        resized(window);
    if (isRestacked)
        order_.placeAbove(window.id, event.above_sibling);
    changed(window);
}

void WindowStack::handleCirculate(const xcb_circulate_notify_event_t& event)
{
    const CapturedWindow* const window = find(event.window);
    if (!window)
        return;
    if (event.place == XCB_PLACE_ON_TOP)
        order_.placeOnTop(event.window);
    else
        order_.placeAbove(event.window, XCB_NONE);
    changed(*window);
}

void WindowStack::handleReparent(const xcb_reparent_notify_event_t& event)
{
    if (event.parent == connection_.root()) {
        // It is on top of all now, even if it was a child of the root before, and redirected like a new one.
        remove(event.window);
        if (CapturedWindow* const window = add(event.window)) {
            window->x = event.x;
            window->y = event.y;
        }
        return;
    }
    const CapturedWindow* const window = find(event.window);
    if (!window)
        return;
    // A window manager puts its frame around an own window: the frame is own from this moment on, whoever made it.
    // A panel of the desktop that takes in an icon stays what it is.
    CapturedWindow* const parent = find(event.parent);
    CapturedWindow* const frame = parent && !parent->owner.isDock ? parent : nullptr;
    if (frame && window->owner.isOwn && !window->needsClassification) {
        changed(*frame);
        frame->owner = window->owner;
    } else if (frame) {
        askAgain(*frame);
    }
    remove(event.window);
}

void WindowStack::handleShape(const xcb_shape_notify_event_t& event)
{
    CapturedWindow* const window = find(event.affected_window);
    if (!window || event.shape_kind != XCB_SHAPE_SK_BOUNDING)
        return;
    changed(*window);
    window->needsShape = true;
    hasChangedShapes_ = true;
}

void WindowStack::changed(const CapturedWindow& window, WindowChange change)
{
    if (onChange && window.isMapped && !window.isInputOnly)
        onChange(window, change);
}

} // namespace nimbrale::x11
