#include "platform/x11/capture/window_order.h"

#include <iterator>

namespace nimbrale::x11 {

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
    windows_.splice(before, windows_, window);
    isMappedCurrent_ = isMappedCurrent_ && !window->isMapped;
}

void WindowOrder::setMapped(CapturedWindow& window, bool isMapped)
{
    isMappedCurrent_ = isMappedCurrent_ && window.isMapped == isMapped;
    window.isMapped = isMapped;
}

const WindowList& WindowOrder::mapped()
{
    if (isMappedCurrent_)
        return mapped_;
    mapped_.clear();
    for (CapturedWindow& window : windows_) {
        if (window.isMapped)
            mapped_.push_back(&window);
    }
    isMappedCurrent_ = true;
    return mapped_;
}

} // namespace nimbrale::x11
