#include "platform/x11/capture/paint_proof.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/server/manager_reminder.h"
#include "platform/x11/server/window_manager_name.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace nimbrale::x11 {

namespace {

constexpr std::uint32_t opaque = 0xff000000;
// Four of 255 in one channel or several: no eye tells it, and no compositing manager rounds it away.
constexpr std::array<std::uint32_t, 7> codes = {0x040404, 0x040000, 0x000404, 0x040004, 0x000400, 0x040400, 0x000004};
constexpr std::size_t mostPlaces = 24;

bool isSameColor(std::uint32_t first, std::uint32_t second)
{
    for (const int shift : {0, 8, 16}) {
        const int difference = int(first >> shift & 0xff) - int(second >> shift & 0xff);
        if (std::abs(difference) > 1)
            return false;
    }
    return true;
}

std::optional<std::uint32_t> pixelOf(const xcb_get_image_reply_t* image)
{
    std::uint32_t pixel = 0;
    if (!image || xcb_get_image_data_length(image) < int(sizeof pixel))
        return std::nullopt;
    std::memcpy(&pixel, xcb_get_image_data(image), sizeof pixel);
    return pixel;
}

xcb_get_image_cookie_t askForPixel(xcb_connection_t* connection, xcb_drawable_t drawable, PixelPoint point)
{
    return xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, static_cast<std::int16_t>(point.x),
                         static_cast<std::int16_t>(point.y), 1, 1, ~0U);
}

} // namespace

void PaintProof::advance(std::span<const CapturedWindow* const> panels, Clock::time_point required,
                         Clock::time_point now)
{
    const CapturedWindow* const host = panels.empty() ? nullptr : panels.back();
    if (!host || !host->painted || connection_.screen().root_depth != 24) {
        takePixel();
        return;
    }
    if (host->id != host_)
        place(*host);
    if (!pixel_ || !locate()) {
        takePixel();
        return;
    }
    if (litAt_ && isOnScreen()) {
        proven_ = std::max(proven_, seenLitAt_.value_or(proven_));
        seenLitAt_ = std::exchange(litAt_, std::nullopt);
    }
    if (required <= proven_)
        return;
    // What the panel has left stays masked until something later than that is proven, so the pixel may be waited for
    // there. Only where the panel is, another may be lit.
    PixelRegion unpainted(point_.x, point_.y, 1, 1);
    unpainted -= *host->painted;
    const bool isPainted = unpainted.isEmpty();
    if (litAt_ && (isPainted || now - *litAt_ < longestWaitOutside)) {
        if (now - toldAt_ >= patience) {
            toldAt_ = now;
            remindManager(connection_, host_, PixelRegion(point_.x, point_.y, 1, 1));
        }
        return;
    }
    if (!isPainted) {
        place(*host);
        if (!pixel_ || !locate())
            return;
    }
    reportDrawn(panels);
    light(now);
}

void PaintProof::follow(const WindowList& windows)
{
    if (!pixel_)
        return;
    const auto host = std::ranges::find(windows, host_, &CapturedWindow::id);
    if (host == windows.end() || (*host)->bounds() == hostPlace_)
        return;
    hostPlace_ = (*host)->bounds();
    if (!locate())
        takePixel();
}

void PaintProof::end()
{
    takePixel();
    drawn_.clear();
}

void PaintProof::takePixel()
{
    pixel_.reset();
    host_ = XCB_NONE;
    litAt_.reset();
    seenLitAt_.reset();
    places_.clear();
}

void PaintProof::addDrawn(xcb_window_t window, const PixelRegion& region, Clock::time_point now)
{
    drawn_.push_back({window, region, now});
}

// Before the light, so that the next one is behind both.
void PaintProof::reportDrawn(std::span<const CapturedWindow* const> panels)
{
    std::erase_if(drawn_, [this](const Drawn& drawn) { return drawn.at < proven_; });
    if (!isDamageMissed_)
        return;
    for (const CapturedWindow* const panel : panels)
        reportDamage(connection_, panel->id, PixelRegion(0, 0, panel->width, panel->height));
    for (const Drawn& drawn : drawn_)
        reportDamage(connection_, drawn.window, drawn.region);
}

PixelRegion PaintProof::reach() const
{
    std::vector<PixelRect> rects;
    rects.reserve(places_.size());
    for (const PixelPoint place : places_)
        rects.push_back({place.x, place.y, 1, 1});
    return PixelRegion(rects);
}

// In the middle of one of the rectangles that the panel has painted, if it is not translucent there. When the panel is
// resized the pixel stays on the screen where it is, as what the panel shows does.
void PaintProof::place(const CapturedWindow& host)
{
    takePixel();
    std::vector<PixelRect> rects = host.painted->rects();
    std::sort(rects.begin(), rects.end(),
              [](const PixelRect& first, const PixelRect& second) { return first.area() > second.area(); });
    constexpr std::size_t mostTries = 4;
    for (std::size_t index = 0; index < std::min(rects.size(), mostTries); ++index) {
        const PixelPoint middle{rects[index].x + rects[index].width / 2, rects[index].y + rects[index].height / 2};
        const std::optional<Color> color = colorIn(host.id, middle);
        if (!color || (host.hasAlpha && (*color & opaque) != opaque))
            continue;
        host_ = host.id;
        base_ = *color;
        isDamageMissed_ = missesDamage(windowManagerName(connection_));
        pixel_ = OwnedWindow(connection_, connection_.newId());
        const std::array<std::uint32_t, 4> values = {base_, base_, XCB_GRAVITY_STATIC, 1};
        xcb_connection_t* const raw = connection_.get();
        mayFail(raw, xcb_create_window_checked(raw, XCB_COPY_FROM_PARENT, pixel_.get(), host_,
                                               static_cast<std::int16_t>(middle.x), static_cast<std::int16_t>(middle.y),
                                               1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                                               XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_WIN_GRAVITY |
                                                   XCB_CW_OVERRIDE_REDIRECT,
                                               values.data()));
        mayFail(raw, xcb_map_window_checked(raw, pixel_.get()));
        return;
    }
}

std::optional<PaintProof::Color> PaintProof::colorIn(xcb_drawable_t drawable, PixelPoint point) const
{
    const Reply<xcb_get_image_reply_t> image(
        xcb_get_image_reply(connection_.get(), askForPixel(connection_.get(), drawable, point), nullptr));
    return pixelOf(image.get());
}

void PaintProof::light(Clock::time_point now)
{
    code_ = static_cast<unsigned>((code_ + 1) % codes.size());
    const std::uint32_t color = base_ ^ codes[code_];
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_change_window_attributes_checked(raw, pixel_.get(), XCB_CW_BACK_PIXEL, &color));
    mayFail(raw, xcb_clear_area_checked(raw, 0, pixel_.get(), 0, 0, 0, 0));
    connection_.flush();
    litAt_ = now;
    toldAt_ = now;
    places_.erase(places_.begin(), places_.end() - 1);
}

bool PaintProof::locate()
{
    xcb_connection_t* const raw = connection_.get();
    const auto geometryCookie = xcb_get_geometry(raw, pixel_.get());
    const auto cornerCookie = xcb_translate_coordinates(raw, pixel_.get(), connection_.root(), 0, 0);
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryCookie, nullptr));
    const Reply<xcb_translate_coordinates_reply_t> corner(xcb_translate_coordinates_reply(raw, cornerCookie, nullptr));
    if (!geometry || !corner)
        return false;
    point_ = {geometry->x, geometry->y};
    const PixelPoint place{corner->dst_x, corner->dst_y};
    if (!places_.empty() && places_.back() == place)
        return true;
    places_.push_back(place);
    if (places_.size() > mostPlaces)
        places_.erase(places_.begin());
    return true;
}

bool PaintProof::isOnScreen() const
{
    std::vector<xcb_get_image_cookie_t> cookies;
    cookies.reserve(places_.size());
    for (const PixelPoint place : places_)
        cookies.push_back(askForPixel(connection_.get(), connection_.root(), place));
    bool isSeen = false;
    for (const xcb_get_image_cookie_t cookie : cookies) {
        const Reply<xcb_get_image_reply_t> image(xcb_get_image_reply(connection_.get(), cookie, nullptr));
        const std::optional<Color> color = pixelOf(image.get());
        isSeen = isSeen || (color && isSameColor(*color, base_ ^ codes[code_]));
    }
    return isSeen;
}

} // namespace nimbrale::x11
