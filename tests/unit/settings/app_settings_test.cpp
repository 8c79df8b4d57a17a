#include "tests/unit/settings/app_settings_fixture.h"

#include <QSettings>

#include <gtest/gtest.h>

#include <limits>

namespace nimbrale {
namespace {

TEST_F(AppSettingsTest, FreshFileYieldsTheDefaultsAndWritesNothing)
{
    {
        const AppSettings settings(pathText());
        expectDefaults(settings);
    }
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(AppSettingsTest, WebcamPositionBeforeThePictureWasPlacedIsMinusOne)
{
    AppSettings settings(pathText());
    settings.setWebcamEnabled(true);
    EXPECT_EQ(settings.webcamX(), -1.0);
}

TEST_F(AppSettingsTest, EveryPropertyKeepsItsValueUnderItsKey)
{
    {
        AppSettings settings(pathText());
        settings.setLeft(11);
        settings.setTop(-12);
        settings.setWidth(13);
        settings.setHeight(14);
        settings.setDisplayID(4294967295);
        settings.setSnappingEnabled(false);
        settings.setShareNotifications(false);
        settings.setFramerate(60);
        settings.setShowWelcomeAtLaunch(false);
        settings.setWebcamEnabled(true);
        settings.setWebcamDeviceID("camera, \"one\"; ümlaut=1 \\ @x");
        settings.setWebcamShape(AppSettings::WebcamShape::circle);
        settings.setWebcamBackground(AppSettings::WebcamBackground::transparent);
        settings.setWebcamMirrored(false);
        settings.setWebcamFadeOnHover(false);
        settings.setWebcamX(0.1);
        settings.setWebcamY(1e-300);
        settings.setWebcamWidth(12345.678901234567);
        settings.setWebcamHeight(90);
        settings.setRecordMicrophone(false);
        settings.setRecordMicrophoneID("@ByteArray(not bytes)");
        settings.setRecordSystemAudio(true);
        settings.setRecordQuality(AppSettings::RecordingQuality::high);
        settings.setRecordFolderBookmark({std::byte{0}, std::byte{0xff}, std::byte{'\n'}, std::byte{'='}});
        settings.setSettingsTab(AppSettings::SettingsTab::recording);
        settings.setHasRequestedScreenCaptureAccess(true);
    }
    const QByteArray content = readFile();
    for (const char* line : {"[General]",
                             "settingsLeft=11",
                             "settingsTop=-12",
                             "settingsWidth=13",
                             "settingsHeight=14",
                             "settingsDisplayID=4294967295",
                             "settingsSnapping=false",
                             "shareNotifications=false",
                             "settingsFramerate=60",
                             "showWelcomeAtLaunch=false",
                             "webcamEnabled=true",
                             "webcamShape=circle",
                             "webcamBackground=transparent",
                             "webcamMirrored=false",
                             "webcamFadeOnHover=false",
                             "webcamX=0.1",
                             "webcamY=1e-300",
                             "webcamHeight=90",
                             "recordMicrophone=false",
                             "recordSystemAudio=true",
                             "recordQuality=high",
                             "settingsTab=recording",
                             "requestedScreenCaptureAccess=true",
                             "recordFolder=",
                             "recordMicrophoneID=",
                             "webcamDeviceID="}) {
        EXPECT_TRUE(content.contains(line)) << line << " is missing in\n" << content.toStdString();
    }

    // Read from a copy, so that nothing which the toolkit remembers of the first file can answer.
    const QString copy = path() + ".copy";
    ASSERT_TRUE(QFile::copy(path(), copy));
    const AppSettings settings(copy.toStdString());
    EXPECT_EQ(settings.left(), 11);
    EXPECT_EQ(settings.top(), -12);
    EXPECT_EQ(settings.width(), 13);
    EXPECT_EQ(settings.height(), 14);
    EXPECT_EQ(settings.displayID(), 4294967295);
    EXPECT_FALSE(settings.snappingEnabled());
    EXPECT_FALSE(settings.shareNotifications());
    EXPECT_EQ(settings.framerate(), 60);
    EXPECT_FALSE(settings.showWelcomeAtLaunch());
    EXPECT_TRUE(settings.webcamEnabled());
    EXPECT_EQ(settings.webcamDeviceID(), "camera, \"one\"; ümlaut=1 \\ @x");
    EXPECT_EQ(settings.webcamShape(), AppSettings::WebcamShape::circle);
    EXPECT_EQ(settings.webcamBackground(), AppSettings::WebcamBackground::transparent);
    EXPECT_FALSE(settings.webcamMirrored());
    EXPECT_FALSE(settings.webcamFadeOnHover());
    EXPECT_EQ(settings.webcamX(), 0.1);
    EXPECT_EQ(settings.webcamY(), 1e-300);
    EXPECT_EQ(settings.webcamWidth(), 12345.678901234567);
    EXPECT_EQ(settings.webcamHeight(), 90);
    EXPECT_FALSE(settings.recordMicrophone());
    EXPECT_EQ(settings.recordMicrophoneID(), "@ByteArray(not bytes)");
    EXPECT_TRUE(settings.recordSystemAudio());
    EXPECT_EQ(settings.recordQuality(), AppSettings::RecordingQuality::high);
    EXPECT_EQ(settings.recordFolderBookmark(),
              (std::vector{std::byte{0}, std::byte{0xff}, std::byte{'\n'}, std::byte{'='}}));
    EXPECT_EQ(settings.settingsTab(), AppSettings::SettingsTab::recording);
    EXPECT_TRUE(settings.hasRequestedScreenCaptureAccess());
}

TEST_F(AppSettingsTest, ToolkitReadsWhatIsWritten)
{
    AppSettings settings(pathText());
    const std::string text = "a, \"b\"; c=d \\ \x01"
                             "1\t\n é 🎯 @";
    settings.setWebcamDeviceID(text);
    settings.setRecordMicrophoneID("@device");
    std::vector<std::byte> bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes.push_back(static_cast<std::byte>(byte));
    settings.setRecordFolderBookmark(bytes);
    settings.setWebcamX(0.1);
    EXPECT_EQ(settings.webcamDeviceID(), text);
    EXPECT_EQ(settings.recordFolderBookmark(), bytes);

    const QSettings file(path(), QSettings::IniFormat);
    EXPECT_EQ(file.value("webcamDeviceID").toString().toStdString(), text);
    EXPECT_EQ(file.value("recordMicrophoneID").toString(), "@device");
    EXPECT_EQ(file.value("recordFolder").toByteArray(),
              QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())));
    EXPECT_EQ(file.value("webcamX").toDouble(), 0.1);
}

// The characters of a code go on as long as they look like its digits.
TEST_F(AppSettingsTest, DigitsAfterAControlCharacterStayThemselves)
{
    for (const char digit : std::string("0189afAFg")) {
        // The toolkit may take a file that has changed within a moment for the one that it has read.
        const std::string file = pathText() + digit;
        const std::string text = {'\x01', digit, digit, '\x1f', digit};
        AppSettings(file).setWebcamDeviceID(text);
        EXPECT_EQ(AppSettings(file).webcamDeviceID(), text) << digit;
        EXPECT_EQ(QSettings(QString::fromStdString(file), QSettings::IniFormat)
                      .value("webcamDeviceID")
                      .toString()
                      .toStdString(),
                  text)
            << digit;
    }
}

TEST_F(AppSettingsTest, WhatTheToolkitWritesIsRead)
{
    const std::string text = "a, \"b\"; c=d \\ \x01"
                             "1\t\n é 🎯 @";
    QByteArray bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes.append(static_cast<char>(byte));
    {
        QSettings file(path(), QSettings::IniFormat);
        file.setValue("webcamDeviceID", QString::fromStdString(text));
        file.setValue("recordMicrophoneID", "@device");
        file.setValue("recordFolder", bytes);
        file.setValue("webcamX", 12.5);
        file.setValue("settingsLeft", 41);
        file.setValue("settingsSnapping", false);
        file.setValue("webcamShape", "circle");
    }
    const AppSettings settings(pathText());
    EXPECT_EQ(settings.webcamDeviceID(), text);
    EXPECT_EQ(settings.recordMicrophoneID(), "@device");
    const std::vector<std::byte> read = settings.recordFolderBookmark();
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(read.data()), static_cast<qsizetype>(read.size())), bytes);
    EXPECT_EQ(settings.webcamX(), 12.5);
    EXPECT_EQ(settings.left(), 41);
    EXPECT_FALSE(settings.snappingEnabled());
    EXPECT_EQ(settings.webcamShape(), AppSettings::WebcamShape::circle);
}

TEST_F(AppSettingsTest, TextThatIsNoUtf8DoesNotDamageTheFile)
{
    AppSettings settings(pathText());
    settings.setFramerate(12);
    settings.setWebcamDeviceID("\xff\xfe");
    EXPECT_EQ(AppSettings(pathText()).framerate(), 12);
}

TEST_F(AppSettingsTest, OnlyTheAssignedKeyIsWritten)
{
    AppSettings settings(pathText());
    settings.setFramerate(30);
    EXPECT_EQ(readFile(), "[General]\nsettingsFramerate=30\n");
}

TEST_F(AppSettingsTest, KeysOfOthersStay)
{
    writeFile("[General]\ntestFeedURL=http://localhost/feed\n\n[Other]\nkey=value\n");
    AppSettings settings(pathText());
    settings.setLeft(5);
    const QSettings file(path(), QSettings::IniFormat);
    EXPECT_EQ(readFile(), "[General]\ntestFeedURL=http://localhost/feed\nsettingsLeft=5\n\n[Other]\nkey=value\n");
    EXPECT_EQ(file.value("testFeedURL").toString(), "http://localhost/feed");
    EXPECT_EQ(file.value("Other/key").toString(), "value");
    EXPECT_EQ(file.value("settingsLeft").toString(), "5");
}

TEST_F(AppSettingsTest, ObserversAreToldBeforeTheWrite)
{
    AppSettings settings(pathText());
    std::vector<std::int64_t> seen;
    const Subscription subscription = settings.observeChanges([&] { seen.push_back(settings.framerate()); });
    settings.setFramerate(15);
    settings.setFramerate(60);
    EXPECT_EQ(seen, (std::vector<std::int64_t>{30, 15}));
}

TEST_F(AppSettingsTest, ObserversAreToldOfEqualValuesToo)
{
    AppSettings settings(pathText());
    int count = 0;
    const Subscription subscription = settings.observeChanges([&] { ++count; });
    settings.setFramerate(30);
    settings.setFramerate(30);
    EXPECT_EQ(count, 2);
}

TEST_F(AppSettingsTest, FiveAssignmentsAreFiveNotifications)
{
    AppSettings settings(pathText());
    int count = 0;
    Subscription subscription = settings.observeChanges([&] { ++count; });
    settings.setLeft(1);
    settings.setTop(2);
    settings.setWidth(3);
    settings.setHeight(4);
    settings.setDisplayID(5);
    EXPECT_EQ(count, 5);
    subscription.reset();
    settings.setLeft(6);
    EXPECT_EQ(count, 5);
}

TEST_F(AppSettingsTest, WhatChangesTogetherIsToldOneByOneAndWrittenOnce)
{
    AppSettings settings(pathText());
    settings.setLeft(1);
    std::vector<std::pair<std::int64_t, std::int64_t>> seen;
    const Subscription subscription =
        settings.observeChanges([&] { seen.emplace_back(settings.left(), settings.top()); });
    settings.changeTogether([&] {
        settings.setLeft(2);
        settings.changeTogether([&] { settings.setTop(3); });
        EXPECT_EQ(settings.top(), 3) << "in effect at once";
        EXPECT_EQ(readFile(), "[General]\nsettingsLeft=1\n") << "written at the end of the outermost";
        settings.setLeft(4);
    });
    EXPECT_EQ(readFile(), "[General]\nsettingsLeft=4\nsettingsTop=3\n");
    EXPECT_EQ(seen, (std::vector<std::pair<std::int64_t, std::int64_t>>{{1, 0}, {2, 0}, {2, 3}}));
}

TEST_F(AppSettingsTest, NothingChangedTogetherIsNothingWritten)
{
    AppSettings settings(pathText());
    settings.changeTogether([] {});
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(AppSettingsTest, WhatWasAssignedTogetherCountsOverWhatAnotherWroteMeanwhile)
{
    AppSettings settings(pathText());
    AppSettings other(pathText());
    settings.changeTogether([&] {
        settings.setLeft(2);
        other.setLeft(3);
        other.setTop(4);
        EXPECT_EQ(settings.left(), 2);
        EXPECT_EQ(settings.top(), 4);
    });
    EXPECT_EQ(other.left(), 2);
    EXPECT_EQ(other.top(), 4);
}

TEST_F(AppSettingsTest, TwoStoresOnOneFileSeeEachOthersValues)
{
    AppSettings one(pathText());
    AppSettings other(pathText());
    one.setFramerate(12);
    EXPECT_EQ(other.framerate(), 12);
    other.setFramerate(24);
    other.setWebcamDeviceID("camera");
    EXPECT_EQ(one.framerate(), 24);
    EXPECT_EQ(one.webcamDeviceID(), "camera");
}

TEST_F(AppSettingsTest, AWriteStartsFromWhatTheFileHoldsThen)
{
    AppSettings one(pathText());
    one.setLeft(1);
    ASSERT_EQ(one.left(), 1);
    AppSettings(pathText()).setTop(2);
    one.setLeft(3);
    EXPECT_EQ(readFile(), "[General]\nsettingsLeft=3\nsettingsTop=2\n");
}

TEST_F(AppSettingsTest, ValuesReachTheFileWithTheAssignment)
{
    AppSettings settings(pathText());
    settings.setLeft(77);
    EXPECT_TRUE(readFile().contains("settingsLeft=77"));
}

TEST_F(AppSettingsTest, MissingDirectoryIsMade)
{
    const QString nested = path() + ".d/Nimbrale/Nimbrale.conf";
    AppSettings settings(nested.toStdString());
    settings.setLeft(3);
    EXPECT_TRUE(QFile::exists(nested));
}

TEST_F(AppSettingsTest, SharedInstanceLivesInTheConfigurationDirectory)
{
    const QString directory = path() + ".config";
    qputenv("XDG_CONFIG_HOME", directory.toUtf8());
    AppSettings::shared().setLeft(9);
    EXPECT_EQ(&AppSettings::shared(), &AppSettings::shared());
    EXPECT_TRUE(QFile::exists(directory + "/Nimbrale/Nimbrale.conf"));
}

} // namespace
} // namespace nimbrale
