#pragma once

#include "platform/layer.h"
#include "settings/app_settings.h"
#include "webcam/webcam_pictures.h"

#include <memory>

namespace nimbrale {

/// The webcam's picture in its shape: a layer that clips to its bounds, with the live picture and the processed one in
/// it. There may be several for one camera, each in a tree of its own; they share the surfaces. Main thread only.
class WebcamPictureLayer {
public:
    using Shape = AppSettings::WebcamShape;
    using Background = AppSettings::WebcamBackground;

    /// Shows what `pictures` has by now and what it gets.
    explicit WebcamPictureLayer(std::shared_ptr<WebcamPictures> pictures);
    ~WebcamPictureLayer();
    WebcamPictureLayer(const WebcamPictureLayer&) = delete;
    WebcamPictureLayer& operator=(const WebcamPictureLayer&) = delete;

    /// To be added to a tree and given a frame; leaves its tree when this object ends.
    [[nodiscard]] const std::shared_ptr<Layer>& layer() const { return layer_; }
    [[nodiscard]] const std::shared_ptr<WebcamPictures>& pictures() const { return pictures_; }

    /// Both take effect at the next layout, which they ask for.
    [[nodiscard]] Shape shape() const { return shape_; }
    void setShape(Shape shape);
    [[nodiscard]] bool isMirrored() const { return isMirrored_; }
    void setMirrored(bool mirrored);

private:
    friend class WebcamPictures;

    void setBackground(Background background);
    void showLive(const std::shared_ptr<const Surface>& picture);
    void showNothing();
    void showProcessed(const std::shared_ptr<const Surface>& picture);
    void updateVisibility();
    void layOut();

    std::shared_ptr<WebcamPictures> pictures_;
    Shape shape_ = Shape::rounded;
    bool isMirrored_ = true;
    Background background_;
    std::shared_ptr<Layer> layer_ = std::make_shared<Layer>();
    std::shared_ptr<Layer> preview_ = std::make_shared<Layer>();
    std::shared_ptr<Layer> processed_ = std::make_shared<Layer>();
};

} // namespace nimbrale
