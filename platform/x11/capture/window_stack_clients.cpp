// What the window manager says of windows: whose they are, and whether the user sees them.

#include "platform/x11/capture/window_stack.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

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

void WindowStack::classified(CapturedWindow& window)
{
    if (window.id == exempt_)
        window.owner = {};
    else if (window.owner.isOwn)
        unredirect(window);
    else if (!window.hasPixels())
        namePixmap(window);
    if (window.owner.isOwn)
        takePainted(window);
    const bool wasHidden =
        std::exchange(window.isHidden, isHiddenByManager(window.managed, currentWorkspace_, compositing_));
    const WindowAppearance appearance = window.appearance();
    if (window.classifiedAs != appearance) {
        // Streams that showed it as what it was have to draw its place, and those that show it now.
        if (window.classifiedAs)
            window.owner = window.classifiedAs->owner;
        changed(window);
        window.owner = appearance.owner;
        changed(window, window.classifiedAs ? WindowChange::renamed : WindowChange::altered);
    }
    if (window.classifiedAs && wasHidden != window.isHidden)
        tellOfHiding(window);
    window.classifiedAs = appearance;
    window.unknownPlaces = {};
    listenToClient(window);
}

CapturedWindow* WindowStack::findManaged(xcb_window_t id)
{
    if (CapturedWindow* const window = find(id))
        return window;
    const auto found = std::find_if(windows().begin(), windows().end(),
                                    [id](const CapturedWindow* window) { return window->managed.client == id; });
    return found == windows().end() ? nullptr : *found;
}

void WindowStack::clientConfigured(xcb_window_t client)
{
    CapturedWindow* const window = findManaged(client);
    if (window && window->isMapped && !window->isInputOnly)
        askAgain(*window);
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
        client == XCB_NONE
            ? WindowEvents()
            : WindowEvents(connection_, client, XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    if (client != XCB_NONE)
        askAgain(window);
}

void WindowStack::readCurrentWorkspace()
{
    currentWorkspace_ = connection_.property32(connection_.root(), currentWorkspaceAtom_, XCB_ATOM_CARDINAL);
}

void WindowStack::updateHidden()
{
    for (CapturedWindow* const window : windows()) {
        const bool isHidden = isHiddenByManager(window->managed, currentWorkspace_, compositing_);
        if (isHidden == window->isHidden)
            continue;
        window->isHidden = isHidden;
        changed(*window, isHidden ? WindowChange::vanished : WindowChange::altered);
        tellOfHiding(*window);
    }
}

void WindowStack::tellOfHiding(const CapturedWindow& window) const
{
    if (onHiding && window.isMapped)
        onHiding(window);
}

void WindowStack::takePainted()
{
    // Asked before anything is taken: what is set meanwhile is taken the next time.
    const std::uint64_t version = painted_->version();
    if (std::exchange(paintedVersion_, version) == version)
        return;
    for (CapturedWindow* const window : windows()) {
        if (window->owner.isOwn)
            takePainted(*window);
    }
}

void WindowStack::releaseTrails(Clock::time_point now, const HeldPlaces::Progress& progress)
{
    for (CapturedWindow* const window : windows()) {
        if (window->painted)
            window->trail.release(now, progress);
        if (window->movingUntil && now >= *window->movingUntil)
            window->movingUntil.reset();
    }
}

void WindowStack::takePainted(CapturedWindow& window)
{
    const std::optional<PaintedRegions::Painted> taken = painted_->take(window.id);
    if (!taken)
        return;
    PixelRegion before(taken->sinceTaken);
    if (window.painted)
        before |= *window.painted;
    if (before != taken->now) {
        // Before the change is told of: what is left has to be proven as of then.
        window.trail.leavePaint(before, Clock::now());
        window.painted = before;
        changed(window);
    }
    window.painted = taken->now;
}

} // namespace nimbrale::x11
