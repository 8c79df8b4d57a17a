#include "webcam/webcam_pictures.h"

#include "webcam/webcam_picture_layer.h"

namespace nimbrale {

void WebcamPictures::setBackground(Background background)
{
    if (background == background_)
        return;
    background_ = background;
    for (WebcamPictureLayer* const layer : layers_)
        layer->setBackground(background);
}

void WebcamPictures::showLive(const std::shared_ptr<const Surface>& picture)
{
    live_ = picture;
    for (WebcamPictureLayer* const layer : layers_)
        layer->showLive(picture);
}

void WebcamPictures::showNothing()
{
    live_ = nullptr;
    for (WebcamPictureLayer* const layer : layers_)
        layer->showNothing();
}

void WebcamPictures::showProcessed(const std::shared_ptr<const Surface>& picture, Background madeFor)
{
    if (madeFor != background_ || madeFor == Background::original)
        return;
    for (WebcamPictureLayer* const layer : layers_)
        layer->showProcessed(picture);
}

} // namespace nimbrale
