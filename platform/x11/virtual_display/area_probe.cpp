#include "platform/x11/virtual_display/area_probe.h"

#include "platform/x11/server/handles.h"

#include <bit>
#include <chrono>
#include <cstring>
#include <random>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Compositing managers take a frame or two, and much more on a busy computer.
constexpr auto lookInterval = 50ms;
constexpr int looks = 60;
// Longer than any compositing manager was seen to take to draw what changed.
constexpr int sightsAgainstRival = 8;

/// 24 of 255, as a channel with that mask holds it.
std::uint32_t bitsWhenOn(std::uint32_t mask)
{
    const std::uint32_t highest = std::bit_floor(mask);
    return (highest >> 3 | highest >> 4) & mask;
}

const xcb_visualtype_t* rootVisual(const xcb_screen_t& screen)
{
    for (auto depth = xcb_screen_allowed_depths_iterator(&screen); depth.rem; xcb_depth_next(&depth)) {
        for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem; xcb_visualtype_next(&visual)) {
            if (visual.data->visual_id == screen.root_visual)
                return visual.data;
        }
    }
    return nullptr;
}

int bytesPerPixel(xcb_connection_t* connection, int depth)
{
    for (auto format = xcb_setup_pixmap_formats_iterator(xcb_get_setup(connection)); format.rem;
         xcb_format_next(&format)) {
        if (format.data->depth == depth)
            return format.data->bits_per_pixel / 8;
    }
    return 4;
}

} // namespace

AreaProbe::AreaProbe(Connection& connection, MainQueue& mainQueue, const PixelRect& area, const Spot& spot,
                     const std::optional<Spot>& rival, std::function<void(bool)> onResult)
    : connection_(connection), mainQueue_(mainQueue), onResult_(std::move(onResult)),
      x_(area.x + area.width - pixelCount), y_(area.y + area.height - 1), looksLeft_(looks),
      sightsLeft_(rival ? sightsAgainstRival : 1)
{
    chooseColors();
    if (rival)
        rival_ = show(*rival, rivalColors_);
    window_ = show(spot, colors_);
    connection_.flush();
    lookLater();
}

// Every channel is off or at a tenth, which no rounding turns into each other and which a viewer does not notice;
// random, so that a stale picture cannot be right by chance.
void AreaProbe::chooseColors()
{
    const xcb_visualtype_t* const visual = rootVisual(connection_.screen());
    if (!visual)
        return;
    const std::array<std::uint32_t, 3> channels = {visual->red_mask, visual->green_mask, visual->blue_mask};
    for (const std::uint32_t channel : channels)
        significantBits_ |= std::bit_floor(bitsWhenOn(channel));
    std::random_device random;
    for (std::size_t index = 0; index < pixelCount; ++index) {
        const unsigned bits = random();
        for (std::size_t channel = 0; channel < channels.size(); ++channel) {
            Pixels& whereOn = (bits >> channel & 1U) ? colors_ : rivalColors_;
            whereOn[index] |= bitsWhenOn(channels[channel]);
        }
    }
}

OwnedWindow AreaProbe::show(const Spot& spot, const Pixels& colors) const
{
    xcb_connection_t* const raw = connection_.get();
    const xcb_screen_t& screen = connection_.screen();
    OwnedWindow window(connection_, connection_.newId());
    const OwnedPixmap pixmap(connection_, connection_.newId());
    const OwnedGraphicsContext context(connection_, connection_.newId());
    xcb_create_pixmap(raw, screen.root_depth, pixmap.get(), connection_.root(), pixelCount, 1);
    xcb_create_gc(raw, context.get(), pixmap.get(), 0, nullptr);
    for (std::size_t index = 0; index < pixelCount; ++index) {
        xcb_change_gc(raw, context.get(), XCB_GC_FOREGROUND, &colors[index]);
        const xcb_rectangle_t pixel = {static_cast<std::int16_t>(index), 0, 1, 1};
        xcb_poly_fill_rectangle(raw, pixmap.get(), context.get(), 1, &pixel);
    }
    const std::array<std::uint32_t, 4> values = {pixmap.get(), screen.black_pixel, 1, screen.default_colormap};
    mayFail(raw,
            xcb_create_window_checked(
                raw, screen.root_depth, window.get(), spot.parent, static_cast<std::int16_t>(x_ - spot.x),
                static_cast<std::int16_t>(y_ - spot.y), pixelCount, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                screen.root_visual,
                XCB_CW_BACK_PIXMAP | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP, values.data()));
    mayFail(raw, xcb_map_window_checked(raw, window.get()));
    return window;
}

void AreaProbe::drawRival() const
{
    if (!rival_)
        return;
    mayFail(connection_.get(), xcb_clear_area_checked(connection_.get(), 0, rival_.get(), 0, 0, 0, 0));
    connection_.flush();
}

void AreaProbe::lookLater()
{
    timer_ = mainQueue_.schedule(lookInterval, [this] { look(); });
}

void AreaProbe::look()
{
    const bool wasSeen = isSeen();
    const bool wasLost = !wasSeen && rival_ && sightsLeft_ < sightsAgainstRival;
    sightsLeft_ -= wasSeen ? 1 : 0;
    --looksLeft_;
    if (sightsLeft_ > 0 && looksLeft_ > 0 && !wasLost) {
        drawRival();
        lookLater();
        return;
    }
    const auto onResult = std::move(onResult_);
    onResult(sightsLeft_ == 0);
}

bool AreaProbe::isSeen() const
{
    xcb_connection_t* const raw = connection_.get();
    const Reply<xcb_get_image_reply_t> image(xcb_get_image_reply(
        raw,
        xcb_get_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, connection_.root(), static_cast<std::int16_t>(x_),
                      static_cast<std::int16_t>(y_), pixelCount, 1, ~0U),
        nullptr));
    if (!image)
        return false;
    const auto size = static_cast<std::size_t>(bytesPerPixel(raw, image->depth));
    const std::uint8_t* const data = xcb_get_image_data(image.get());
    if (static_cast<std::size_t>(xcb_get_image_data_length(image.get())) < size * pixelCount)
        return false;
    for (std::size_t index = 0; index < pixelCount; ++index) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, data + index * size, size);
        if (((pixel ^ colors_[index]) & significantBits_) != 0)
            return false;
    }
    return true;
}

} // namespace nimbrale::x11
