#pragma once

#include "platform/color.h"
#include "platform/geometry.h"
#include "platform/surface.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QPainter;

namespace nimbrale {

class Layer;

/// Whoever shows a layer tree: a panel. Main thread only.
class LayerHost {
public:
    virtual ~LayerHost() = default;

    /// `area` (root layer coordinates) no longer shows what the tree says. The host draws it at the next commit, at
    /// the latest after the current turn of the main queue.
    virtual void invalidate(const Rect& area) = 0;
    /// A layer waits to be laid out: the host commits at the latest after the current turn of the main queue.
    virtual void scheduleCommit() = 0;
    /// Lays the tree out where it was asked for, and draws what was invalidated, now.
    virtual void commit() = 0;

    /// Between both nothing needs to be scheduled: the end of the outermost transaction commits.
    void beginTransaction() { ++openTransactions_; }
    void endTransaction()
    {
        if (--openTransactions_ == 0)
            commit();
    }
    [[nodiscard]] bool isInTransaction() const { return openTransactions_ > 0; }

private:
    int openTransactions_ = 0;
};

enum class ContentsGravity {
    resize,          ///< stretched to the layer's bounds
    resizeAspectFill ///< scaled evenly so that it fills the bounds, centred; what sticks out is not shown
};

/// A node of a retained picture: a background, a surface and a painting, in this order from the back, with sublayers in
/// front. Coordinates are points, origin at the top-left of the superlayer, y grows downward. Nothing is ever animated.
/// Main thread only.
///
/// A layer is in one tree at a time. What is to be seen in two trees (the webcam on the user's screen and in the shared
/// picture) is shown by a layer in each, with the same surface as contents: its pixels are brought to the system once.
class Layer {
public:
    using Painter = std::function<void(QPainter& painter, const Rect& dirty)>;

    Layer() = default;
    ~Layer();
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    /// A change of size asks for layout.
    [[nodiscard]] const Rect& frame() const { return frame_; }
    void setFrame(const Rect& frame);
    [[nodiscard]] Rect bounds() const { return {0, 0, frame_.width, frame_.height}; }
    [[nodiscard]] const std::optional<Color>& backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(std::optional<Color> color);

    /// An opaque surface hides what lies behind it, background included; a premultiplied one blends. Where the new
    /// surface knows what it changed since the old one, only that is drawn anew.
    [[nodiscard]] const std::shared_ptr<const Surface>& contents() const { return contents_; }
    void setContents(std::shared_ptr<const Surface> contents);
    [[nodiscard]] ContentsGravity contentsGravity() const { return contentsGravity_; }
    void setContentsGravity(ContentsGravity gravity);
    /// Whether the surface is shown flipped left to right.
    [[nodiscard]] bool isMirrored() const { return isMirrored_; }
    void setMirrored(bool mirrored);
    /// Where the whole surface lies, in the layer's coordinates: its bounds, or more under `resizeAspectFill`. Empty
    /// without contents.
    [[nodiscard]] Rect contentsRect() const { return contentsRectIn(bounds()); }
    /// Where it would lie if the layer filled `area`; in whatever units that has.
    [[nodiscard]] Rect contentsRectIn(const Rect& area) const;

    /// Radius of the corners in points, at most half of the shorter side: with that, a square is a circle. It rounds
    /// the background, the contents and the painting, and the sublayers if the layer masks to its bounds. The edge is
    /// smoothed.
    [[nodiscard]] double cornerRadius() const { return cornerRadius_; }
    void setCornerRadius(double radius);
    /// Whether sublayers are shown only inside of the bounds. Otherwise they are clipped to the host's window only.
    [[nodiscard]] bool masksToBounds() const { return masksToBounds_; }
    void setMasksToBounds(bool masks);

    /// 0 (invisible) to 1, of the layer together with its sublayers: they are put together first and blended as one.
    [[nodiscard]] double opacity() const { return opacity_; }
    void setOpacity(double opacity);
    [[nodiscard]] bool isHidden() const { return isHidden_; }
    void setHidden(bool hidden);
    /// Among siblings, higher is in front; equal positions keep the order in which they were added.
    [[nodiscard]] double zPosition() const { return zPosition_; }
    void setZPosition(double position);

    /// `painter` draws the layer in its own points (the host has scaled and clipped it) for one dirty rectangle at a
    /// time; outside of `coverage` the layer is transparent and the painter is not asked.
    void setPainter(Painter painter);
    [[nodiscard]] const Painter& painter() const { return painter_; }
    /// The only parts of a painted layer that may be other than transparent, in the layer's coordinates. Setting it
    /// draws nothing: call `setNeedsDisplay` for what changed, the parts given up included.
    void setCoverage(std::vector<Rect> coverage);
    [[nodiscard]] const std::vector<Rect>& coverage() const { return coverage_; }
    /// `area` in the layer's own coordinates.
    void setNeedsDisplay(const Rect& area) const;

    /// Places the layer's own sublayers. Runs once before the next commit after layout was asked for, superlayers
    /// first; what it asks of this layer itself is not asked for again.
    std::function<void()> onLayout;
    void setNeedsLayout();
    /// Runs what waits in this layer and in its sublayers.
    void layoutIfNeeded();

    void addSublayer(const std::shared_ptr<Layer>& sublayer);
    void removeFromSuperlayer();
    [[nodiscard]] Layer* superlayer() const { return superlayer_; }
    /// Back to front.
    [[nodiscard]] std::vector<Layer*> sublayersInOrder() const;

    /// Set on a root layer by the panel that shows it.
    void setHost(LayerHost* host) { host_ = host; }
    /// The host of the tree that this layer is in, if any.
    [[nodiscard]] LayerHost* host() const;

private:
    void invalidateFrame() const { setNeedsDisplay(bounds()); }
    /// The layer with its sublayers, wherever they reach.
    void invalidateTree() const { setNeedsDisplay(reach()); }
    /// Around all that the layer and its sublayers may show, in the layer's coordinates.
    [[nodiscard]] Rect reach() const;

    Rect frame_;
    std::optional<Color> backgroundColor_;
    std::shared_ptr<const Surface> contents_;
    ContentsGravity contentsGravity_ = ContentsGravity::resize;
    bool isMirrored_ = false;
    double cornerRadius_ = 0;
    bool masksToBounds_ = false;
    double opacity_ = 1;
    bool isHidden_ = false;
    double zPosition_ = 0;
    Painter painter_;
    std::vector<Rect> coverage_;
    std::vector<std::shared_ptr<Layer>> sublayers_;
    Layer* superlayer_ = nullptr;
    LayerHost* host_ = nullptr;
    bool needsLayout_ = false;
};

/// Draws everything that was changed in the layer's tree while it lived, in one go, when it ends; within another one,
/// when that ends.
class LayerTransaction {
public:
    explicit LayerTransaction(const Layer& layer) : host_(layer.host())
    {
        if (host_)
            host_->beginTransaction();
    }
    ~LayerTransaction()
    {
        if (host_)
            host_->endTransaction();
    }
    LayerTransaction(const LayerTransaction&) = delete;
    LayerTransaction& operator=(const LayerTransaction&) = delete;

private:
    LayerHost* host_;
};

} // namespace nimbrale
