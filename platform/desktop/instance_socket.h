#pragma once

#include "platform/desktop/instance_messages.h"
#include "platform/file_descriptor.h"
#include "platform/result.h"

#include <chrono>
#include <optional>
#include <string>

namespace nimbrale {

/// A listening socket of that name in the folder, for this user alone; takes the place of one that a dead process left.
/// Only for the holder of the lock that goes with it.
[[nodiscard]] Result<FileDescriptor> listenForInstances(const FileDescriptor& folder, const std::string& name);

/// Asks whoever listens there. Blocks until the answer. Absent when nobody listens or the connection ends without an
/// answer; fails when the answer does not come in time, is none, or would come from
/// another user than `user`.
[[nodiscard]] Result<std::optional<InstanceAnswer>> askInstance(const FileDescriptor& folder, const std::string& name,
                                                                const InstanceRequest& request,
                                                                std::chrono::milliseconds patience, uid_t user);

/// Whether the process at the other end of a connection belongs to the user `user`.
[[nodiscard]] bool isPeerOfUser(const FileDescriptor& connection, uid_t user);

} // namespace nimbrale
