#include "platform/x11/virtual_display/backdrop_card.h"

#include "platform/x11/server/handles.h"

#include <QCoreApplication>
#include <QFont>
#include <QFontMetricsF>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>

namespace nimbrale::x11 {

namespace {

constexpr double smallestTextHeight = 11;
constexpr double largestTextHeight = 56;
constexpr double textHeightPerDisplayHeight = 1.0 / 16;
constexpr double largestPartOfWidth = 0.8;
// In text heights.
constexpr double sidePadding = 1.6;
constexpr double topPadding = 1.1;
constexpr double cornerRadius = 0.7;

// Requests of this size pass on every server, whatever extension it lacks.
constexpr int bytesPerUpload = 200'000;

QString cardText()
{
    return QCoreApplication::translate("BackdropCard", "Sharing has stopped");
}

xcb_window_t createWindow(xcb_connection_t* raw, const xcb_screen_t& screen, xcb_window_t parent)
{
    const xcb_window_t window = xcb_generate_id(raw);
    const std::array<std::uint32_t, 2> values = {screen.black_pixel, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, parent, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    return window;
}

void place(Connection& connection, xcb_window_t window, const PixelRect& pixels)
{
    const std::array<std::uint32_t, 4> values = {
        static_cast<std::uint32_t>(pixels.x), static_cast<std::uint32_t>(pixels.y),
        static_cast<std::uint32_t>(pixels.width), static_cast<std::uint32_t>(pixels.height)};
    xcb_configure_window(connection.get(), window,
                         XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         values.data());
}

} // namespace

QImage BackdropCard::picture(int displayWidth, int displayHeight)
{
    const double available = displayWidth * largestPartOfWidth;
    double height = std::min(displayHeight * textHeightPerDisplayHeight, largestTextHeight);
    QFont font;
    font.setWeight(QFont::DemiBold);
    font.setStyleStrategy(QFont::StyleStrategy(QFont::PreferAntialias | QFont::NoSubpixelAntialias));
    const auto cardWidth = [&font](double textHeight) {
        font.setPixelSize(std::max(1, static_cast<int>(std::lround(textHeight))));
        return QFontMetricsF(font).horizontalAdvance(cardText()) + 2 * sidePadding * textHeight;
    };
    const double width = cardWidth(height);
    if (width > available)
        height *= available / width;
    if (height < smallestTextHeight)
        return {};

    const int pictureWidth = static_cast<int>(std::ceil(cardWidth(height)));
    const int pictureHeight = static_cast<int>(std::ceil(QFontMetricsF(font).height() + 2 * topPadding * height));
    QImage image(pictureWidth, pictureHeight, QImage::Format_RGB32);
    image.fill(Qt::black);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x1f, 0x1f, 0x22));
    painter.drawRoundedRect(image.rect(), cornerRadius * height, cornerRadius * height);
    painter.setPen(QColor(0xf2, 0xf2, 0xf2));
    painter.setFont(font);
    painter.drawText(image.rect(), Qt::AlignCenter, cardText());
    return image;
}

BackdropCard::BackdropCard(Connection& connection, VirtualArea& area, const std::string& displayName)
    : connection_(connection), area_(area), lasting_(LastingConnection::open(displayName))
{
    xcb_connection_t* const raw = lasting_ ? lasting_->get() : connection_.get();
    shade_ = createWindow(raw, connection_.screen(), connection_.root());
    window_ = createWindow(raw, connection_.screen(), connection_.root());
    text_ = createWindow(raw, connection_.screen(), window_);
    if (lasting_) {
        lasting_->mark(connection_, window_);
        lasting_->synchronize();
    }
    area_.add(shade_, AreaRole::shade);
    area_.add(window_, AreaRole::backdrop);
    xcb_map_window(connection_.get(), shade_);
    xcb_map_window(connection_.get(), window_);
    connection_.flush();
}

BackdropCard::~BackdropCard()
{
    // Where the application is cut off from the display, the card stays until the display is removed.
    if (connection_.isLost())
        return;
    for (const xcb_window_t window : {window_, shade_}) {
        area_.remove(window);
        // Any client can have destroyed it before.
        mayFail(connection_.get(), xcb_destroy_window_checked(connection_.get(), window));
    }
    connection_.synchronize();
    if (lasting_)
        lasting_->removeWindows();
}

void BackdropCard::layOut(const PixelRect& pixels)
{
    if (pixels == laidOut_)
        return;
    laidOut_ = pixels;
    const QImage image = picture(pixels.width, pixels.height);
    if (image.isNull()) {
        xcb_unmap_window(connection_.get(), text_);
        connection_.flush();
        return;
    }
    const xcb_pixmap_t pixmap = upload(image);
    xcb_change_window_attributes(connection_.get(), text_, XCB_CW_BACK_PIXMAP, &pixmap);
    xcb_free_pixmap(connection_.get(), pixmap);
    place(connection_, text_,
          {(pixels.width - image.width()) / 2, pixels.y + (pixels.height - image.height()) / 2, image.width(),
           image.height()});
    xcb_clear_area(connection_.get(), 0, text_, 0, 0, 0, 0);
    xcb_map_window(connection_.get(), text_);
    connection_.flush();
}

void BackdropCard::raise()
{
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_STACK_MODE, &above);
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
