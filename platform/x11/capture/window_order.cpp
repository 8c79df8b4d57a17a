#include "platform/x11/capture/window_order.h"

#include <algorithm>
#include <iterator>

namespace nimbrale::x11 {

namespace {

/// Between two windows when one comes to an end of the order: many can come to lie between them, and a window can come
/// to an end a thousand times a second for years.
constexpr std::int64_t rankStep = std::int64_t{1} << 24;

} // namespace

CapturedWindow* WindowOrder::find(xcb_window_t id)
{
    const auto place = places_.find(id);
    return place == places_.end() ? nullptr : &*place->second;
}

xcb_window_t WindowOrder::below(xcb_window_t id) const
{
    const Windows::const_iterator window = places_.at(id);
    return window == windows_.begin() ? xcb_window_t{XCB_NONE} : std::prev(window)->id;
}

CapturedWindow& WindowOrder::add(xcb_window_t id)
{
    CapturedWindow& window = windows_.emplace_back();
    window.id = id;
    places_.emplace(id, std::prev(windows_.end()));
    rank(std::prev(windows_.end()));
    return window;
}

void WindowOrder::remove(xcb_window_t id)
{
    const auto place = places_.find(id);
    if (place == places_.end())
        return;
    setMapped(*place->second, false);
    windows_.erase(place->second);
    places_.erase(place);
}

void WindowOrder::placeAbove(xcb_window_t id, xcb_window_t sibling)
{
    const auto place = places_.find(sibling);
    if (sibling == XCB_NONE)
        this->place(places_.at(id), windows_.begin());
    else if (place == places_.end())
        placeOnTop(id);
    else if (sibling != id)
        this->place(places_.at(id), std::next(place->second));
}

void WindowOrder::placeOnTop(xcb_window_t id)
{
    place(places_.at(id), windows_.end());
}

void WindowOrder::place(Windows::iterator window, Windows::iterator before)
{
    if (before == window || before == std::next(window))
        return;
    if (window->isMapped)
        unlistMapped(*window);
    windows_.splice(before, windows_, window);
    rank(window);
    if (window->isMapped)
        listMapped(*window);
}

void WindowOrder::rank(Windows::iterator window)
{
    const bool isLowest = window == windows_.begin();
    const auto next = std::next(window);
    if (isLowest || next == windows_.end()) {
        if (!isLowest)
            window->rank = std::prev(window)->rank + rankStep;
        else if (next != windows_.end())
            window->rank = next->rank - rankStep;
        return;
    }
    const std::int64_t below = std::prev(window)->rank;
    window->rank = below + (next->rank - below) / 2;
    if (window->rank == below)
        rankAll();
}

// Seldom: only after windows have come to lie between the same two again and again.
void WindowOrder::rankAll()
{
    std::int64_t rank = 0;
    for (CapturedWindow& window : windows_)
        window.rank = rank += rankStep;
}

void WindowOrder::listMapped(CapturedWindow& window)
{
    mapped_.insert(std::ranges::upper_bound(mapped_, window.rank, {}, &CapturedWindow::rank), &window);
}

void WindowOrder::unlistMapped(const CapturedWindow& window)
{
    mapped_.erase(std::ranges::lower_bound(mapped_, window.rank, {}, &CapturedWindow::rank));
}

void WindowOrder::setMapped(CapturedWindow& window, bool isMapped)
{
    if (window.isMapped == isMapped)
        return;
    window.isMapped = isMapped;
    if (isMapped)
        listMapped(window);
    else
        unlistMapped(window);
}

} // namespace nimbrale::x11
