#include "platform/x11/panels/panel_holes.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/hidden_window_rule.h"
#include "platform/x11/server/window_attributes.h"
#include "platform/x11/server/window_manager_name.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

PanelHoles::PanelHoles(Connection& connection, EventDispatcher& events, MainQueue& queue,
                       CompositingWatcher& compositing)
    : connection_(connection), queue_(queue), frameAtom_(connection.atom("_NET_FRAME_EXTENTS")),
      stateAtom_(connection.atom("_NET_WM_STATE")), hiddenAtom_(connection.atom("_NET_WM_STATE_HIDDEN")),
      workspaceAtom_(connection.atom("_NET_WM_DESKTOP")),
      currentWorkspaceAtom_(connection.atom("_NET_CURRENT_DESKTOP")),
      rootEvents_(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE),
      handler_(
          events.add({XCB_DESTROY_NOTIFY, XCB_UNMAP_NOTIFY, XCB_MAP_NOTIFY, XCB_REPARENT_NOTIFY, XCB_CONFIGURE_NOTIFY},
                     [this](const auto&) { scheduleUpdate(); })),
      propertyHandler_(events.add({XCB_PROPERTY_NOTIFY},
                                  [this](const auto& event) {
                                      const xcb_atom_t changed = eventAs<xcb_property_notify_event_t>(event).atom;
                                      if (changed == frameAtom_ || changed == stateAtom_ || changed == workspaceAtom_ ||
                                          changed == currentWorkspaceAtom_)
                                          scheduleUpdate();
                                  })),
      compositingChange_(compositing.observeChanges([this] {
          askManager();
          scheduleUpdate();
      }))
{}

Subscription PanelHoles::makeFor(xcb_window_t window)
{
    if (windows_.empty())
        askManager();
    windows_.emplace_back(connection_, window, XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE);
    update();
    return {this, [alive = std::weak_ptr(alive_), window](PanelHoles* holes) {
                if (alive.expired())
                    return;
                holes->windows_.erase(std::find_if(holes->windows_.begin(), holes->windows_.end(),
                                                   [&](const auto& one) { return one.window() == window; }));
                holes->update();
            }};
}

void PanelHoles::askManager()
{
    areNeeded_ = drawsUnmanagedWindowsInFront(windowManagerName(connection_));
}

// A window that is dragged tells of each step; all that came at once count as one.
void PanelHoles::scheduleUpdate()
{
    if (windows_.empty() || std::exchange(isUpdatePosted_, true))
        return;
    queue_.post([this, alive = std::weak_ptr(alive_)] {
        if (alive.expired())
            return;
        isUpdatePosted_ = false;
        update();
    });
}

void PanelHoles::update()
{
    PixelRegion region;
    if (areNeeded_) {
        for (const WindowEvents& one : windows_)
            region.add(placeOf(one.window()));
    }
    if (region == region_)
        return;
    region_ = region;
    observers_.notify();
}

PixelRect PanelHoles::placeOf(xcb_window_t window)
{
    xcb_connection_t* const raw = connection_.get();
    const auto attributesCookie = xcb_get_window_attributes(raw, window);
    const auto geometryCookie = xcb_get_geometry(raw, window);
    const auto cornerCookie = xcb_translate_coordinates(raw, window, connection_.root(), 0, 0);
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesCookie, nullptr));
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryCookie, nullptr));
    const Reply<xcb_translate_coordinates_reply_t> corner(xcb_translate_coordinates_reply(raw, cornerCookie, nullptr));
    if (!geometry || !corner || !isViewable(attributes) || isHidden(window))
        return {};
    std::vector<std::uint32_t> frame = connection_.numbers32(window, frameAtom_, XCB_ATOM_CARDINAL);
    frame.resize(4);
    const int left = static_cast<int>(frame[0]);
    const int right = static_cast<int>(frame[1]);
    const int top = static_cast<int>(frame[2]);
    const int bottom = static_cast<int>(frame[3]);
    return {corner->dst_x - left, corner->dst_y - top, left + geometry->width + right, top + geometry->height + bottom};
}

bool PanelHoles::isHidden(xcb_window_t window)
{
    const std::vector<std::uint32_t> states = connection_.numbers32(window, stateAtom_, XCB_ATOM_ATOM);
    ManagedState state;
    state.client = window;
    state.isHidden = std::find(states.begin(), states.end(), hiddenAtom_) != states.end();
    state.workspace = connection_.property32(window, workspaceAtom_, XCB_ATOM_CARDINAL);
    const std::optional<std::uint32_t> currentWorkspace =
        connection_.property32(connection_.root(), currentWorkspaceAtom_, XCB_ATOM_CARDINAL);
    // Nothing is left out but in panels that are composited.
    return isHiddenByManager(state, currentWorkspace, Compositing::running);
}

} // namespace nimbrale::x11
