// The memory that the server keeps of windows, and when they have had the time to paint it.

#include "platform/x11/capture/window_stack.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <utility>
#include <xcb/composite.h>

namespace nimbrale::x11 {

namespace {

/// Plenty for a program to paint a window that was mapped or has another size.
constexpr std::chrono::milliseconds youth{500};

/// When a compositing manager goes, another mostly takes over. It puts every window into a frame of its own, which it
/// does not paint before it composites, and all programs have to paint at once.
constexpr std::chrono::milliseconds longestHandOver{5000};

} // namespace

void WindowStack::unredirect(CapturedWindow& window)
{
    releasePixmap(window);
    // Under a compositing manager the server keeps the pixels anyway.
    if (compositing_ == Compositing::running || window.isUnredirected)
        return;
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_composite_unredirect_window_checked(raw, window.id, XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    window.isUnredirected = true;
}

void WindowStack::redirect(CapturedWindow& window)
{
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_composite_redirect_window_checked(raw, window.id, XCB_COMPOSITE_REDIRECT_AUTOMATIC));
    window.isUnredirected = false;
}

void WindowStack::redirectIfSmallEnough(CapturedWindow& window)
{
    // Not while it is mapped: where own windows cover it its pixels would begin as theirs.
    if (!window.isMapped && window.isOnScreenOnly() && !window.isTooLarge())
        redirect(window);
}

void WindowStack::setCompositing(Compositing compositing)
{
    if (std::exchange(compositing_, compositing) != compositing)
        startHandOver(compositing == Compositing::absent ? longestHandOver : std::chrono::milliseconds(0));
    updateHidden();
    const bool isComposited = compositing == Compositing::running;
    for (CapturedWindow& window : order_.all()) {
        if (!isComposited && window.isMapped && (window.owner.isOwn || window.isTooLarge())) {
            unredirect(window);
        } else if (isComposited && window.isUnredirected) {
            redirect(window);
            if (window.isMapped)
                namePixmap(window);
        }
    }
}

void WindowStack::resized(CapturedWindow& window)
{
    if (window.isTooLarge())
        unredirect(window);
    redirectIfSmallEnough(window);
    filled(window);
    if (window.needsDescription || !window.isMapped || window.isInputOnly)
        return;
    namePixmap(window);
    if (window.isShaped) {
        window.needsShape = true;
        hasChangedShapes_ = true;
    }
}

void WindowStack::startHandOver(std::chrono::milliseconds time)
{
    const auto now = Clock::now();
    handOverEnd_ = now + time;
    for (YoungWindow& young : young_) {
        CapturedWindow* const window = find(young.id);
        if (window && window->youngUntil == young.until)
            window->youngUntil = endOfYouth(now);
        young.until = endOfYouth(now);
    }
}

WindowStack::Clock::time_point WindowStack::endOfYouth(Clock::time_point now) const
{
    return std::max(now + youth, handOverEnd_);
}

void WindowStack::filled(CapturedWindow& window)
{
    // The screen may have shown by then what this process has told of since.
    takePainted();
    window.youngUntil = endOfYouth(Clock::now());
    young_.push_back({window.id, *window.youngUntil});
    // One that is not redirected has the screen for its memory, in which nobody else's pixels become its own.
    if (!window.isUnredirected)
        changed(window, WindowChange::filled);
}

void WindowStack::ageWindows(Clock::time_point now)
{
    for (; !young_.empty() && young_.front().until <= now; young_.pop_front()) {
        CapturedWindow* const window = find(young_.front().id);
        // It may have gone, or have become young once more.
        if (!window || window->youngUntil != young_.front().until)
            continue;
        window->youngUntil.reset();
        changed(*window, WindowChange::settled);
    }
}

std::optional<WindowStack::Clock::time_point> WindowStack::nextAging() const
{
    return young_.empty() ? std::nullopt : std::optional(young_.front().until);
}

void WindowStack::namePixmap(CapturedWindow& window)
{
    releasePixmap(window);
    if (window.format == 0 || window.owner.isOwn)
        return;
    if (window.isTooLarge())
        unredirect(window);
    if (window.isUnredirected)
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

} // namespace nimbrale::x11
