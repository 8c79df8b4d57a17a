// What `cmake --install` puts into a folder works from there, without the folder that it was built in.

#include "tests/support/application.h"
#include "tests/support/requirements.h"

#include <QTemporaryDir>

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

TEST(InstalledProgramTest, RunsFromThePrefix)
{
    const QTemporaryDir folder;
    const std::filesystem::path prefix = folder.path().toStdString();
    std::string reason;
    const auto install = Process::start(findProgram("cmake"), {"--install", buildFolder(), "--prefix", prefix},
                                        {{}, prefix / "install.txt", false}, reason);
    ASSERT_TRUE(install) << reason;
    ASSERT_EQ(install->waitForEnd(Milliseconds{20000}), 0) << install->output();
    const std::filesystem::path program = prefix / "bin" / "nimbrale";
    ASSERT_TRUE(std::filesystem::exists(program)) << install->output();
    for (const char* helper : {"nimbrale-caretaker", "nimbrale-encoder-probe"})
        EXPECT_TRUE(std::filesystem::exists(prefix / "bin" / helper)) << install->output();
    const std::filesystem::path icons = prefix / "share" / "icons" / "hicolor";
    for (const char* icon : {"scalable/apps/nimbrale.svg", "16x16/apps/nimbrale.png", "256x256/apps/nimbrale.png"})
        EXPECT_TRUE(std::filesystem::exists(icons / icon)) << install->output();
    EXPECT_TRUE(std::filesystem::exists(prefix / "share" / "applications" / "nimbrale.desktop")) << install->output();
    EXPECT_TRUE(std::filesystem::exists(prefix / "share" / "nimbrale" / "selfie_landscape.onnx")) << install->output();

    const auto desktop = requireDesktop({});
    const auto application = desktop->spawn(program.string(), {});
    ASSERT_TRUE(application);
    EXPECT_TRUE(waitUntil([&] { return desktop->monitorNamed("Nimbrale").has_value(); }, Milliseconds{10000}))
        << application->output();
    application->signal(SIGTERM);
    EXPECT_EQ(application->waitForEnd(Milliseconds{5000}), 0) << application->output();
}

} // namespace
} // namespace nimbrale::test
