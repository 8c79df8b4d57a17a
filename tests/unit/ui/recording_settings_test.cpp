// The recording's controls: each shows its setting and stores it at once.

#include "ui/recording_settings.h"

#include "tests/fakes/offscreen_toolkit.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QLabel>
#include <QTemporaryDir>

#include <algorithm>
#include <gtest/gtest.h>
#include <stdexcept>

namespace nimbrale {
namespace {

using Quality = AppSettings::RecordingQuality;

class RecordingSettingsTest : public testing::Test {
protected:
    RecordingSettingsTest() { page_.refresh(); }

    [[nodiscard]] RecordingFolderSource folder()
    {
        return {[this] { return folderName_; }, [] { return "Videos"; }, [this] { ++questions_; }};
    }
    [[nodiscard]] QAbstractButton& button(const QString& text)
    {
        for (QAbstractButton* const candidate : page_.findChildren<QAbstractButton*>()) {
            if (candidate->text().remove('&') == text)
                return *candidate;
        }
        throw std::runtime_error("no button says " + text.toStdString());
    }
    [[nodiscard]] QComboBox& picker() { return *page_.findChild<QComboBox*>(); }
    [[nodiscard]] bool says(const QString& text)
    {
        const QList<QLabel*> labels = page_.findChildren<QLabel*>();
        return std::ranges::any_of(
            labels, [&](const QLabel* label) { return label->text().contains(text) && !label->isHidden(); });
    }

    OffscreenToolkit toolkit_;
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    std::vector<MicrophoneDevice> microphones_{{"desk", "Desk microphone"}, {"head", "Headset"}};
    std::string folderName_ = "Videos";
    int questions_ = 0;
    RecordingSettings page_{settings_, [this] { return microphones_; }, folder()};
};

TEST_F(RecordingSettingsTest, ShowsTheDefaults)
{
    EXPECT_TRUE(button("Standard").isChecked());
    EXPECT_TRUE(says("Up to 2560 × 1440. Sharp text at a modest file size."));
    EXPECT_TRUE(button("Microphone").isChecked());
    EXPECT_EQ(picker().currentText(), "Default microphone");
    EXPECT_TRUE(picker().isEnabled());
    EXPECT_FALSE(button("Sound from my Mac").isChecked());
    EXPECT_TRUE(says("Videos"));
    EXPECT_FALSE(button("Use Videos").isEnabled());
}

TEST_F(RecordingSettingsTest, EveryChangeIsStoredAtOnce)
{
    button("High").click();
    EXPECT_EQ(settings_.recordQuality(), Quality::high);
    button("Standard").click();
    EXPECT_EQ(settings_.recordQuality(), Quality::standard);
    button("Microphone").click();
    EXPECT_FALSE(settings_.recordMicrophone());
    button("Sound from my Mac").click();
    EXPECT_TRUE(settings_.recordSystemAudio());
    picker().activated(2);
    EXPECT_EQ(settings_.recordMicrophoneID(), "head");
    picker().activated(0);
    EXPECT_EQ(settings_.recordMicrophoneID(), "");
}

TEST_F(RecordingSettingsTest, ShowsWhatIsChangedElsewhere)
{
    settings_.setRecordQuality(Quality::high);
    settings_.setRecordMicrophone(false);
    settings_.setRecordMicrophoneID("desk");
    settings_.setRecordFolderBookmark({std::byte{1}});
    folderName_ = "Talks";
    page_.refresh();
    EXPECT_TRUE(button("High").isChecked());
    EXPECT_TRUE(says("Up to 4K (3840 × 2160). The most detail; files are about three times as large."));
    EXPECT_EQ(picker().currentText(), "Desk microphone");
    EXPECT_FALSE(picker().isEnabled());
    EXPECT_TRUE(says("Talks"));
    EXPECT_TRUE(button("Use Videos").isEnabled());
}

TEST_F(RecordingSettingsTest, RefreshingWritesNothing)
{
    int changes = 0;
    const Subscription observer = settings_.observeChanges([&] { ++changes; });
    microphones_.clear();
    page_.refresh();
    EXPECT_EQ(changes, 0);
}

TEST_F(RecordingSettingsTest, AMicrophoneThatIsNotPluggedInIsNotSelectedAndNotForgotten)
{
    settings_.setRecordMicrophoneID("gone");
    page_.refresh();
    EXPECT_EQ(picker().currentIndex(), -1);
    EXPECT_EQ(settings_.recordMicrophoneID(), "gone");
}

TEST_F(RecordingSettingsTest, AnotherFolderIsAskedForAndTheDefaultOneRestored)
{
    button("Choose…").click();
    EXPECT_EQ(questions_, 1);
    settings_.setRecordFolderBookmark({std::byte{1}});
    page_.refresh();
    button("Use Videos").click();
    EXPECT_TRUE(settings_.recordFolderBookmark().empty());
}

} // namespace
} // namespace nimbrale
