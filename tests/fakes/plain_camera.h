#pragma once

#include "tests/fakes/fake_platform.h"
#include "webcam/webcam_camera.h"

#include <memory>

namespace nimbrale {

/// The camera of a fake platform, with effects that leave the picture as it is.
[[nodiscard]] inline std::shared_ptr<WebcamCamera> makePlainCamera(FakePlatform& platform)
{
    return std::make_shared<WebcamCamera>(
        platform.cameras(), platform.mainQueue(),
        [](const std::shared_ptr<const BufferSurface>& picture, WebcamCamera::Background, int) { return picture; });
}

} // namespace nimbrale
