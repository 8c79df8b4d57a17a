#pragma once

#include "platform/layer.h"
#include "share/frame.h"
#include "webcam/webcam_appearance.h"
#include "webcam/webcam_picture_layer.h"

#include <QString>

#include <memory>

namespace nimbrale {

/// Shows the captured pictures, scaled by a fixed zoom, with the webcam on top. Draws nothing itself: a picture becomes
/// the contents of a layer, and layers are moved. Main thread only.
class FrameView {
public:
    /// Fills `root`, which must outlive the view's calls, though not the view. `region` in region coordinates; `zoom`
    /// is points of `root` per point of the region.
    FrameView(Layer& root, const Rect& region, double zoom);
    FrameView(const FrameView&) = delete;
    FrameView& operator=(const FrameView&) = delete;

    /// Shows the picture at the place that its content has within the wanted area.
    void show(const Frame& frame);
    /// Shows a card with that text in place of the picture, which is let go of, and of the webcam, until a picture is
    /// shown again.
    void showCard(const QString& text);
    /// The area that is wanted from now on, region coordinates. The picture at hand stays where its content belongs.
    void setRegion(const Rect& region);
    /// Shows the webcam by a layer of the view's own; an appearance without a camera removes it.
    void setWebcam(const WebcamAppearance& webcam);

    [[nodiscard]] double zoom() const { return zoom_; }
    [[nodiscard]] const Layer& frameLayer() const { return *frameLayer_; }
    /// Absent while no card is shown.
    [[nodiscard]] const Layer* cardLayer() const { return cardLayer_.get(); }
    /// Absent while there is no webcam.
    [[nodiscard]] const WebcamPictureLayer* webcamLayer() const { return webcamLayer_.get(); }

private:
    void layOutFrame();
    void removeCard();

    Layer& root_;
    double zoom_;
    std::shared_ptr<Layer> frameLayer_;
    Rect region_;
    Rect frameRegion_;
    std::unique_ptr<WebcamPictureLayer> webcamLayer_;
    std::shared_ptr<Layer> cardLayer_;
};

} // namespace nimbrale
