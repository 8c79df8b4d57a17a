#include "platform/x11/layers/window_shape.h"

#include "platform/x11/layers/corner_masks.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr int halfOpaque = 128;

struct Run {
    int begin = 0;
    int end = 0;

    bool operator==(const Run&) const = default;
};

bool isOpaque(const QRgb* row, int width)
{
    QRgb common = 0xff000000;
    for (int x = 0; x < width; ++x)
        common &= row[x];
    return qAlpha(common) == 255;
}

/// The solid runs of one row, which is made solid there.
void solidRuns(QRgb* row, int width, std::vector<Run>& runs)
{
    runs.clear();
    // Most rows of a picture.
    if (isOpaque(row, width)) {
        runs.push_back({0, width});
        return;
    }
    int x = 0;
    while (x < width) {
        while (x < width && qAlpha(row[x]) < halfOpaque)
            ++x;
        const int begin = x;
        for (; x < width && qAlpha(row[x]) >= halfOpaque; ++x) {
            if (qAlpha(row[x]) != 255)
                row[x] = qUnpremultiply(row[x]) | 0xff000000;
        }
        if (x > begin)
            runs.push_back({begin, x});
    }
}

} // namespace

void setWindowShape(Connection& connection, xcb_window_t window, xcb_shape_sk_t kind, const PixelRegion& region)
{
    const std::vector<xcb_rectangle_t> rects = region.serverRects();
    // A request has a greatest length, and one beyond it would end the connection.
    const std::size_t most = xcb_get_maximum_request_length(connection.get()) / 2 - 16;
    std::size_t done = 0;
    do {
        const std::size_t count = std::min(most, rects.size() - done);
        xcb_shape_rectangles(connection.get(), done == 0 ? XCB_SHAPE_SO_SET : XCB_SHAPE_SO_UNION, kind,
                             XCB_CLIP_ORDERING_YX_BANDED, window, 0, 0, std::uint32_t(count), rects.data() + done);
        done += count;
    } while (done < rects.size());
}

void WindowShape::set(const PixelRegion& region)
{
    if (std::exchange(isSet_, true) && region_ == region)
        return;
    region_ = region;
    setWindowShape(connection_, window_, XCB_SHAPE_SK_BOUNDING, region_);
}

void WindowShape::remove()
{
    region_.clear();
    isSet_ = false;
    xcb_shape_mask(connection_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, window_, 0, 0, XCB_PIXMAP_NONE);
}

void WindowShape::beginMove(int dx, int dy)
{
    PixelRegion both(region_);
    both.translate(-dx, -dy);
    both |= region_;
    setWindowShape(connection_, window_, XCB_SHAPE_SK_BOUNDING, both);
}

void WindowShape::endMove(int dx, int dy)
{
    region_.translate(-dx, -dy);
    setWindowShape(connection_, window_, XCB_SHAPE_SK_BOUNDING, region_);
}

void makeSolid(QImage& premultiplied, int x, int y, PixelRegion& solid)
{
    std::vector<Run> runs;
    std::vector<Run> bandRuns;
    std::vector<PixelRect> boxes;
    int bandTop = 0;
    const auto closeBand = [&](int bottom) {
        for (const Run& run : bandRuns)
            boxes.push_back({x + run.begin, y + bandTop, run.end - run.begin, bottom - bandTop});
    };
    for (int row = 0; row < premultiplied.height(); ++row) {
        solidRuns(reinterpret_cast<QRgb*>(premultiplied.scanLine(row)), premultiplied.width(), runs);
        if (runs == bandRuns)
            continue;
        closeBand(row);
        bandTop = row;
        bandRuns.swap(runs);
    }
    closeBand(premultiplied.height());
    solid |= PixelRegion(boxes);
}

PixelRegion roundedRegion(const PixelRect& rect, double radius)
{
    QImage mask(rect.width, rect.height, QImage::Format_ARGB32_Premultiplied);
    paintCornerMask(mask, radius, 1);
    PixelRegion inside;
    makeSolid(mask, rect.x, rect.y, inside);
    return inside;
}

} // namespace nimbrale::x11
