#include "tests/support/display_viewer.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <xcb/randr.h>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

double millisecondsNow()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

QRect rectangleOf(xcb_connection_t* connection, xcb_randr_get_monitors_cookie_t cookie, xcb_atom_t name)
{
    const Reply<xcb_randr_get_monitors_reply_t> reply(xcb_randr_get_monitors_reply(connection, cookie, nullptr));
    if (!reply)
        return {};
    for (auto each = xcb_randr_get_monitors_monitors_iterator(reply.get()); each.rem;
         xcb_randr_monitor_info_next(&each)) {
        if (each.data->name == name)
            return {each.data->x, each.data->y, each.data->width, each.data->height};
    }
    return {};
}

} // namespace

DisplayViewer::DisplayViewer(const std::string& displayName, std::string monitorName,
                             std::function<bool(std::uint32_t)> isAllowed, std::chrono::milliseconds pause)
    : connection_(xcb_connect(displayName.c_str(), nullptr)), isAllowed_(std::move(isAllowed)), pause_(pause)
{
    screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    const Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection_,
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(monitorName.size()), monitorName.data()), nullptr));
    monitor_ = atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE};
    thread_ = std::thread([this] { watch(); });
}

DisplayViewer::~DisplayViewer()
{
    isEnding_ = true;
    if (thread_.joinable())
        thread_.join();
    xcb_disconnect(connection_);
}

DisplayViewer::Result DisplayViewer::stop()
{
    isEnding_ = true;
    thread_.join();
    return result_;
}

void DisplayViewer::watch()
{
    while (!isEnding_ && !xcb_connection_has_error(connection_)) {
        if (known_.isEmpty()) {
            known_ = rectangleOf(connection_, xcb_randr_get_monitors(connection_, screen_->root, 1), monitor_);
            if (known_.isEmpty())
                std::this_thread::sleep_for(std::chrono::microseconds{200});
            continue;
        }
        take(known_);
        if (pause_ > std::chrono::milliseconds::zero())
            std::this_thread::sleep_for(pause_);
    }
}

// The three requests are sent together. The picture is the monitor's where it has the same place before and after.
void DisplayViewer::take(const QRect area)
{
    const auto before = xcb_randr_get_monitors(connection_, screen_->root, 1);
    const auto image =
        xcb_get_image(connection_, XCB_IMAGE_FORMAT_Z_PIXMAP, screen_->root, static_cast<std::int16_t>(area.x()),
                      static_cast<std::int16_t>(area.y()), static_cast<std::uint16_t>(area.width()),
                      static_cast<std::uint16_t>(area.height()), ~0U);
    const auto after = xcb_randr_get_monitors(connection_, screen_->root, 1);
    const QRect placeBefore = rectangleOf(connection_, before, monitor_);
    xcb_generic_error_t* error = nullptr;
    const Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_, image, &error));
    const Reply<xcb_generic_error_t> refused(error);
    known_ = rectangleOf(connection_, after, monitor_);
    if (!reply)
        return;
    const QImage picture(xcb_get_image_data(reply.get()), area.width(), area.height(), QImage::Format_RGB32);
    examine(picture, placeBefore == area && known_ == area);
}

void DisplayViewer::examine(const QImage& picture, bool isCurrent)
{
    std::unordered_map<std::uint32_t, bool> answers;
    std::int64_t foreign = 0;
    std::uint32_t last = 0xff000000;
    bool isLastForeign = false;
    for (int y = 0; y < picture.height(); ++y) {
        const auto* const line = reinterpret_cast<const std::uint32_t*>(picture.constScanLine(y));
        for (int x = 0; x < picture.width(); ++x) {
            const std::uint32_t color = line[x] & 0xffffffU;
            if (color != last) {
                const auto [answer, isNew] = answers.try_emplace(color, false);
                if (isNew)
                    answer->second = !isAllowed_(color);
                last = color;
                isLastForeign = answer->second;
            }
            foreign += isLastForeign ? 1 : 0;
        }
    }
    if (foreign > 0 && result_.firstForeign.isNull())
        result_.firstForeign = picture.copy();
    if (!isCurrent) {
        result_.staleForeignPictures += foreign > 0 ? 1 : 0;
        return;
    }
    ++result_.pictures;
    ++pictures_;
    if (foreign == 0) {
        foreignSince_ = -1;
        return;
    }
    ++result_.foreignPictures;
    result_.foreignPixels += foreign;
    const double now = millisecondsNow();
    if (foreignSince_ < 0)
        foreignSince_ = now;
    result_.longestForeignRun = std::max(result_.longestForeignRun, now - foreignSince_);
}

} // namespace nimbrale::test
