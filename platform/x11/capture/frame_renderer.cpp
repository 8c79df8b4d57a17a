#include "platform/x11/capture/frame_renderer.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace nimbrale::x11 {

namespace {

[[nodiscard]] xcb_render_fixed_t fixed(double value)
{
    return static_cast<xcb_render_fixed_t>(std::lround(value * 65536));
}

} // namespace

FrameRenderer::FrameRenderer(Connection& connection, FrameMemory memory,
                             std::function<void(xcb_pixmap_t)> releasePixmap)
    : connection_(connection), composer_(connection), frames_(connection, memory, releasePixmap),
      unscaled_(connection, FrameMemory::server, std::move(releasePixmap))
{}

void FrameRenderer::setGeometry(const PixelRect& source, int outputWidth, int outputHeight, OutputFit fit)
{
    const OutputScaling scaling(source.width, source.height, outputWidth, outputHeight, fit);
    if (source != source_)
        frames_.beginScene();
    // The next frame is drawn whole then.
    if (source != source_ || scaling != scaling_)
        areBarsDue_ = scaling.hasBars();
    source_ = source;
    stretchedStorage_ = 0;
    scaling_ = scaling;
    frames_.setSize(outputWidth, outputHeight);
    if (scaling_.isExact())
        unscaled_.setSize(0, 0);
    else
        unscaled_.setSize(source.width, source.height);
}

FrameRenderer::Frame FrameRenderer::draw(const PixelRegion& dirty, const Compose& compose)
{
    PixelRegion changed(dirty);
    changed.translate(-source_.x, -source_.y);
    if (scaling_.isExact()) {
        return {this->compose(frames_, changed, compose).storage, changed};
    }
    const FramePixmaps::Pixmap& unscaled = this->compose(unscaled_, changed, compose);
    prepareStretching(*unscaled.storage);
    const PixelRegion changedPicture = scaling_.outputOf(changed);
    const bool drawsBars = std::exchange(areBarsDue_, false);
    const PixelRegion changedOutput =
        drawsBars ? PixelRegion(0, 0, scaling_.outputWidth(), scaling_.outputHeight()) : changedPicture;
    const FramePixmaps::Pixmap& frame = frames_.begin(changedOutput);
    if (drawsBars)
        paintBars(frame);
    scale(frame, changedPicture);
    return {frame.storage, changedOutput};
}

void FrameRenderer::dropSpares()
{
    frames_.dropSpares();
    unscaled_.dropSpares();
}

const FramePixmaps::Pixmap& FrameRenderer::compose(FramePixmaps& pixmaps, const PixelRegion& changed,
                                                   const Compose& compose)
{
    const std::shared_ptr<SharedPixmap> before = pixmaps.newest();
    const FramePixmaps::Pixmap& pixmap = pixmaps.begin(changed);
    compose(composer_, {pixmap.storage->pixmap(), pixmap.picture.get(), {source_.x, source_.y}},
            {before ? before->pixmap() : xcb_pixmap_t{XCB_NONE}, sourceBefore_});
    sourceBefore_ = source_;
    return pixmap;
}

void FrameRenderer::prepareStretching(const SharedPixmap& source)
{
    if (stretchedStorage_ == source.storage())
        return;
    stretchedStorage_ = source.storage();
    xcb_connection_t* const raw = connection_.get();
    stretched_ = OwnedPicture(connection_, connection_.newId());
    // Beyond its edges the picture goes on with its last pixels, so that the output's edges are as bright as the rest.
    const std::uint32_t padded = XCB_RENDER_REPEAT_PAD;
    xcb_render_create_picture(raw, stretched_.get(), source.pixmap(), connection_.rootFormat(), XCB_RENDER_CP_REPEAT,
                              &padded);
    const xcb_render_transform_t transform{
        fixed(scaling_.horizontalStep()), 0, 0, 0, fixed(scaling_.verticalStep()), 0, 0, 0, fixed(1)};
    xcb_render_set_picture_transform(raw, stretched_.get(), transform);
    constexpr const char* filter = "bilinear";
    xcb_render_set_picture_filter(raw, stretched_.get(), static_cast<std::uint16_t>(std::strlen(filter)), filter, 0,
                                  nullptr);
}

void FrameRenderer::scale(const FramePixmaps::Pixmap& output, const PixelRegion& changed)
{
    const auto left = static_cast<std::int16_t>(scaling_.picture().x);
    const auto top = static_cast<std::int16_t>(scaling_.picture().y);
    for (const xcb_rectangle_t& rect : changed.serverRects())
        xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_SRC, stretched_.get(), XCB_NONE,
                             output.picture.get(), static_cast<std::int16_t>(rect.x - left),
                             static_cast<std::int16_t>(rect.y - top), 0, 0, rect.x, rect.y, rect.width, rect.height);
}

void FrameRenderer::paintBars(const FramePixmaps::Pixmap& output)
{
    constexpr xcb_render_color_t black{0, 0, 0, 0xffff};
    const xcb_rectangle_t all{0, 0, static_cast<std::uint16_t>(scaling_.outputWidth()),
                              static_cast<std::uint16_t>(scaling_.outputHeight())};
    xcb_render_fill_rectangles(connection_.get(), XCB_RENDER_PICT_OP_SRC, output.picture.get(), black, 1, &all);
}

} // namespace nimbrale::x11
