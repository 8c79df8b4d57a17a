#include "settings/app_settings.h"
#include "tests/fakes/log_capture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale {
namespace {

QByteArray contentOf(const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

class SettingsFileTest : public testing::Test {
protected:
    [[nodiscard]] QString path() const { return directory_.filePath("Nimbrale.conf"); }
    [[nodiscard]] std::string pathText() const { return path().toStdString(); }
    [[nodiscard]] QStringList setAside() const
    {
        return QDir(directory_.path()).entryList({"Nimbrale.conf.damaged-*"}, QDir::Files, QDir::Name);
    }
    [[nodiscard]] QString directoryPath() const { return directory_.path(); }

    void writeFile(const QByteArray& content) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

private:
    QTemporaryDir directory_;
};

/// Runs `work` in a process of its own and gives its exit status; -1 when it did not end by itself.
int runInChild(const std::function<int()>& work)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr int couldNotPrepare = 77;

struct Damage {
    const char* what;
    QByteArray content;
};

class DamagedFileTest : public SettingsFileTest, public testing::WithParamInterface<Damage> {};

TEST_P(DamagedFileTest, IsSetAsideAndTheDefaultsAreUsed)
{
    writeFile(GetParam().content);
    const LogCapture log;
    AppSettings settings(pathText());
    EXPECT_EQ(settings.framerate(), 30);
    ASSERT_EQ(setAside().size(), 1);
    EXPECT_EQ(contentOf(directoryPath() + "/" + setAside().first()), GetParam().content);
    ASSERT_EQ(log.errors().size(), 1U);
    EXPECT_TRUE(log.errors().front().message.starts_with("The settings file was damaged"));
    EXPECT_EQ(log.errors().front().category, "Nimbrale.settings");

    settings.setFramerate(25);
    EXPECT_EQ(contentOf(path()), "[General]\nsettingsFramerate=25\n");
}

INSTANTIATE_TEST_SUITE_P(Damages, DamagedFileTest,
                         testing::Values(Damage{"Zeros", QByteArray(4096, '\0')},
                                         Damage{"Binary", QByteArray("\x7f"
                                                                     "ELF\x02\x01=\xff\xfe\x80\n",
                                                                     12)},
                                         Damage{"NotUtf8", "[General]\nwebcamDeviceID=\xff\xfe\nsettingsLeft=1\n"},
                                         Damage{"Prose", "this is no settings file\nat all\n"},
                                         Damage{"CutOff", "[General]\nsettingsLeft=5\nsettingsFramera"},
                                         Damage{"Huge", QByteArray(qsizetype{5} * 1024 * 1024, 'a') + "=1\n"}),
                         [](const auto& description) { return description.param.what; });

TEST_F(SettingsFileTest, EmptyFileIsNotDamaged)
{
    writeFile("");
    const LogCapture log;
    const AppSettings settings(pathText());
    EXPECT_EQ(settings.framerate(), 30);
    EXPECT_TRUE(setAside().isEmpty());
    EXPECT_TRUE(log.errors().empty());
}

TEST_F(SettingsFileTest, EarlierDamagedFilesAreKept)
{
    for (int round = 0; round < 3; ++round) {
        writeFile("damage number " + QByteArray::number(round) + "\n");
        const LogCapture log;
        const AppSettings settings(pathText());
        EXPECT_EQ(settings.left(), 0);
    }
    const QStringList names = setAside();
    ASSERT_EQ(names.size(), 3);
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(contentOf(directoryPath() + "/" + names.at(round)),
                  "damage number " + QByteArray::number(round) + "\n");
}

TEST_F(SettingsFileTest, FileThatMayNotBeReadIsNotOverwritten)
{
    const QByteArray content = "[General]\nsettingsLeft=41\n";
    writeFile(content);
    // The directory stays writable for the child, so that only the program's care keeps the file.
    ASSERT_EQ(chmod(directoryPath().toLocal8Bit().constData(), 0777), 0);
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0), 0);
    const int result = runInChild([&] {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && seteuid(nobody) != 0)
            return couldNotPrepare;
        const LogCapture log;
        AppSettings settings(pathText());
        if (log.errors().size() != 1 || settings.left() != 0)
            return 1;
        settings.setLeft(7);
        if (log.errors().size() != 2)
            return 2;
        return settings.left() == 7 ? 0 : 3;
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << "the test could not give up its rights to every file";
    EXPECT_EQ(result, 0);
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0600), 0);
    EXPECT_EQ(contentOf(path()), content);
    EXPECT_TRUE(setAside().isEmpty());
}

TEST_F(SettingsFileTest, DirectoryInPlaceOfTheFileIsLeftAlone)
{
    ASSERT_TRUE(QDir().mkpath(path() + "/inside"));
    const LogCapture log;
    AppSettings settings(pathText());
    EXPECT_EQ(settings.left(), 0);
    settings.setLeft(4);
    EXPECT_EQ(log.errors().size(), 2U) << "one for the reading and one for the writing";
    EXPECT_EQ(settings.left(), 4);
    EXPECT_TRUE(QFile::exists(path() + "/inside"));
}

/// Writes pairs of equal numbers for ever.
[[noreturn]] void writeUntilKilled(const std::string& path, std::int64_t first, int started)
{
    AppSettings settings(path);
    const char ready = 1;
    if (write(started, &ready, 1) != 1)
        _exit(1);
    for (std::int64_t value = first;; ++value) {
        settings.setLeft(value);
        settings.setTop(value);
    }
}

TEST_F(SettingsFileTest, KillingTheWriterLosesNoEarlierValue)
{
    {
        AppSettings settings(pathText());
        settings.setWebcamDeviceID("kept from the beginning");
        settings.setLeft(0);
        settings.setTop(0);
    }
    std::mt19937 random(20);
    std::uniform_int_distribution<useconds_t> wait(0, 15000);
    std::int64_t newest = 0;
    qint64 slowestWrite = 0;
    for (int round = 0; round < 60; ++round) {
        int started[2];
        ASSERT_EQ(pipe(started), 0);
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0)
            writeUntilKilled(pathText(), newest + 1, started[1]);
        close(started[1]);
        char ready = 0;
        ASSERT_EQ(read(started[0], &ready, 1), 1);
        close(started[0]);
        usleep(wait(random));
        ASSERT_EQ(kill(child, SIGKILL), 0);
        waitpid(child, nullptr, 0);

        const QString copy = path() + ".copy" + QString::number(round);
        ASSERT_TRUE(QFile::copy(path(), copy));
        const AppSettings settings(copy.toStdString());
        EXPECT_EQ(settings.webcamDeviceID(), "kept from the beginning");
        EXPECT_GE(settings.left(), newest);
        EXPECT_TRUE(settings.left() == settings.top() || settings.left() == settings.top() + 1)
            << settings.left() << " " << settings.top();
        newest = settings.left();

        QElapsedTimer timer;
        timer.start();
        AppSettings(pathText()).setTop(newest);
        slowestWrite = std::max(slowestWrite, timer.elapsed());
    }
    EXPECT_GT(newest, 0) << "the children must have written something";
    EXPECT_TRUE(setAside().isEmpty());
    EXPECT_LT(slowestWrite, 5000) << "what a killed writer leaves behind must not hold up the next one";
}

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

TEST_F(SettingsFileTest, FailedWriteKeepsTheFileAndIsMadeUpForLater)
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

TEST_F(SettingsFileTest, ValueThatAnotherStoreWroteAfterAFailedWriteIsSeenAndKept)
{
    const QString folder = directoryPath() + "/folder";
    const std::string inFolder = (folder + "/Nimbrale.conf").toStdString();
    const LogCapture log;
    AppSettings first(inFolder);
    AppSettings second(inFolder);
    // A file in place of the folder fails every write.
    QFile obstacle(folder);
    ASSERT_TRUE(obstacle.open(QIODevice::WriteOnly));
    first.setLeft(1);
    first.setTop(2);
    ASSERT_EQ(log.errors().size(), 2U);
    ASSERT_EQ(first.left(), 1);
    ASSERT_TRUE(obstacle.remove());

    second.setLeft(3);
    EXPECT_EQ(first.left(), 3);
    EXPECT_EQ(first.top(), 2) << "nobody else has written this one";
    first.setWidth(4);
    EXPECT_EQ(contentOf(folder + "/Nimbrale.conf"), "[General]\nsettingsLeft=3\nsettingsTop=2\nsettingsWidth=4\n");
    EXPECT_EQ(second.left(), 3);
    EXPECT_EQ(log.errors().size(), 2U);
}

/// Writes one of the kernel's files about this process.
bool tellKernel(const char* name, const std::string& text)
{
    QFile file(QStringLiteral("/proc/self/") + name);
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(text.c_str()) > 0;
}

/// Gives this process file systems of its own, where it may mount, and a user and a group that can own files there.
bool leaveSharedFileSystems()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && tellKernel("uid_map", "0 " + user + " 1") &&
           tellKernel("setgroups", "deny") && tellKernel("gid_map", "0 " + group + " 1");
}

TEST_F(SettingsFileTest, FullDiskLosesNothing)
{
    const int result = runInChild([&] {
        const QByteArray directory = directoryPath().toLocal8Bit(); // Covered by the small disk, in the child only.
        const auto mountWith = [&](unsigned long flags, const char* options) {
            return mount("tmpfs", directory.constData(), "tmpfs", flags, options) == 0;
        };
        if (!leaveSharedFileSystems() || !mountWith(0, "size=64k"))
            return couldNotPrepare;
        writeFile("[General]\nsettingsLeft=41\n");
        return writeBeyondTheRoom(pathText(), [&] { return mountWith(MS_REMOUNT, "size=4m"); });
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << "this system lets the test mount no small file system";
    EXPECT_EQ(result, 0);
}

} // namespace
} // namespace nimbrale
