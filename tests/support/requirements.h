#pragma once

#include "tests/support/private_desktop.h"

#include <memory>
#include <string>

namespace nimbrale::test {

// Each of these may end the running test where it stands, however deep in calls; TearDown comes after it as always.
// From the test's own thread only.

/// Skips the running test.
[[noreturn]] void skipTest(const std::string& reason);
/// Fails the running test.
[[noreturn]] void failTest(const std::string& reason);
/// Skips the running test on a machine without that program.
void requireProgram(const std::string& name);
/// A private desktop, never null. The running test is skipped on a machine that lacks a program for it, and fails where
/// what is installed does not start.
[[nodiscard]] std::unique_ptr<PrivateDesktop> requireDesktop(const PrivateDesktop::Options& options);

} // namespace nimbrale::test
