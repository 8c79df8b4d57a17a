#include "tests/support/requirements.h"

#include "tests/support/process.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

/// How the test ended has been told by then: GoogleTest takes this exception for the end alone.
[[noreturn]] void endTest(const std::string& reason)
{
    throw testing::AssertionException({testing::TestPartResult::kSkip, __FILE__, __LINE__, reason.c_str()});
}

} // namespace

void skipTest(const std::string& reason)
{
    [&reason] { GTEST_SKIP() << reason; }();
    endTest(reason);
}

void failTest(const std::string& reason)
{
    [&reason] { FAIL() << reason; }();
    endTest(reason);
}

void requireProgram(const std::string& name)
{
    if (findProgram(name).empty())
        skipTest(name + " is not installed");
}

std::unique_ptr<PrivateDesktop> requireDesktop(const PrivateDesktop::Options& options)
{
    if (const std::string missing = PrivateDesktop::missingFor(options); !missing.empty())
        skipTest(missing);
    std::string reason;
    std::unique_ptr<PrivateDesktop> desktop = PrivateDesktop::start(options, reason);
    if (!desktop)
        endTest(reason);
    return desktop;
}

} // namespace nimbrale::test
