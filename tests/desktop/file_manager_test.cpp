// Revealing a file by what the session's bus offers, on a bus of the test's own.

#include "platform/desktop/file_manager.h"
#include "tests/desktop/session_bus_fixture.h"

#include <QDBusUnixFileDescriptor>
#include <QUrl>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FileManagerTest : public SessionBusTest {
protected:
    void SetUp() override
    {
        SessionBusTest::SetUp();
        std::ofstream(file_) << "a movie";
    }

    [[nodiscard]] std::unique_ptr<FakeService> fileManagerService(bool accepts) const
    {
        return std::make_unique<FakeService>(bus->address(), "org.freedesktop.FileManager1",
                                             "/org/freedesktop/FileManager1", accepts);
    }
    [[nodiscard]] std::unique_ptr<FakeService> portalService(bool accepts) const
    {
        return std::make_unique<FakeService>(bus->address(), "org.freedesktop.portal.Desktop",
                                             "/org/freedesktop/portal/desktop", accepts);
    }

    QTemporaryDir folder_;
    std::filesystem::path file_ = std::filesystem::path(folder_.path().toStdString()) / "my movie, 100 %.mov";
    std::vector<std::filesystem::path> opened_;
    FileManager fileManager_{[this](const std::filesystem::path& folder) {
        opened_.push_back(folder);
        return true;
    }};
};

TEST_F(FileManagerTest, TheFileManagerShowsTheFile)
{
    const auto fileManager = fileManagerService(true);
    const auto portal = portalService(true);
    fileManager_.reveal(file_);
    ASSERT_TRUE(runUntil([&] { return !fileManager->calls.empty(); }));
    letPass();
    ASSERT_THAT(fileManager->calls, SizeIs(1));
    const QDBusMessage& call = fileManager->calls.front();
    EXPECT_EQ(call.interface(), "org.freedesktop.FileManager1");
    EXPECT_EQ(call.member(), "ShowItems");
    EXPECT_EQ(call.signature(), "ass");
    const QStringList uris = call.arguments().at(0).toStringList();
    ASSERT_EQ(uris.size(), 1);
    EXPECT_EQ(QUrl(uris.front()).toLocalFile().toStdString(), file_.string());
    EXPECT_TRUE(uris.front().startsWith("file:///")) << uris.front().toStdString();
    EXPECT_TRUE(uris.front().contains("my%20movie,%20100%20%25.mov")) << uris.front().toStdString();
    EXPECT_THAT(portal->calls, IsEmpty());
    EXPECT_THAT(opened_, IsEmpty());
}

TEST_F(FileManagerTest, WithoutAFileManagerThePortalOpensTheFolder)
{
    const auto portal = portalService(true);
    fileManager_.reveal(file_);
    ASSERT_TRUE(runUntil([&] { return !portal->calls.empty(); }));
    letPass();
    ASSERT_THAT(portal->calls, SizeIs(1));
    const QDBusMessage& call = portal->calls.front();
    EXPECT_EQ(call.interface(), "org.freedesktop.portal.OpenURI");
    EXPECT_EQ(call.member(), "OpenDirectory");
    EXPECT_EQ(call.signature(), "sha{sv}");
    const auto descriptor = call.arguments().at(1).value<QDBusUnixFileDescriptor>();
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor.fileDescriptor())), file_);
    EXPECT_THAT(opened_, IsEmpty());
}

TEST_F(FileManagerTest, AFileManagerThatRefusesIsPassedOver)
{
    const auto fileManager = fileManagerService(false);
    const auto portal = portalService(true);
    fileManager_.reveal(file_);
    EXPECT_TRUE(runUntil([&] { return !portal->calls.empty(); }));
    EXPECT_THAT(fileManager->calls, SizeIs(1));
}

TEST_F(FileManagerTest, WhenAllRefuseTheFolderIsOpened)
{
    const auto fileManager = fileManagerService(false);
    const auto portal = portalService(false);
    fileManager_.reveal(file_);
    ASSERT_TRUE(runUntil([&] { return !opened_.empty(); }));
    EXPECT_THAT(opened_, ElementsAre(file_.parent_path()));
    EXPECT_THAT(portal->calls, SizeIs(1));
}

TEST_F(FileManagerTest, WithoutAnyServiceTheFolderIsOpened)
{
    fileManager_.reveal(file_);
    ASSERT_TRUE(runUntil([&] { return !opened_.empty(); }));
    EXPECT_THAT(opened_, ElementsAre(file_.parent_path()));
}

TEST_F(FileManagerTest, AFileThatIsGoneStillHasItsFolder)
{
    const auto portal = portalService(true);
    std::filesystem::remove(file_);
    fileManager_.reveal(file_);
    ASSERT_TRUE(runUntil([&] { return !opened_.empty(); }));
    EXPECT_THAT(portal->calls, IsEmpty()) << "there is nothing to hand to the portal";
}

TEST_F(FileManagerTest, AnAnswerThatComesAfterItsEndIsNobodys)
{
    const auto fileManager = fileManagerService(false);
    std::vector<std::filesystem::path> opened;
    {
        FileManager ending([&](const std::filesystem::path& folder) {
            opened.push_back(folder);
            return true;
        });
        ending.reveal(file_);
    }
    EXPECT_TRUE(runUntil([&] { return !fileManager->calls.empty(); }));
    letPass();
    EXPECT_THAT(opened, IsEmpty());
}

/// In a process of its own, which meets no bus. Runs before all others, while there is but one thread.
TEST(FileManagerDeathTest, WithoutABusTheFolderIsOpenedAtOnce)
{
    const auto reveal = [] {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus");
        int count = 1;
        char name[] = "test";
        char* arguments[] = {name, nullptr};
        const QCoreApplication application(count, arguments);
        std::vector<std::filesystem::path> opened;
        FileManager fileManager([&](const std::filesystem::path& folder) {
            opened.push_back(folder);
            return true;
        });
        fileManager.reveal("/some/folder/movie.mov");
        std::_Exit(opened == std::vector<std::filesystem::path>{"/some/folder"} ? EXIT_SUCCESS : EXIT_FAILURE);
    };
    EXPECT_EXIT(reveal(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

} // namespace
} // namespace nimbrale::test
