// What the settings file may turn into, and who else may write it.

#include "tests/faults/settings_file_fixture.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <sys/stat.h>

namespace nimbrale {
namespace {

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
                                         Damage{"Huge", QByteArray(qsizetype{5} * 1024 * 1024, 'a') + "=1\n"},
                                         Damage{"HugeThoughItBeginsWell",
                                                "[General]\nsettingsFramerate=7\nkey=" +
                                                    QByteArray(qsizetype{5} * 1024 * 1024, 'a') + "\n"}),
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
    EXPECT_TRUE(names.at(1).endsWith("-2"));
    EXPECT_TRUE(names.at(2).endsWith("-3"));
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

TEST_F(SettingsFileTest, ValueThatAnotherStoreWroteAfterAFailedWriteIsSeenAndKept)
{
    const QString folder = directoryPath() + "/folder";
    const std::string inFolder = (folder + "/Nimbrale.conf").toStdString();
    const LogCapture log;
    AppSettings first(inFolder);
    AppSettings second(inFolder);
    // A file in place of the folder, which opening made, fails every write.
    ASSERT_TRUE(QDir().rmdir(folder));
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

} // namespace
} // namespace nimbrale
