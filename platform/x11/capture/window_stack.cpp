#include "platform/x11/capture/window_stack.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/shape.h>

namespace nimbrale::x11 {

namespace {

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

} // namespace

WindowStack::WindowStack(Connection& connection)
    : connection_(connection), classifier_(connection), processAtom_(connection.atom("_NET_WM_PID")),
      typeAtom_(connection.atom("_NET_WM_WINDOW_TYPE")), opacityAtom_(connection.atom("_NET_WM_WINDOW_OPACITY")),
      managedAtom_(connection.atom("WM_STATE")), stateAtom_(connection.atom("_NET_WM_STATE")),
      workspaceAtom_(connection.atom("_NET_WM_DESKTOP")), currentWorkspaceAtom_(connection.atom("_NET_CURRENT_DESKTOP"))
{
    xcb_connection_t* const raw = connection_.get();
    const std::uint32_t events =
        XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
    // With the server grabbed no window can come between the redirect and the list.
    xcb_grab_server(raw);
    xcb_change_window_attributes(raw, connection_.root(), XCB_CW_EVENT_MASK, &events);
    // Automatic redirection is granted beside a compositor's manual one, in either order.
    xcb_composite_redirect_subwindows(raw, connection_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(raw, xcb_query_tree(raw, connection_.root()), nullptr));
    const xcb_window_t* const children = tree ? xcb_query_tree_children(tree.get()) : nullptr;
    for (int index = 0; tree && index < xcb_query_tree_children_length(tree.get()); ++index)
        add(children[index]);
    xcb_ungrab_server(raw);
    readCurrentWorkspace();
    classifyNew();
    connection_.flush();
}

CapturedWindow* WindowStack::find(xcb_window_t id) const
{
    const std::size_t index = indexOf(id);
    return index == nowhere ? nullptr : windows_[index].get();
}

std::size_t WindowStack::indexOf(xcb_window_t id) const
{
    const auto found =
        std::find_if(windows_.begin(), windows_.end(), [id](const auto& item) { return item->id == id; });
    return found == windows_.end() ? nowhere : std::size_t(found - windows_.begin());
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
    if (event.parent == connection_.root())
        add(event.window);
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
    if (CapturedWindow* const window = find(event.window))
        mapped(*window);
}

void WindowStack::handleUnmap(const xcb_unmap_notify_event_t& event)
{
    if (CapturedWindow* const window = find(event.window))
        unmapped(*window);
}

void WindowStack::add(xcb_window_t id)
{
    // A window that the server made itself is the composite overlay: the whole screen, ours included.
    if ((id & ~xcb_get_setup(connection_.get())->resource_id_mask) == 0 || find(id))
        return;
    xcb_connection_t* const raw = connection_.get();
    const auto attributesCookie = xcb_get_window_attributes(raw, id);
    const auto geometryCookie = xcb_get_geometry(raw, id);
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesCookie, nullptr));
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryCookie, nullptr));
    if (!attributes || !geometry)
        return; // It vanished meanwhile; its DestroyNotify finds nothing to remove.
    auto window = std::make_unique<CapturedWindow>();
    window->id = id;
    window->x = geometry->x;
    window->y = geometry->y;
    window->width = geometry->width;
    window->height = geometry->height;
    window->borderWidth = geometry->border_width;
    window->depth = geometry->depth;
    window->format = connection_.formatOf(attributes->visual);
    window->hasAlpha = connection_.hasAlpha(window->format);
    window->isInputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
    if (!window->isInputOnly) {
        mayFail(raw, xcb_shape_select_input_checked(raw, id, 1));
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        mayFail(raw, xcb_change_window_attributes_checked(raw, id, XCB_CW_EVENT_MASK, &events));
    }
    CapturedWindow& added = *window;
    windows_.push_back(std::move(window));
    if (attributes->map_state != XCB_MAP_STATE_UNMAPPED)
        mapped(added);
}

void WindowStack::remove(xcb_window_t id)
{
    const std::size_t index = indexOf(id);
    if (index == nowhere)
        return;
    unmapped(*windows_[index]);
    windows_.erase(windows_.begin() + std::ptrdiff_t(index));
}

void WindowStack::mapped(CapturedWindow& window)
{
    window.isMapped = true;
    if (window.isInputOnly)
        return;
    window.needsClassification = true;
    window.classifiedAs.reset();
    hasUnclassified_ = true;
    readShape(window);
    namePixmap(window);
    if (window.damage == XCB_NONE && connection_.extensions().damage.isPresent) {
        window.damage = connection_.newId();
        mayFail(connection_.get(), xcb_damage_create_checked(connection_.get(), window.damage, window.id,
                                                             XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY));
    }
    window.isDamaged = false;
}

void WindowStack::unmapped(CapturedWindow& window)
{
    changed(window);
    window.isMapped = false;
    window.isDamaged = false;
    releasePixmap(window);
    if (window.damage != XCB_NONE)
        mayFail(connection_.get(), xcb_damage_destroy_checked(connection_.get(), window.damage));
    window.damage = XCB_NONE;
}

void WindowStack::classifyNew()
{
    // A client that is heard from now on may have changed since it was asked, and is asked once more.
    while (hasUnclassified_) {
        hasUnclassified_ = false;
        std::vector<CapturedWindow*> fresh;
        for (const auto& window : windows_) {
            if (window->isMapped && (window->needsClassification || window->isAskedAgain))
                fresh.push_back(window.get());
        }
        classifier_.classify(fresh);
        for (CapturedWindow* const window : fresh)
            classified(*window);
    }
}

void WindowStack::classified(CapturedWindow& window)
{
    if (window.id == exempt_)
        window.owner = {};
    else if (window.owner.isOwn)
        unredirectOwn(window);
    window.isHidden = isHiddenByManager(window.managed, currentWorkspace_, compositing_);
    const WindowAppearance appearance = window.appearance();
    if (window.classifiedAs != appearance) {
        // Streams that showed it as what it was have to draw its place, and those that show it now.
        if (window.classifiedAs)
            window.owner = window.classifiedAs->owner;
        changed(window);
        window.owner = appearance.owner;
        changed(window);
    }
    window.classifiedAs = appearance;
    listenToClient(window);
}

void WindowStack::unredirectOwn(CapturedWindow& window)
{
    releasePixmap(window);
    if (compositing_ == Compositing::running || window.isUnredirected)
        return;
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_composite_unredirect_window_checked(raw, window.id, XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    window.isUnredirected = true;
}

void WindowStack::setCompositing(Compositing compositing)
{
    compositing_ = compositing;
    updateHidden();
    const bool isComposited = compositing == Compositing::running;
    xcb_connection_t* const raw = connection_.get();
    for (const auto& window : windows_) {
        if (!isComposited && window->owner.isOwn && window->isMapped) {
            unredirectOwn(*window);
        } else if (isComposited && window->isUnredirected) {
            mayFail(raw, xcb_composite_redirect_window_checked(raw, window->id, XCB_COMPOSITE_REDIRECT_AUTOMATIC));
            window->isUnredirected = false;
        }
    }
}

void WindowStack::handleConfigure(const xcb_configure_notify_event_t& event)
{
    const std::size_t index = indexOf(event.window);
    if (index == nowhere)
        return;
    CapturedWindow& window = *windows_[index];
    const bool isMoved = window.x != event.x || window.y != event.y;
    const bool isResized =
        window.width != event.width || window.height != event.height || window.borderWidth != event.border_width;
    const xcb_window_t below = index == 0 ? XCB_NONE : windows_[index - 1]->id;
    const bool isRestacked = below != event.above_sibling;
    if (!isMoved && !isResized && !isRestacked)
        return;
    changed(window);
    window.x = event.x;
    window.y = event.y;
    window.width = event.width;
    window.height = event.height;
    window.borderWidth = event.border_width;
    if (isResized) {
        if (window.isMapped && !window.isInputOnly && !window.owner.isOwn)
            namePixmap(window);
        if (window.isShaped)
            readShape(window);
    }
    placeAbove(index, event.above_sibling);
    changed(window);
}

void WindowStack::handleCirculate(const xcb_circulate_notify_event_t& event)
{
    const std::size_t index = indexOf(event.window);
    if (index == nowhere)
        return;
    placeAbove(index, event.place == XCB_PLACE_ON_TOP ? windows_.back()->id : xcb_window_t(XCB_NONE));
    if (const CapturedWindow* const window = find(event.window))
        changed(*window);
}

void WindowStack::placeAbove(std::size_t index, xcb_window_t sibling)
{
    if (windows_[index]->id == sibling)
        return;
    std::unique_ptr<CapturedWindow> window = std::move(windows_[index]);
    windows_.erase(windows_.begin() + std::ptrdiff_t(index));
    // A sibling that is not listed is one that the server made itself, the overlay above all others.
    std::size_t position = 0;
    if (sibling != XCB_NONE) {
        const std::size_t at = indexOf(sibling);
        position = at == nowhere ? windows_.size() : at + 1;
    }
    windows_.insert(windows_.begin() + std::ptrdiff_t(position), std::move(window));
}

void WindowStack::handleReparent(const xcb_reparent_notify_event_t& event)
{
    if (event.parent == connection_.root()) {
        add(event.window);
        return;
    }
    const CapturedWindow* const window = find(event.window);
    if (!window)
        return;
    // A window manager puts its frame around an own window: the frame is own from this moment on, whoever made it.
    CapturedWindow* const frame = find(event.parent);
    if (frame && window->owner.isOwn && !window->needsClassification) {
        changed(*frame);
        frame->owner = window->owner;
    } else if (frame) {
        askAgain(*frame);
    }
    remove(event.window);
}

void WindowStack::handleProperty(const xcb_property_notify_event_t& event)
{
    if (event.window == connection_.root()) {
        if (event.atom != currentWorkspaceAtom_)
            return;
        readCurrentWorkspace();
        updateHidden();
        return;
    }
    constexpr auto isOneOf = [](xcb_atom_t atom, auto... atoms) { return ((atom == atoms) || ...); };
    if (!isOneOf(event.atom, processAtom_, typeAtom_, opacityAtom_, managedAtom_, stateAtom_, workspaceAtom_))
        return;
    CapturedWindow* const window = findManaged(event.window);
    if (window && window->isMapped && !window->isInputOnly)
        askAgain(*window);
}

CapturedWindow* WindowStack::findManaged(xcb_window_t id) const
{
    const auto found = std::find_if(windows_.begin(), windows_.end(),
                                    [id](const auto& item) { return item->id == id || item->managed.client == id; });
    return found == windows_.end() ? nullptr : found->get();
}

void WindowStack::askAgain(CapturedWindow& window)
{
    window.isAskedAgain = true;
    hasUnclassified_ = true;
}

void WindowStack::listenToClient(CapturedWindow& window)
{
    const xcb_window_t client = window.managed.client == window.id ? xcb_window_t{XCB_NONE} : window.managed.client;
    if (client == window.clientEvents.window())
        return;
    window.clientEvents =
        client == XCB_NONE ? WindowEvents() : WindowEvents(connection_, client, XCB_EVENT_MASK_PROPERTY_CHANGE);
    if (client != XCB_NONE)
        askAgain(window);
}

void WindowStack::readCurrentWorkspace()
{
    currentWorkspace_ = connection_.property32(connection_.root(), currentWorkspaceAtom_, XCB_ATOM_CARDINAL);
}

void WindowStack::updateHidden()
{
    for (const auto& window : windows_) {
        const bool isHidden = isHiddenByManager(window->managed, currentWorkspace_, compositing_);
        if (isHidden == window->isHidden)
            continue;
        changed(*window);
        window->isHidden = isHidden;
        changed(*window);
    }
}

void WindowStack::handleShape(const xcb_shape_notify_event_t& event)
{
    CapturedWindow* const window = find(event.affected_window);
    if (!window || event.shape_kind != XCB_SHAPE_SK_BOUNDING)
        return;
    changed(*window);
    readShape(*window);
    changed(*window);
}

void WindowStack::readShape(CapturedWindow& window)
{
    xcb_connection_t* const raw = connection_.get();
    window.isShaped = false;
    const auto extentsCookie = xcb_shape_query_extents(raw, window.id);
    const auto rectsCookie = xcb_shape_get_rectangles(raw, window.id, XCB_SHAPE_SK_BOUNDING);
    const Reply<xcb_shape_query_extents_reply_t> extents(xcb_shape_query_extents_reply(raw, extentsCookie, nullptr));
    const Reply<xcb_shape_get_rectangles_reply_t> rects(xcb_shape_get_rectangles_reply(raw, rectsCookie, nullptr));
    if (!extents || !rects || !extents->bounding_shaped)
        return;
    window.isShaped = true;
    window.shape.clear();
    const int border = window.borderWidth;
    const xcb_rectangle_t* const list = xcb_shape_get_rectangles_rectangles(rects.get());
    for (int index = 0; index < xcb_shape_get_rectangles_rectangles_length(rects.get()); ++index)
        window.shape.add(list[index].x + border, list[index].y + border, list[index].width, list[index].height);
    window.shape &= PixelRegion(0, 0, window.width + 2 * border, window.height + 2 * border);
}

void WindowStack::namePixmap(CapturedWindow& window)
{
    releasePixmap(window);
    if (window.format == 0)
        return;
    xcb_connection_t* const raw = connection_.get();
    window.pixmap = connection_.newId();
    mayFail(raw, xcb_composite_name_window_pixmap_checked(raw, window.id, window.pixmap));
    window.picture = connection_.newId();
    mayFail(raw, xcb_render_create_picture_checked(raw, window.picture, window.pixmap, window.format, 0, nullptr));
}

void WindowStack::releasePixmap(CapturedWindow& window)
{
    xcb_connection_t* const raw = connection_.get();
    if (window.picture != XCB_NONE)
        mayFail(raw, xcb_render_free_picture_checked(raw, window.picture));
    if (window.pixmap != XCB_NONE)
        mayFail(raw, xcb_free_pixmap_checked(raw, window.pixmap));
    window.picture = XCB_NONE;
    window.pixmap = XCB_NONE;
}

void WindowStack::changed(const CapturedWindow& window)
{
    if (onChange && window.isMapped && !window.isInputOnly && !window.needsClassification)
        onChange(window);
}

} // namespace nimbrale::x11
