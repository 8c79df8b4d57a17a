// A desktop that was started for a test is gone after it, with the programs that detached themselves from it.

#include "tests/fakes/offscreen_application.h"
#include "tests/support/desktop_session.h"
#include "tests/support/process_tree.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

std::string nameOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

class DesktopLeftovers : public testing::TestWithParam<DesktopKind> {
protected:
    DesktopLeftovers() { startOffscreenApplication(); }
};

TEST_P(DesktopLeftovers, EverythingOfItEndsWithIt)
{
    std::string reason;
    std::unique_ptr<DesktopSession> session = DesktopSession::start({.kind = GetParam()}, reason);
    if (!session && !HasFatalFailure())
        GTEST_SKIP() << reason;
    ASSERT_TRUE(session);
    const std::vector<pid_t> processes = descendants();
    std::vector<std::string> names;
    std::transform(processes.begin(), processes.end(), std::back_inserter(names), nameOf);
    const char* const detached = GetParam() == DesktopKind::plasma ? "kglobalaccel5" : "gvfsd";
    EXPECT_TRUE(std::find(names.begin(), names.end(), detached) != names.end()) << "the control: " << detached;

    session.reset();
    for (std::size_t index = 0; index < processes.size(); ++index)
        EXPECT_NE(nameOf(processes[index]), names[index]) << "left as process " << processes[index];
}

INSTANTIATE_TEST_SUITE_P(Xfce, DesktopLeftovers, testing::Values(DesktopKind::xfce));
INSTANTIATE_TEST_SUITE_P(Mate, DesktopLeftovers, testing::Values(DesktopKind::mate));
INSTANTIATE_TEST_SUITE_P(Plasma, DesktopLeftovers, testing::Values(DesktopKind::plasma));
INSTANTIATE_TEST_SUITE_P(Gnome, DesktopLeftovers, testing::Values(DesktopKind::gnome));
INSTANTIATE_TEST_SUITE_P(Cinnamon, DesktopLeftovers, testing::Values(DesktopKind::cinnamon));

} // namespace
} // namespace nimbrale::test
