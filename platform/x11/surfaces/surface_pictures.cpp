#include "platform/x11/surfaces/surface_pictures.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <xcb/sync.h>

namespace nimbrale::x11 {

namespace {

xcb_sync_int64_t serverValue(std::int64_t value)
{
    return {std::int32_t(value >> 32), std::uint32_t(value & 0xffffffff)};
}

xcb_render_fixed_t fixed(double value)
{
    return xcb_render_fixed_t(std::lround(value * 65536));
}

} // namespace

SurfacePictures::~SurfacePictures()
{
    keepOnly({});
}

const X11Surface& SurfacePictures::await(const Surface& surface)
{
    const auto* const own = dynamic_cast<const X11Surface*>(&surface);
    if (!own)
        programmingError("a layer of the X11 backend got a surface of another one");
    const SyncPoint ready = own->ready();
    if (ready.counter == 0)
        return *own;
    const auto known = awaited_.find(ready.counter);
    if (known != awaited_.end() && known->second >= ready.value)
        return *own;
    awaited_[ready.counter] = ready.value;
    xcb_sync_waitcondition_t condition{};
    condition.trigger.counter = ready.counter;
    condition.trigger.wait_type = XCB_SYNC_VALUETYPE_ABSOLUTE;
    condition.trigger.wait_value = serverValue(ready.value);
    condition.trigger.test_type = XCB_SYNC_TESTTYPE_POSITIVE_COMPARISON;
    // Nobody wants to hear how late the wait began: a threshold that is never reached keeps the server from telling.
    condition.event_threshold = serverValue(std::numeric_limits<std::int64_t>::max());
    xcb_sync_await(connection_.get(), 1, &condition);
    return *own;
}

xcb_render_picture_t SurfacePictures::stretched(const X11Surface& surface, int width, int height)
{
    Entry& entry = entries_[surface.storage()];
    if (entry.picture == 0) {
        entry.picture = connection_.newId();
        // Repeating the edge keeps the filter from mixing in the nothing around the picture.
        const std::uint32_t repeat = XCB_RENDER_REPEAT_PAD;
        xcb_render_create_picture(connection_.get(), entry.picture, surface.pixmap(), connection_.rootFormat(),
                                  XCB_RENDER_CP_REPEAT, &repeat);
    }
    if (entry.width == width && entry.height == height)
        return entry.picture;
    entry.width = width;
    entry.height = height;
    const xcb_render_transform_t transform{
        fixed(double(surface.width()) / width), 0, 0, 0, fixed(double(surface.height()) / height), 0, 0, 0, fixed(1)};
    xcb_render_set_picture_transform(connection_.get(), entry.picture, transform);
    const bool isSameSize = surface.width() == width && surface.height() == height;
    const char* const filter = isSameSize ? "nearest" : "bilinear";
    xcb_render_set_picture_filter(connection_.get(), entry.picture, std::uint16_t(std::strlen(filter)), filter, 0,
                                  nullptr);
    return entry.picture;
}

void SurfacePictures::keepOnly(const std::set<std::uint64_t>& storages)
{
    std::erase_if(entries_, [&](const auto& entry) {
        if (storages.contains(entry.first))
            return false;
        xcb_render_free_picture(connection_.get(), entry.second.picture);
        return true;
    });
}

} // namespace nimbrale::x11
