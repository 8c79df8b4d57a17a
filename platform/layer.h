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
    /// Draws what was invalidated, now.
    virtual void commit() = 0;
};

/// A node of a retained picture: a background, a surface stretched to the frame and a painting, in this order from the
/// back, with sublayers in front. Coordinates are points, origin at the top-left of the superlayer, y grows downward.
/// Nothing is ever animated. Sublayers are clipped to the host's window only. Main thread only.
class Layer {
public:
    using Painter = std::function<void(QPainter& painter, const Rect& dirty)>;

    Layer() = default;
    ~Layer();
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    [[nodiscard]] const Rect& frame() const { return frame_; }
    void setFrame(const Rect& frame);
    [[nodiscard]] const std::optional<Color>& backgroundColor() const { return backgroundColor_; }
    void setBackgroundColor(std::optional<Color> color);

    /// The surface is stretched to the layer's bounds. Where the new surface shares its storage with the old one, only
    /// what it calls changed is drawn anew.
    [[nodiscard]] const std::shared_ptr<const Surface>& contents() const { return contents_; }
    void setContents(std::shared_ptr<const Surface> contents);

    /// 0 (invisible) to 1.
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
    void invalidateFrame() const;

    Rect frame_;
    std::optional<Color> backgroundColor_;
    std::shared_ptr<const Surface> contents_;
    double opacity_ = 1;
    bool isHidden_ = false;
    double zPosition_ = 0;
    Painter painter_;
    std::vector<Rect> coverage_;
    std::vector<std::shared_ptr<Layer>> sublayers_;
    Layer* superlayer_ = nullptr;
    LayerHost* host_ = nullptr;
};

/// Draws everything that was changed in the layer's tree while it lived, in one go, when it ends.
class LayerTransaction {
public:
    explicit LayerTransaction(const Layer& layer) : host_(layer.host()) {}
    ~LayerTransaction()
    {
        if (host_)
            host_->commit();
    }
    LayerTransaction(const LayerTransaction&) = delete;
    LayerTransaction& operator=(const LayerTransaction&) = delete;

private:
    LayerHost* host_;
};

} // namespace nimbrale
