#pragma once

#include "platform/surface.h"
#include "settings/app_settings.h"

#include <memory>
#include <vector>

namespace nimbrale {

class WebcamPictureLayer;

/// The pictures of a camera on their way to every layer that shows them: the live ones, and those whose background was
/// processed. Whoever runs the camera hands them in. Main thread only.
class WebcamPictures {
public:
    using Background = AppSettings::WebcamBackground;

    WebcamPictures() = default;
    WebcamPictures(const WebcamPictures&) = delete;
    WebcamPictures& operator=(const WebcamPictures&) = delete;

    [[nodiscard]] Background background() const { return background_; }
    /// From now on processed pictures of this background are wanted. Until the first one comes, the live picture stays
    /// to be seen.
    void setBackground(Background background);

    /// The camera's picture as it is; absent when the camera gives none.
    [[nodiscard]] const std::shared_ptr<const Surface>& live() const { return live_; }
    void showLive(const std::shared_ptr<const Surface>& picture);
    /// The camera gives no pictures any more: layers are empty, processed pictures included.
    void showNothing();
    /// A picture processed for `madeFor`; it comes too late when another background is wanted by now, and is dropped.
    void showProcessed(const std::shared_ptr<const Surface>& picture, Background madeFor);

private:
    friend class WebcamPictureLayer;

    void add(WebcamPictureLayer& layer) { layers_.push_back(&layer); }
    void remove(WebcamPictureLayer& layer) { std::erase(layers_, &layer); }

    Background background_ = Background::original;
    std::shared_ptr<const Surface> live_;
    std::vector<WebcamPictureLayer*> layers_;
};

} // namespace nimbrale
