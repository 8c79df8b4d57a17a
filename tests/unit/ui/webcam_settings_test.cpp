// The webcam's controls: each shows its setting and stores it at once.

#include "ui/webcam_settings.h"

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

using Background = AppSettings::WebcamBackground;
using Shape = AppSettings::WebcamShape;

class WebcamSettingsTest : public testing::Test {
protected:
    [[nodiscard]] QAbstractButton& button(const QString& text)
    {
        for (QAbstractButton* const candidate : page_.findChildren<QAbstractButton*>()) {
            if (candidate->text().remove('&') == text)
                return *candidate;
        }
        throw std::runtime_error("no button says " + text.toStdString());
    }
    [[nodiscard]] QComboBox& cameraPicker() { return *page_.findChild<QComboBox*>(); }
    [[nodiscard]] bool says(const QString& text)
    {
        const QList<QLabel*> labels = page_.findChildren<QLabel*>();
        return std::ranges::any_of(
            labels, [&](const QLabel* label) { return label->text().contains(text) && !label->isHidden(); });
    }
    [[nodiscard]] QStringList cameraNames()
    {
        QStringList names;
        for (int index = 0; index < cameraPicker().count(); ++index)
            names << cameraPicker().itemText(index);
        return names;
    }

    OffscreenToolkit toolkit_;
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    std::vector<CameraDevice> cameras_{{"front", "Front camera"}, {"desk", "Desk camera"}};
    WebcamSettings page_{settings_, [this] { return cameras_; }};
};

TEST_F(WebcamSettingsTest, ShowsTheDefaults)
{
    EXPECT_FALSE(button("Show my webcam in the frame").isChecked());
    EXPECT_EQ(cameraPicker().currentText(), "Default camera");
    EXPECT_TRUE(button("Rounded").isChecked());
    EXPECT_TRUE(button("Original").isChecked());
    EXPECT_TRUE(button("Mirror the picture").isChecked());
    EXPECT_TRUE(button("Fade while hovering").isChecked());
    EXPECT_FALSE(says("everything behind you"));
}

TEST_F(WebcamSettingsTest, TheKeyOfAHeadingLeadsToTheChoiceUnderIt)
{
    int keys = 0;
    for (const QLabel* const heading : page_.findChildren<QLabel*>()) {
        if (!heading->text().contains('&'))
            continue;
        ++keys;
        // A label passes the focus on to no other widget.
        ASSERT_TRUE(heading->buddy());
        EXPECT_NE(heading->buddy()->focusPolicy(), Qt::NoFocus) << heading->text().toStdString();
    }
    EXPECT_EQ(keys, 3) << "camera, shape and background";
}

TEST_F(WebcamSettingsTest, TheKeyOfAHeadingLeadsToWhatIsChosen)
{
    const auto proxyUnder = [&](const QString& title) -> const QWidget* {
        for (const QLabel* const heading : page_.findChildren<QLabel*>()) {
            if (heading->text().remove('&') == title && heading->buddy())
                return heading->buddy()->focusProxy();
        }
        return nullptr;
    };
    EXPECT_EQ(proxyUnder("Shape"), &button("Rounded"));
    EXPECT_EQ(proxyUnder("Background"), &button("Original"));
    button("Transparent").click();
    EXPECT_EQ(proxyUnder("Background"), &button("Transparent"));
}

TEST_F(WebcamSettingsTest, EveryChangeIsStoredAtOnce)
{
    button("Show my webcam in the frame").click();
    EXPECT_TRUE(settings_.webcamEnabled());
    button("Rectangle").click();
    EXPECT_EQ(settings_.webcamShape(), Shape::rectangle);
    button("Circle").click();
    EXPECT_EQ(settings_.webcamShape(), Shape::circle);
    button("Blurred").click();
    EXPECT_EQ(settings_.webcamBackground(), Background::blurred);
    button("Transparent").click();
    EXPECT_EQ(settings_.webcamBackground(), Background::transparent);
    button("Mirror the picture").click();
    EXPECT_FALSE(settings_.webcamMirrored());
    button("Fade while hovering").click();
    EXPECT_FALSE(settings_.webcamFadeOnHover());
}

TEST_F(WebcamSettingsTest, ShowsWhatIsChangedElsewhere)
{
    settings_.setWebcamEnabled(true);
    settings_.setWebcamShape(Shape::circle);
    settings_.setWebcamBackground(Background::blurred);
    settings_.setWebcamMirrored(false);
    page_.refresh();
    EXPECT_TRUE(button("Show my webcam in the frame").isChecked());
    EXPECT_TRUE(button("Circle").isChecked());
    EXPECT_FALSE(button("Rounded").isChecked());
    EXPECT_TRUE(button("Blurred").isChecked());
    EXPECT_FALSE(button("Mirror the picture").isChecked());
}

TEST_F(WebcamSettingsTest, RefreshingWritesNothing)
{
    int changes = 0;
    const Subscription observer = settings_.observeChanges([&] { ++changes; });
    cameras_.clear();
    page_.refresh();
    EXPECT_EQ(changes, 0);
}

TEST_F(WebcamSettingsTest, ListsTheCamerasThatThereAre)
{
    EXPECT_EQ(cameraNames(), (QStringList{"Default camera", "Front camera", "Desk camera"}));
    cameras_.push_back({"new", "New camera"});
    page_.refresh();
    EXPECT_EQ(cameraNames(), (QStringList{"Default camera", "Front camera", "Desk camera", "New camera"}));
}

TEST_F(WebcamSettingsTest, StoresTheChosenCamera)
{
    cameraPicker().setCurrentIndex(2);
    cameraPicker().activated(2);
    EXPECT_EQ(settings_.webcamDeviceID(), "desk");
    cameraPicker().activated(0);
    EXPECT_EQ(settings_.webcamDeviceID(), "");
}

TEST_F(WebcamSettingsTest, ACameraThatIsNotPluggedInIsNotSelectedAndNotForgotten)
{
    settings_.setWebcamDeviceID("gone");
    page_.refresh();
    EXPECT_EQ(cameraPicker().currentIndex(), -1);
    EXPECT_EQ(settings_.webcamDeviceID(), "gone");
}

TEST_F(WebcamSettingsTest, TheNoteTellsWhatHappensToTheBackground)
{
    button("Blurred").click();
    page_.refresh();
    EXPECT_TRUE(says("blurs everything behind you"));
    button("Transparent").click();
    page_.refresh();
    EXPECT_TRUE(says("removes everything behind you"));
    button("Original").click();
    page_.refresh();
    EXPECT_FALSE(says("everything behind you"));
}

} // namespace
} // namespace nimbrale
