// A disk that takes no more: what is stored stays, and what could not be stored is made up for.

#include "tests/faults/settings_file_fixture.h"
#include "tests/support/small_disk.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>

namespace nimbrale {
namespace {

using SettingsOnFullDiskTest = SettingsFileTest;

/// Assigns in turn a value that fits, one that does not, and, after `makeRoom`, one that fits again.
int writeBeyondTheRoom(const std::string& path, const std::function<bool()>& makeRoom)
{
    const LogCapture log;
    AppSettings settings(path);
    const std::string tooLong(300000, 'x');
    settings.setWebcamDeviceID(tooLong);
    if (log.errors().size() != 1 || !log.errors().front().message.starts_with("The setting webcamDeviceID"))
        return 1;
    if (settings.webcamDeviceID() != tooLong)
        return 2;
    if (contentOf(QString::fromStdString(path)) != "[General]\nsettingsLeft=41\n")
        return 3;
    if (!makeRoom())
        return couldNotPrepare;
    settings.setTop(8);
    const bool allThere = contentOf(QString::fromStdString(path)).contains("settingsTop=8");
    return allThere && log.errors().size() == 1 ? 0 : 4;
}

TEST_F(SettingsOnFullDiskTest, FailedWriteKeepsTheFileAndIsMadeUpForLater)
{
    writeFile("[General]\nsettingsLeft=41\n");
    const int result = runInChild([&] {
        const auto limitFiles = [](rlim_t size) {
            const rlimit limit{size, RLIM_INFINITY};
            return setrlimit(RLIMIT_FSIZE, &limit) == 0;
        };
        if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || !limitFiles(100000))
            return couldNotPrepare;
        return writeBeyondTheRoom(pathText(), [&] { return limitFiles(RLIM_INFINITY); });
    });
    ASSERT_NE(result, couldNotPrepare);
    EXPECT_EQ(result, 0);
}

TEST_F(SettingsOnFullDiskTest, OneHugeValueLosesNothing)
{
    const int result = runOnSmallDisk(directoryPath(), "size=64k", [&](const auto& resize) {
        writeFile("[General]\nsettingsLeft=41\n");
        return writeBeyondTheRoom(pathText(), [&] { return resize("size=4m"); });
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << noSmallDisk;
    EXPECT_EQ(result, 0);
}

/// Writes until the disk of `name` takes no more.
bool fillDisk(const QString& name)
{
    const int file = open(name.toLocal8Bit().constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::vector<char> block(512);
    while (write(file, block.data(), block.size()) > 0) {
    }
    const bool isFull = errno == ENOSPC;
    return close(file) == 0 && isFull;
}

/// Stores the region as the end of a drag does, again and again. Returns the number of the check that failed, or 0.
int dragOnFullDisk(const QString& path, const QByteArray& content)
{
    const LogCapture log;
    AppSettings settings(path.toStdString());
    constexpr int drags = 100;
    for (int drag = 1; drag <= drags; ++drag) {
        settings.setLeft(drag);
        settings.setTop(drag);
        if (contentOf(path) != content)
            return 1;
        if (settings.left() != drag || settings.top() != drag || settings.webcamDeviceID() != "kept")
            return 2;
    }
    if (log.errors().size() != std::size_t{2} * drags)
        return 3;
    for (const LogCapture::Line& line : log.errors()) {
        if (line.message.find("No space left on device") == std::string::npos || line.category != "Nimbrale.settings")
            return 4;
    }
    const AppSettings other(path.toStdString());
    if (other.left() != 41)
        return 5;
    if (QDir(QFileInfo(path).path()).entryList(QDir::Files).size() != 2)
        return 8; // What could not be written is left nowhere.
    bool isGroupSeen = false;
    settings.changeTogether([&] {
        settings.setLeft(101);
        isGroupSeen = settings.left() == 101;
    });
    if (!isGroupSeen)
        return 9;
    if (!QFile::remove(path + ".filler"))
        return couldNotPrepare;
    settings.setWidth(7);
    const std::size_t failedWrites = std::size_t{2} * drags + 1;
    const QByteArray madeUp = "[General]\nsettingsLeft=101\nwebcamDeviceID=kept\nsettingsTop=100\nsettingsWidth=7\n";
    if (contentOf(path) != madeUp)
        return 6;
    if (log.errors().size() != failedWrites)
        return 7;
    // What was made up for is not tried again.
    if (!fillDisk(path + ".filler"))
        return couldNotPrepare;
    settings.setHeight(8);
    return log.errors().back().message.starts_with("The setting settingsHeight could not be written") ? 0 : 10;
}

TEST_F(SettingsOnFullDiskTest, ManySmallWritesLoseNoSetting)
{
    const int result = runOnSmallDisk(directoryPath(), "size=12k", [&](const auto&) {
        const QByteArray content = "[General]\nsettingsLeft=41\nwebcamDeviceID=kept\n";
        writeFile(content);
        if (!fillDisk(path() + ".filler"))
            return couldNotPrepare;
        return dragOnFullDisk(path(), content);
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << noSmallDisk;
    EXPECT_EQ(result, 0);
}

} // namespace
} // namespace nimbrale
