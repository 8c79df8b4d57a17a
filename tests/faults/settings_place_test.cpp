// What may stand where the settings file belongs, from the start or all of a sudden: none of it ends or hangs the
// program, and none takes away what the store had.

#include "platform/file_descriptor.h"
#include "tests/fakes/folder_events.h"
#include "tests/faults/settings_file_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace nimbrale {
namespace {

const QByteArray whole = "[General]\nsettingsLeft=1234\nwebcamDeviceID=camera\nsettingsTop=5678\n";

class SettingsPlaceTest : public SettingsFileTest {
protected:
    /// A store that has written `whole`.
    [[nodiscard]] std::unique_ptr<AppSettings> storeThatWrote() const
    {
        auto settings = std::make_unique<AppSettings>(pathText());
        settings->setLeft(1234);
        settings->setWebcamDeviceID("camera");
        settings->setTop(5678);
        return settings;
    }

    static void expectWhatWasWritten(const AppSettings& settings)
    {
        EXPECT_EQ(settings.left(), 1234);
        EXPECT_EQ(settings.webcamDeviceID(), "camera");
        EXPECT_EQ(settings.top(), 5678);
    }
    static void expectDefaultRegion(const AppSettings& settings)
    {
        EXPECT_EQ(settings.left(), 0);
        EXPECT_EQ(settings.top(), 0);
        EXPECT_EQ(settings.webcamDeviceID(), "");
    }
};

struct CutOff {
    const char* what;
    qsizetype size;
};

class CutOffFileTest : public SettingsPlaceTest, public testing::WithParamInterface<CutOff> {};

TEST_P(CutOffFileTest, TakesNothingAway)
{
    const auto settings = storeThatWrote();
    ASSERT_EQ(contentOf(path()), whole);
    writeFile(whole.left(GetParam().size));
    const LogCapture log;
    expectWhatWasWritten(*settings);
    expectWhatWasWritten(*settings);
    ASSERT_EQ(log.errors().size(), 1U) << "told once";
    EXPECT_EQ(log.errors().front().message,
              "The settings file " + pathText() + " is cut off; what it held before stays in use");
    settings->setWidth(9);
    EXPECT_EQ(contentOf(path()), whole + "settingsWidth=9\n");
    EXPECT_EQ(log.errors().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CutOffFileTest,
                         testing::Values(CutOff{"Nothing", 0}, CutOff{"AfterTheSection", 10}, CutOff{"AfterALine", 28},
                                         CutOff{"WithinAValue", 25}, CutOff{"WithinTheLastValue", 64}),
                         [](const auto& description) { return description.param.what; });

TEST_F(SettingsPlaceTest, GarbageThatReplacesTheFileTakesNothingAway)
{
    const auto settings = storeThatWrote();
    writeFile("garbage\n");
    const LogCapture log;
    expectWhatWasWritten(*settings);
    ASSERT_EQ(log.errors().size(), 1U);
    EXPECT_TRUE(log.errors().front().message.ends_with("is damaged; what it held before stays in use"));
    settings->setWidth(9);
    EXPECT_EQ(contentOf(path()), whole + "settingsWidth=9\n");
    ASSERT_EQ(setAside().size(), 1);
    EXPECT_EQ(contentOf(directoryPath() + "/" + setAside().first()), "garbage\n");
}

TEST_F(SettingsPlaceTest, WhatOtherProgramsWriteIsFollowed)
{
    const auto settings = storeThatWrote();
    const LogCapture log;
    writeFile("[General]\nsettingsLeft=12\nwebcamDeviceID=camera\nsettingsTop=5678\n");
    EXPECT_EQ(settings->left(), 12) << "a shorter value";
    writeFile("[General]\nsettingsLeft=12\nwebcamDeviceID=camera\nsettingsTop=56\n");
    EXPECT_EQ(settings->top(), 56) << "a shorter value at the end";
    writeFile("[General]\nsettingsLeft=12\nsettingsTop=56\n");
    EXPECT_EQ(settings->webcamDeviceID(), "") << "a key that others follow was removed";
    writeFile("[General]\nsettingsLeft=12\nsettingsTop=56");
    EXPECT_EQ(settings->top(), 56) << "without the last line end";
    ASSERT_TRUE(QDir().mkpath(directoryPath() + "/other"));
    std::ofstream((directoryPath() + "/other/file").toStdString()) << "[General]\nsettingsLeft=78\n";
    EXPECT_EQ(settings->left(), 12);
    std::filesystem::rename((directoryPath() + "/other/file").toStdString(), pathText());
    EXPECT_EQ(settings->left(), 78) << "moved there from another folder";
    ASSERT_TRUE(QFile::remove(path()));
    expectDefaultRegion(*settings);
    EXPECT_TRUE(log.errors().empty());
}

TEST_F(SettingsPlaceTest, AFileThatMayNotBeReadAnyMoreTakesNothingAway)
{
    const auto settings = storeThatWrote();
    ASSERT_TRUE(QFile::remove(path()));
    ASSERT_EQ(mkfifo(path().toLocal8Bit().constData(), 0600), 0);
    const LogCapture log;
    expectWhatWasWritten(*settings);
    ASSERT_EQ(log.errors().size(), 1U);
    EXPECT_TRUE(log.errors().front().message.ends_with("cannot be read; what it held before stays in use"));
    ASSERT_TRUE(QFile::remove(path()));
    expectDefaultRegion(*settings);
}

/// Opens, reads and writes settings in a process that must come to an end in good time, with little memory.
int useSettings(const std::string& path, const std::function<int(AppSettings&)>& use)
{
    return runInChild([&] {
        alarm(20);
        const rlimit memory{rlim_t{1} << 30, RLIM_INFINITY};
        if (setrlimit(RLIMIT_AS, &memory) != 0)
            return couldNotPrepare;
        AppSettings settings(path);
        return use(settings);
    });
}

int useWhatCannotBeRead(AppSettings& settings)
{
    if (settings.left() != 0)
        return 1;
    settings.setLeft(7);
    return settings.left() == 7 ? 0 : 2;
}

TEST_F(SettingsPlaceTest, APipeInPlaceOfTheFileHangsNothing)
{
    ASSERT_EQ(mkfifo(path().toLocal8Bit().constData(), 0600), 0);
    FolderEvents events(directoryPath().toStdString());
    EXPECT_EQ(useSettings(pathText(), useWhatCannotBeRead), 0);
    EXPECT_TRUE(std::filesystem::is_fifo(pathText())) << "what is not ours stays";
    EXPECT_FALSE(events.take("Nimbrale.conf").wasOpened) << "its other end would notice";
    const FileDescriptor opened(open(path().toLocal8Bit().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_TRUE(events.take("Nimbrale.conf").wasOpened) << "the control: opening is seen";
}

TEST_F(SettingsPlaceTest, AnEndlessDeviceInPlaceOfTheFileHangsNothing)
{
    std::filesystem::create_symlink("/dev/zero", pathText());
    EXPECT_EQ(useSettings(pathText(), useWhatCannotBeRead), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(pathText()));
}

TEST_F(SettingsPlaceTest, AFileOfAHundredGigabytesIsSetAsideUnread)
{
    writeFile(whole);
    std::filesystem::resize_file(pathText(), std::uintmax_t{100} << 30);
    const int result = useSettings(pathText(), [&](AppSettings& settings) {
        if (settings.left() != 0)
            return 1;
        settings.setLeft(7);
        return contentOf(path()) == "[General]\nsettingsLeft=7\n" ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
    ASSERT_EQ(setAside().size(), 1);
    EXPECT_EQ(std::filesystem::file_size((directoryPath() + "/" + setAside().first()).toStdString()),
              std::uintmax_t{100} << 30);
}

TEST_F(SettingsPlaceTest, AFileThatGrowsToAHundredGigabytesTakesNothingAway)
{
    const auto settings = storeThatWrote();
    std::filesystem::resize_file(pathText(), std::uintmax_t{100} << 30);
    const LogCapture log;
    expectWhatWasWritten(*settings);
    EXPECT_EQ(log.errors().size(), 1U);
    settings->setWidth(9);
    EXPECT_EQ(contentOf(path()), whole + "settingsWidth=9\n");
}

TEST_F(SettingsPlaceTest, ALinkStaysAndWhatItLeadsToIsFollowedAndReplaced)
{
    const QString elsewhere = directoryPath() + "/elsewhere";
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    const std::string target = elsewhere.toStdString() + "/file";
    std::ofstream(target) << "[General]\nsettingsLeft=1\n";
    std::filesystem::create_symlink(target, pathText());
    AppSettings settings(pathText());
    ASSERT_EQ(settings.left(), 1);
    std::ofstream(target) << "[General]\nsettingsLeft=2\n";
    EXPECT_EQ(settings.left(), 2);
    settings.setTop(3);
    EXPECT_TRUE(std::filesystem::is_symlink(pathText()));
    EXPECT_EQ(contentOf(elsewhere + "/file"), "[General]\nsettingsLeft=2\nsettingsTop=3\n");
}

TEST_F(SettingsPlaceTest, AnotherFolderInPlaceOfTheFilesFolderIsFollowed)
{
    const QString folder = directoryPath() + "/folder";
    AppSettings settings((folder + "/Nimbrale.conf").toStdString());
    settings.setLeft(1);
    ASSERT_EQ(settings.left(), 1);
    ASSERT_TRUE(QFile::rename(folder, folder + ".old"));
    EXPECT_EQ(settings.left(), 0) << "there is no file now";
    ASSERT_TRUE(QDir().mkpath(folder));
    std::ofstream((folder + "/Nimbrale.conf").toStdString()) << "[General]\nsettingsLeft=2\n";
    EXPECT_EQ(settings.left(), 2);
    std::ofstream((folder + "/Nimbrale.conf").toStdString()) << "[General]\nsettingsLeft=3\n";
    EXPECT_EQ(settings.left(), 3);
}

TEST_F(SettingsPlaceTest, RightsOfTheFileStay)
{
    writeFile(whole);
    ASSERT_EQ(chmod(path().toLocal8Bit().constData(), 0640), 0);
    AppSettings(pathText()).setLeft(3);
    EXPECT_EQ(static_cast<unsigned>(std::filesystem::status(pathText()).permissions()), 0640U);
}

TEST_F(SettingsPlaceTest, WhatAKilledWriterLeftIsRemovedAndALivingOnesStays)
{
    const int ended = [&] {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        waitpid(child, nullptr, 0);
        return static_cast<int>(child);
    }();
    const QString leftover = path() + "." + QString::number(ended) + ".new";
    const QString living = path() + "." + QString::number(getppid()) + ".new";
    const QString others = path() + ".old.new";
    const QString negative = path() + "." + QString::number(-ended) + ".new";
    for (const QString& name : {leftover, living, others, negative})
        std::ofstream(name.toStdString()) << "half";
    const AppSettings settings(pathText());
    EXPECT_FALSE(QFile::exists(leftover));
    EXPECT_TRUE(QFile::exists(living));
    EXPECT_TRUE(QFile::exists(others));
    EXPECT_TRUE(QFile::exists(negative));
}

TEST_F(SettingsPlaceTest, ARelativeConfigurationFolderIsIgnored)
{
    const int result = runInChild([&] {
        const QString home = directoryPath() + "/home";
        if (!QDir::setCurrent(directoryPath()) || !qputenv("HOME", home.toUtf8()) ||
            !qputenv("XDG_CONFIG_HOME", "relative"))
            return couldNotPrepare;
        AppSettings::shared().setLeft(9);
        if (QFile::exists(directoryPath() + "/relative"))
            return 1;
        return contentOf(home + "/.config/Nimbrale/Nimbrale.conf") == "[General]\nsettingsLeft=9\n" ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
}

} // namespace
} // namespace nimbrale
