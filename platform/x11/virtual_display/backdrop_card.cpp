#include "platform/x11/virtual_display/backdrop_card.h"

#include "platform/message_card.h"
#include "platform/x11/server/handles.h"

#include <QCoreApplication>
#include <QPainter>

#include <algorithm>
#include <array>
#include <utility>

namespace nimbrale::x11 {

namespace {

// Requests of this size pass on every server, whatever extension it lacks.
constexpr int bytesPerUpload = 200'000;

QString cardText()
{
    return QCoreApplication::translate("BackdropCard", "Sharing has stopped");
}

// Until it is put in its place.
constexpr PixelRect firstPlace{-1, -1, 1, 1};

// Any client can have destroyed a window that something is asked of here.
void place(Connection& connection, xcb_window_t window, const PixelRect& pixels)
{
    const std::array<std::uint32_t, 4> values = {
        static_cast<std::uint32_t>(pixels.x), static_cast<std::uint32_t>(pixels.y),
        static_cast<std::uint32_t>(pixels.width), static_cast<std::uint32_t>(pixels.height)};
    mayFail(connection.get(), xcb_configure_window_checked(connection.get(), window,
                                                           XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                                                               XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                                                           values.data()));
}

} // namespace

QImage BackdropCard::picture(int displayWidth, int displayHeight)
{
    const MessageCard card(cardText(), displayWidth, displayHeight);
    if (card.size().isEmpty())
        return {};
    QImage image(card.size(), QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    card.draw(painter, {0, 0});
    return image;
}

BackdropCard::BackdropCard(Connection& connection, EventDispatcher& events, MainQueue& queue, VirtualArea& area,
                           std::string displayName)
    : connection_(connection), events_(events), queue_(queue), area_(area), displayName_(std::move(displayName))
{
    make();
    area_.add(shade_.window, AreaRole::shade);
    area_.add(card_.window, AreaRole::backdrop);
    xcb_map_window(connection_.get(), shade_.window);
    xcb_map_window(connection_.get(), card_.window);
    connection_.flush();
    guard([this] {
        return WindowGuard::Wanted{.window = shade_.window,
                                   .isShown = true,
                                   .parent = connection_.root(),
                                   .pixels = placeOf(AreaRole::shade, area_.pixels())};
    });
    guard([this] {
        return WindowGuard::Wanted{.window = card_.window,
                                   .isShown = true,
                                   .parent = area_.parent(),
                                   .pixels = placeOf(AreaRole::backdrop, area_.pixels())};
    });
    guard([this] {
        return WindowGuard::Wanted{.window = text_.window,
                                   .isShown = textPixels_ != firstPlace,
                                   .parent = card_.window,
                                   .pixels = textPixels_};
    });
}

BackdropCard::~BackdropCard()
{
    guards_.clear();
    // Where the application is cut off from the display, the card stays until the display is removed.
    if (connection_.isLost() || isLeft_)
        return;
    for (const xcb_window_t window : {card_.window, shade_.window}) {
        area_.remove(window);
        // Any client can have destroyed it before.
        mayFail(connection_.get(), xcb_destroy_window_checked(connection_.get(), window));
    }
    connection_.synchronize();
    if (lasting_)
        lasting_->removeWindows();
}

bool BackdropCard::leave()
{
    if (!lasting_ || lasting_->isLost())
        return false;
    guards_.clear();
    isLeft_ = true;
    return true;
}

void BackdropCard::make()
{
    if (!lasting_ || lasting_->isLost())
        lasting_ = LastingConnection::open(displayName_);
    shade_ = makePart(connection_.root());
    card_ = makePart(connection_.root());
    if (lasting_)
        lasting_->mark(connection_, card_.window);
    text_ = makePart(card_.window);
    textPixels_ = firstPlace;
}

BackdropCard::Part BackdropCard::makePart(xcb_window_t parent)
{
    xcb_connection_t* const raw = lasting_ ? lasting_->get() : connection_.get();
    const xcb_window_t window = xcb_generate_id(raw);
    const std::array<std::uint32_t, 2> values = {connection_.screen().black_pixel, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, parent, firstPlace.x, firstPlace.y, firstPlace.width,
                      firstPlace.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    if (lasting_)
        lasting_->synchronize();
    return {window, WindowEvents(connection_, window, XCB_EVENT_MASK_STRUCTURE_NOTIFY)};
}

void BackdropCard::guard(std::function<WindowGuard::Wanted()> wanted)
{
    guards_.push_back(std::make_unique<WindowGuard>(connection_, events_, queue_, std::move(wanted),
                                                    [this](WindowDamage) { remake(); }));
}

// Whatever was done to them, new ones come in the places of the old ones, which go when those are there.
void BackdropCard::remake()
{
    if (area_.pixels().isEmpty())
        return;
    const std::array<xcb_window_t, 2> before = {shade_.window, card_.window};
    make();
    const std::array<xcb_window_t, 2> now = {shade_.window, card_.window};
    for (std::size_t index = 0; index < now.size(); ++index) {
        area_.replace(before[index], now[index]);
        xcb_map_window(connection_.get(), now[index]);
    }
    layOut(std::exchange(laidOut_, {}));
    for (const xcb_window_t window : before)
        mayFail(connection_.get(), xcb_destroy_window_checked(connection_.get(), window));
    connection_.flush();
    if (onRemade)
        onRemade();
}

void BackdropCard::layOut(const PixelRect& pixels)
{
    if (pixels == laidOut_)
        return;
    laidOut_ = pixels;
    xcb_connection_t* const raw = connection_.get();
    const QImage image = picture(pixels.width, pixels.height);
    textPixels_ = image.isNull()
                      ? firstPlace
                      : PixelRect{(pixels.width - image.width()) / 2, pixels.y + (pixels.height - image.height()) / 2,
                                  image.width(), image.height()};
    place(connection_, text_.window, textPixels_);
    if (image.isNull()) {
        mayFail(raw, xcb_unmap_window_checked(raw, text_.window));
        connection_.flush();
        return;
    }
    const xcb_pixmap_t pixmap = upload(image);
    mayFail(raw, xcb_change_window_attributes_checked(raw, text_.window, XCB_CW_BACK_PIXMAP, &pixmap));
    xcb_free_pixmap(raw, pixmap);
    mayFail(raw, xcb_clear_area_checked(raw, 0, text_.window, 0, 0, 0, 0));
    mayFail(raw, xcb_map_window_checked(raw, text_.window));
    connection_.flush();
}

void BackdropCard::raise()
{
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    mayFail(connection_.get(),
            xcb_configure_window_checked(connection_.get(), card_.window, XCB_CONFIG_WINDOW_STACK_MODE, &above));
    connection_.flush();
}

xcb_pixmap_t BackdropCard::upload(const QImage& image) const
{
    // RENDER turns 32-bit pixels into whatever the root window has.
    xcb_connection_t* const raw = connection_.get();
    const auto width = static_cast<std::uint16_t>(image.width());
    const auto height = static_cast<std::uint16_t>(image.height());
    const QImage pixels = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const xcb_pixmap_t source = connection_.newId();
    const xcb_gcontext_t context = connection_.newId();
    xcb_create_pixmap(raw, 32, source, connection_.root(), width, height);
    xcb_create_gc(raw, context, source, 0, nullptr);
    const int rowBytes = width * 4;
    const int rows = std::max(1, bytesPerUpload / rowBytes);
    for (int top = 0; top < height; top += rows) {
        const int count = std::min(rows, height - top);
        // Rows of 32-bit pixels lie end to end in the picture, without padding.
        xcb_put_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, source, context, width, static_cast<std::uint16_t>(count), 0,
                      static_cast<std::int16_t>(top), 0, 32, static_cast<std::uint32_t>(count * rowBytes),
                      pixels.constScanLine(top));
    }
    const xcb_pixmap_t target = connection_.newId();
    const xcb_render_picture_t from = connection_.newId();
    const xcb_render_picture_t to = connection_.newId();
    xcb_create_pixmap(raw, connection_.screen().root_depth, target, connection_.root(), width, height);
    xcb_render_create_picture(raw, from, source, connection_.argbFormat(), 0, nullptr);
    xcb_render_create_picture(raw, to, target, connection_.rootFormat(), 0, nullptr);
    xcb_render_composite(raw, XCB_RENDER_PICT_OP_SRC, from, XCB_RENDER_PICTURE_NONE, to, 0, 0, 0, 0, 0, 0, width,
                         height);
    xcb_render_free_picture(raw, from);
    xcb_render_free_picture(raw, to);
    xcb_free_gc(raw, context);
    xcb_free_pixmap(raw, source);
    return target;
}

} // namespace nimbrale::x11
