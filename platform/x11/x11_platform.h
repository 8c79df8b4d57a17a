#pragma once

#include "platform/platform.h"
#include "platform/result.h"

#include <memory>
#include <string>

namespace nimbrale::x11 {

/// Makes the platform of an X server over what the toolkit offers, which must outlive it. To be called before the first
/// window of the application. `displayName` empty means the environment's display.
[[nodiscard]] Result<std::unique_ptr<Platform>> createX11Platform(MainQueue& mainQueue, Workspace& workspace,
                                                                  const std::string& displayName = {});

} // namespace nimbrale::x11
