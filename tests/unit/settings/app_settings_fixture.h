#pragma once

#include "settings/app_settings.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <string>

namespace nimbrale {

/// A settings file in a folder of the test's own.
class AppSettingsTest : public testing::Test {
protected:
    [[nodiscard]] QString path() const { return directory_.filePath("Nimbrale.conf"); }
    [[nodiscard]] std::string pathText() const { return path().toStdString(); }

    void writeFile(const QByteArray& content) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

    [[nodiscard]] QByteArray readFile() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QTemporaryDir directory_;
};

inline void expectDefaults(const AppSettings& settings)
{
    EXPECT_EQ(settings.left(), 0);
    EXPECT_EQ(settings.top(), 0);
    EXPECT_EQ(settings.width(), 800);
    EXPECT_EQ(settings.height(), 600);
    EXPECT_EQ(settings.displayID(), 0);
    EXPECT_TRUE(settings.snappingEnabled());
    EXPECT_TRUE(settings.shareNotifications());
    EXPECT_EQ(settings.framerate(), 30);
    EXPECT_TRUE(settings.showWelcomeAtLaunch());
    EXPECT_FALSE(settings.webcamEnabled());
    EXPECT_EQ(settings.webcamDeviceID(), "");
    EXPECT_EQ(settings.webcamShape(), AppSettings::WebcamShape::rounded);
    EXPECT_EQ(settings.webcamBackground(), AppSettings::WebcamBackground::original);
    EXPECT_TRUE(settings.webcamMirrored());
    EXPECT_TRUE(settings.webcamFadeOnHover());
    EXPECT_EQ(settings.webcamX(), -1.0);
    EXPECT_EQ(settings.webcamY(), -1.0);
    EXPECT_EQ(settings.webcamWidth(), 320.0);
    EXPECT_EQ(settings.webcamHeight(), 180.0);
    EXPECT_TRUE(settings.recordMicrophone());
    EXPECT_EQ(settings.recordMicrophoneID(), "");
    EXPECT_FALSE(settings.recordSystemAudio());
    EXPECT_EQ(settings.recordQuality(), AppSettings::RecordingQuality::standard);
    EXPECT_TRUE(settings.recordFolderBookmark().empty());
    EXPECT_EQ(settings.settingsTab(), AppSettings::SettingsTab::general);
    EXPECT_FALSE(settings.hasRequestedScreenCaptureAccess());
}

} // namespace nimbrale
