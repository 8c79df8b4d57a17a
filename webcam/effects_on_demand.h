#pragma once

#include "platform/person_segmentation.h"
#include "platform/result.h"
#include "webcam/webcam_camera.h"

#include <functional>
#include <memory>

namespace nimbrale {

/// Effects for a camera whose segmentation is made for the first picture that needs it, on the thread of that picture:
/// who never blurs a background pays neither its time nor its memory. Where it cannot be made, which is logged once,
/// there are no effects.
[[nodiscard]] WebcamCamera::Effects
effectsOnDemand(std::function<Result<std::unique_ptr<PersonSegmentation>>()> makeSegmentation);

} // namespace nimbrale
