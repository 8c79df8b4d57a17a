#include "webcam/effects_on_demand.h"

#include "platform/log.h"
#include "webcam/webcam_effects.h"

#include <utility>

namespace nimbrale {

namespace {

using Background = WebcamCamera::Background;

class EffectsOnDemand {
public:
    explicit EffectsOnDemand(std::function<Result<std::unique_ptr<PersonSegmentation>>()> makeSegmentation)
        : makeSegmentation_(std::move(makeSegmentation))
    {}

    [[nodiscard]] std::shared_ptr<const BufferSurface> process(const BufferSurface& picture, Background background,
                                                               int halvings)
    {
        if (const auto make = std::exchange(makeSegmentation_, nullptr))
            begin(make());
        return effects_ ? effects_->process(picture.pixels(), background, halvings) : nullptr;
    }

private:
    void begin(Result<std::unique_ptr<PersonSegmentation>> segmentation)
    {
        if (segmentation)
            effects_ = std::make_unique<WebcamEffects>(std::move(*segmentation));
        else
            qCCritical(webcamLog, "Finding the person failed: %s", segmentation.error().message.c_str());
    }

    /// Null once it was called.
    std::function<Result<std::unique_ptr<PersonSegmentation>>()> makeSegmentation_;
    std::unique_ptr<WebcamEffects> effects_;
};

} // namespace

WebcamCamera::Effects effectsOnDemand(std::function<Result<std::unique_ptr<PersonSegmentation>>()> makeSegmentation)
{
    return [effects = std::make_shared<EffectsOnDemand>(std::move(makeSegmentation))](
               const std::shared_ptr<const BufferSurface>& picture, Background background, int halvings) {
        return effects->process(*picture, background, halvings);
    };
}

} // namespace nimbrale
