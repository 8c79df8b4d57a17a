#pragma once

#include "platform/person_segmentation.h"
#include "platform/platform.h"
#include "platform/result.h"

#include <memory>

namespace nimbrale {

/// Makes the toolkit follow the desktop in what it does not find out by itself. Call on the main thread before the
/// toolkit's application object.
void prepareToolkit();

/// Probes the running system and makes its platform. Call once on the main thread, after the toolkit's application
/// object and before any window of the application: the capture must see every window come. Fails with a message for
/// the user where the system lacks what nothing can stand in for.
[[nodiscard]] Result<std::unique_ptr<Platform>> createPlatform();

/// Finds people in pictures, by the model that is delivered with the program. Any thread.
[[nodiscard]] Result<std::unique_ptr<PersonSegmentation>> createPersonSegmentation();

} // namespace nimbrale
