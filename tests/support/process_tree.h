#pragma once

#include <sys/types.h>
#include <vector>

namespace nimbrale::test {

/// Every process that came of this one and has not been taken over by another, nearer ones first; those that have ended
/// and were not waited for are among them.
[[nodiscard]] std::vector<pid_t> descendants();

} // namespace nimbrale::test
