#include "tests/support/private_desktop.h"

#include "tests/support/x_reply.h"

#include <QPainter>

#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace nimbrale::test {

namespace {

QImage::Format formatOf(int depth)
{
    switch (depth) {
    case 16:
        return QImage::Format_RGB16;
    case 30:
        return QImage::Format_RGB30;
    default:
        return QImage::Format_RGB32;
    }
}

} // namespace

QImage PrivateDesktop::screenshot() const
{
    return screenshot(QRect(QPoint(), screenSize()));
}

QImage PrivateDesktop::screenshot(const QRect& area) const
{
    QImage shot(area.size(), QImage::Format_RGB32);
    shot.fill(Qt::black);
    const QRect inside = area & QRect(QPoint(), screenSize());
    if (!inside.isEmpty())
        QPainter(&shot).drawImage(inside.topLeft() - area.topLeft(), picture(screen_->root, inside));
    return shot;
}

QImage PrivateDesktop::windowPicture(const std::string& title) const
{
    const xcb_window_t window = findWindow(screen_->root, title);
    const std::optional<QRect> place = placeOf(window);
    return place ? picture(window, {QPoint(), place->size()}) : QImage();
}

/// `area` lies within the window.
QImage PrivateDesktop::picture(std::uint32_t window, const QRect& area) const
{
    const Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
        connection_,
        xcb_get_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, window, static_cast<std::int16_t>(area.x()),
                      static_cast<std::int16_t>(area.y()), static_cast<std::uint16_t>(area.width()),
                      static_cast<std::uint16_t>(area.height()), ~0U),
        nullptr));
    if (!reply)
        return {};
    const int bytesPerLine = xcb_get_image_data_length(reply.get()) / area.height();
    const QImage raw(xcb_get_image_data(reply.get()), area.width(), area.height(), bytesPerLine,
                     formatOf(reply->depth));
    // A copy: the bytes go with the reply.
    return raw.convertToFormat(QImage::Format_RGB32).copy();
}

QColor PrivateDesktop::pixel(int x, int y) const
{
    return screenshot(QRect(x, y, 1, 1)).pixelColor(0, 0);
}

bool PrivateDesktop::waitForPixel(int x, int y, const QColor& color, Milliseconds timeout) const
{
    return waitUntil([&] { return pixel(x, y).rgb() == color.rgb(); }, timeout);
}

void PrivateDesktop::fakeInput(std::uint8_t type, std::uint8_t detail, QPoint position)
{
    xcb_test_fake_input(connection_, type, detail, XCB_CURRENT_TIME, screen_->root,
                        static_cast<std::int16_t>(position.x()), static_cast<std::int16_t>(position.y()), 0);
    synchronize();
}

void PrivateDesktop::movePointer(QPoint position)
{
    fakeInput(XCB_MOTION_NOTIFY, 0, position);
}

void PrivateDesktop::movePointerBy(QPoint distance)
{
    // XTEST's sign for a distance in place of a position.
    constexpr std::uint8_t isRelative = 1;
    fakeInput(XCB_MOTION_NOTIFY, isRelative, distance);
}

QPoint PrivateDesktop::pointerPosition() const
{
    const Reply<xcb_query_pointer_reply_t> reply(
        xcb_query_pointer_reply(connection_, xcb_query_pointer(connection_, screen_->root), nullptr));
    return reply ? QPoint(reply->root_x, reply->root_y) : QPoint();
}

void PrivateDesktop::pressButton(int button)
{
    fakeInput(XCB_BUTTON_PRESS, static_cast<std::uint8_t>(button));
}

void PrivateDesktop::releaseButton(int button)
{
    fakeInput(XCB_BUTTON_RELEASE, static_cast<std::uint8_t>(button));
}

void PrivateDesktop::click(QPoint position, int button)
{
    movePointer(position);
    sleepFor(Milliseconds{30});
    pressButton(button);
    sleepFor(Milliseconds{30});
    releaseButton(button);
}

void PrivateDesktop::drag(QPoint from, QPoint to, int steps, Milliseconds pause)
{
    movePointer(from);
    sleepFor(Milliseconds{100});
    pressButton();
    sleepFor(pause);
    for (int step = 1; step <= steps; ++step) {
        movePointer(from + (to - from) * step / steps);
        sleepFor(pause);
    }
    releaseButton();
}

std::uint32_t PrivateDesktop::serverTime()
{
    const xcb_window_t window = xcb_generate_id(connection_);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, screen_->root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0, nullptr);
    xcb_destroy_window(connection_, window);
    synchronize();
    while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection_)}) {
        const auto* const change = reinterpret_cast<const xcb_property_notify_event_t*>(event.get());
        if (event->response_type == XCB_PROPERTY_NOTIFY && change->window == window)
            return change->time;
    }
    return XCB_CURRENT_TIME;
}

void PrivateDesktop::pressKey(std::uint32_t keysym)
{
    fakeInput(XCB_KEY_PRESS, keycodeOf(keysym));
}

void PrivateDesktop::releaseKey(std::uint32_t keysym)
{
    fakeInput(XCB_KEY_RELEASE, keycodeOf(keysym));
}

std::uint8_t PrivateDesktop::keycodeOf(std::uint32_t keysym) const
{
    const xcb_setup_t* setup = xcb_get_setup(connection_);
    const auto count = static_cast<std::uint8_t>(setup->max_keycode - setup->min_keycode + 1);
    const Reply<xcb_get_keyboard_mapping_reply_t> reply(xcb_get_keyboard_mapping_reply(
        connection_, xcb_get_keyboard_mapping(connection_, setup->min_keycode, count), nullptr));
    if (!reply)
        return 0;
    const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(reply.get());
    const int perKeycode = reply->keysyms_per_keycode;
    for (int index = 0; index < count * perKeycode; ++index) {
        if (keysyms[index] == keysym)
            return static_cast<std::uint8_t>(setup->min_keycode + index / perKeycode);
    }
    return 0;
}

} // namespace nimbrale::test
