// Values that a settings file may hold and that are not what a key takes.

#include "tests/unit/settings/app_settings_fixture.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

TEST_F(AppSettingsTest, RawValuesAreComparedExactly)
{
    writeFile("[General]\nwebcamShape=square\nrecordQuality=HIGH\nwebcamBackground=\"blurred \"\nsettingsTab=\"\"\n");
    const AppSettings settings(pathText());
    EXPECT_EQ(settings.webcamShape(), AppSettings::WebcamShape::rounded);
    EXPECT_EQ(settings.recordQuality(), AppSettings::RecordingQuality::standard);
    EXPECT_EQ(settings.webcamBackground(), AppSettings::WebcamBackground::original);
    EXPECT_EQ(settings.settingsTab(), AppSettings::SettingsTab::general);
}

TEST_F(AppSettingsTest, EveryCaseStandsByItsNameInTheFile)
{
    const std::vector<std::pair<AppSettings::WebcamShape, QByteArray>> shapes{
        {AppSettings::WebcamShape::rectangle, "rectangle"},
        {AppSettings::WebcamShape::rounded, "rounded"},
        {AppSettings::WebcamShape::circle, "circle"}};
    const std::vector<std::pair<AppSettings::WebcamBackground, QByteArray>> backgrounds{
        {AppSettings::WebcamBackground::original, "original"},
        {AppSettings::WebcamBackground::blurred, "blurred"},
        {AppSettings::WebcamBackground::transparent, "transparent"}};
    const std::vector<std::pair<AppSettings::RecordingQuality, QByteArray>> qualities{
        {AppSettings::RecordingQuality::standard, "standard"}, {AppSettings::RecordingQuality::high, "high"}};
    const std::vector<std::pair<AppSettings::SettingsTab, QByteArray>> tabs{
        {AppSettings::SettingsTab::general, "general"},
        {AppSettings::SettingsTab::webcam, "webcam"},
        {AppSettings::SettingsTab::recording, "recording"}};
    AppSettings settings(pathText());
    for (const auto& [shape, name] : shapes) {
        settings.setWebcamShape(shape);
        EXPECT_TRUE(readFile().contains("webcamShape=" + name + "\n"));
        EXPECT_EQ(settings.webcamShape(), shape);
    }
    for (const auto& [background, name] : backgrounds) {
        settings.setWebcamBackground(background);
        EXPECT_TRUE(readFile().contains("webcamBackground=" + name + "\n"));
        EXPECT_EQ(settings.webcamBackground(), background);
    }
    for (const auto& [quality, name] : qualities) {
        settings.setRecordQuality(quality);
        EXPECT_TRUE(readFile().contains("recordQuality=" + name + "\n"));
        EXPECT_EQ(settings.recordQuality(), quality);
    }
    for (const auto& [tab, name] : tabs) {
        settings.setSettingsTab(tab);
        EXPECT_TRUE(readFile().contains("settingsTab=" + name + "\n"));
        EXPECT_EQ(settings.settingsTab(), tab);
    }
}

struct Unreadable {
    const char* what;
    const char* value;
    /// Whether it is no text either, so that the keys for text cannot take it.
    bool isNoText = false;
};

class UnreadableValueTest : public AppSettingsTest, public testing::WithParamInterface<Unreadable> {};

TEST_P(UnreadableValueTest, ReadsAsTheDefault)
{
    QByteArray content = "[General]\n";
    for (const char* key : {"settingsLeft",
                            "settingsTop",
                            "settingsWidth",
                            "settingsHeight",
                            "settingsDisplayID",
                            "settingsSnapping",
                            "shareNotifications",
                            "settingsFramerate",
                            "showWelcomeAtLaunch",
                            "webcamEnabled",
                            "webcamShape",
                            "webcamBackground",
                            "webcamMirrored",
                            "webcamFadeOnHover",
                            "webcamX",
                            "webcamY",
                            "webcamWidth",
                            "webcamHeight",
                            "recordMicrophone",
                            "recordSystemAudio",
                            "recordQuality",
                            "recordFolder",
                            "settingsTab",
                            "requestedScreenCaptureAccess"})
        content += QByteArray(key) + "=" + GetParam().value + "\n";
    for (const char* key : {"webcamDeviceID", "recordMicrophoneID"}) {
        if (GetParam().isNoText)
            content += QByteArray(key) + "=" + GetParam().value + "\n";
    }
    writeFile(content);
    const AppSettings settings(pathText());
    expectDefaults(settings);
    EXPECT_EQ(readFile(), content) << "reading must not repair the file";
}

INSTANTIATE_TEST_SUITE_P(Values, UnreadableValueTest,
                         testing::Values(Unreadable{"Empty", ""}, Unreadable{"Word", "garbage"},
                                         Unreadable{"NotANumber", "nan"}, Unreadable{"Infinity", "-inf"},
                                         Unreadable{"NumberAndMore", "12px"}, Unreadable{"TwoSigns", "--5"},
                                         Unreadable{"List", "\"1\", \"2\"", true}, Unreadable{"Hexadecimal", "0x10"},
                                         Unreadable{"UpperCaseBoolean", "TRUE"},
                                         Unreadable{"Invalid", "@Invalid()", true},
                                         Unreadable{"Size", "@Size(3 4)", true}, Unreadable{"Overflow", "1e999"},
                                         Unreadable{"BlankAround", "\" 5 \""}),
                         [](const auto& description) { return description.param.what; });

TEST_F(AppSettingsTest, IntegersMustFitAndBeWhole)
{
    writeFile("[General]\nsettingsLeft=9223372036854775807\nsettingsTop=-9223372036854775808\n"
              "settingsWidth=9223372036854775808\nsettingsHeight=600.5\n");
    const AppSettings settings(pathText());
    EXPECT_EQ(settings.left(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(settings.top(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(settings.width(), 800);
    EXPECT_EQ(settings.height(), 600);
}

TEST_F(AppSettingsTest, NumbersAreNotTakenForBooleans)
{
    writeFile("[General]\nwebcamEnabled=1\nsettingsSnapping=0\n");
    const AppSettings settings(pathText());
    EXPECT_FALSE(settings.webcamEnabled());
    EXPECT_TRUE(settings.snappingEnabled());
}

TEST_F(AppSettingsTest, BytesAreNotTakenForText)
{
    writeFile("[General]\nwebcamDeviceID=@ByteArray(abc)\nrecordFolder=abc\n");
    const AppSettings settings(pathText());
    EXPECT_EQ(settings.webcamDeviceID(), "");
    EXPECT_TRUE(settings.recordFolderBookmark().empty());
}

TEST_F(AppSettingsTest, ValuesThatAreNotFiniteReadAsTheDefaultAfterAssignment)
{
    AppSettings settings(pathText());
    settings.setWebcamWidth(std::numeric_limits<double>::quiet_NaN());
    settings.setWebcamHeight(std::numeric_limits<double>::infinity());
    EXPECT_EQ(settings.webcamWidth(), 320.0);
    EXPECT_EQ(settings.webcamHeight(), 180.0);
}

} // namespace
} // namespace nimbrale
