// The catalogue that gives this system's words to the texts and buttons of alerts and settings.

#include "app/alerts.h"

#include "tests/fakes/offscreen_toolkit.h"
#include "tests/fakes/plain_camera.h"
#include "ui/settings_window.h"
#include "webcam/webcam_overlay.h"

#include <QAbstractButton>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {
namespace {

using testing::Contains;

/// The catalogue as its source is, so that no program has to be built from it first.
class Catalogue final : public QTranslator {
public:
    Catalogue()
    {
        QFile file(NIMBRALE_SOURCE_FOLDER "/translations/nimbrale_en_linux.ts");
        if (!file.open(QIODevice::ReadOnly))
            return;
        QXmlStreamReader reader(&file);
        QString context;
        QString source;
        while (reader.readNextStartElement() || !reader.atEnd()) {
            if (!reader.isStartElement())
                continue;
            if (reader.name() == u"name")
                context = reader.readElementText();
            else if (reader.name() == u"source")
                source = reader.readElementText();
            else if (reader.name() == u"translation")
                texts_[{context, source}] = reader.readElementText();
        }
    }

    [[nodiscard]] bool isEmpty() const override { return texts_.empty(); }
    [[nodiscard]] QString translate(const char* context, const char* source, const char*, int) const override
    {
        const auto found = texts_.find({QString::fromUtf8(context), QString::fromUtf8(source)});
        return found == texts_.end() ? QString() : found->second;
    }
    /// What it replaces, by whose texts they are.
    [[nodiscard]] std::map<std::string, std::set<std::string>> replaced() const
    {
        std::map<std::string, std::set<std::string>> sources;
        for (const auto& [key, text] : texts_)
            sources[key.first.toStdString()].insert(key.second.toStdString());
        return sources;
    }

private:
    std::map<std::pair<QString, QString>, QString> texts_;
};

/// Everything that alerts and notifications say, buttons included.
std::vector<std::string> textsOfAlerts()
{
    const RecorderError error = RecorderError::failed("reason");
    std::vector<std::string> texts;
    for (const Alert& alert :
         {alerts::capturePermissionNeeded(), alerts::captureCouldNotStart({ErrorCode::permanent, "reason"}),
          alerts::captureIsLimited({"limitation"}), alerts::recordingNotAvailable(), alerts::microphoneAccessNeeded(),
          alerts::recordingCouldNotStart(error), alerts::recordingCouldNotBeSaved(error)}) {
        texts.push_back(alert.message);
        texts.push_back(alert.informativeText);
        texts.insert(texts.end(), alert.buttons.begin(), alert.buttons.end());
    }
    for (const Notification& notification :
         {alerts::windowToShare("title"), alerts::windowWasReturned(), alerts::recordingEnded("reason"),
          alerts::recordingEndedForRestart(), alerts::recordingRecovered("/movie"),
          alerts::recordingNotRecovered("/remains")}) {
        texts.push_back(notification.title);
        texts.push_back(notification.text);
    }
    return texts;
}

/// What the user is asked for when the webcam may not be used, buttons included.
std::vector<std::string> textsOfTheWebcamsAlert()
{
    const QTemporaryDir folder;
    AppSettings settings(folder.filePath("settings.conf").toStdString());
    FakePlatform platform;
    const auto overlay = WebcamOverlay::create(platform, settings, makePlainCamera(platform),
                                               {{{1920, 1080}, {0, 0, 1920, 1080}, 0}, {100, 200, 640, 360}});
    overlay->show();
    platform.cameras().answerAccess(false);
    if (platform.workspace().alerts.size() != 1) {
        ADD_FAILURE() << "no alert";
        return {};
    }
    const Alert& alert = platform.workspace().alerts.front();
    std::vector<std::string> texts{alert.message, alert.informativeText};
    texts.insert(texts.end(), alert.buttons.begin(), alert.buttons.end());
    return texts;
}

/// Everything that Settings ever says, whatever is chosen there.
std::set<std::string> textsOfSettings()
{
    const QTemporaryDir folder;
    AppSettings settings(folder.filePath("settings.conf").toStdString());
    SettingsWindow window(settings, {[] { return std::vector<Screen>(); },
                                     [] { return std::nullopt; },
                                     [] { return std::vector<CameraDevice>(); },
                                     [] { return std::vector<MicrophoneDevice>(); },
                                     {[] { return "Videos"; }, [] { return "Videos"; }, [] {}}});
    window.show();
    std::set<std::string> texts{window.windowTitle().toStdString()};
    const auto collect = [&] {
        QCoreApplication::processEvents();
        for (const QWidget* widget : window.findChildren<QWidget*>()) {
            texts.insert(widget->accessibleName().toStdString());
            texts.insert(widget->accessibleDescription().toStdString());
            texts.insert(widget->toolTip().toStdString());
            if (const auto* label = qobject_cast<const QLabel*>(widget))
                texts.insert(label->text().toStdString());
            if (const auto* button = qobject_cast<const QAbstractButton*>(widget))
                texts.insert(button->text().toStdString());
        }
    };
    for (const bool snaps : {false, true}) {
        settings.setSnappingEnabled(snaps);
        for (const auto background : {AppSettings::WebcamBackground::original, AppSettings::WebcamBackground::blurred,
                                      AppSettings::WebcamBackground::transparent}) {
            settings.setWebcamBackground(background);
            collect();
        }
    }
    return texts;
}

bool namesAnotherSystem(const std::string& text)
{
    const auto names = [&text](const char* words) { return text.find(words) != std::string::npos; };
    return names("System Settings") || names("Privacy & Security") || names(" Mac") || names("⌘");
}

class SystemWordsTest : public testing::Test {
protected:
    SystemWordsTest() { QCoreApplication::installTranslator(&catalogue_); }
    ~SystemWordsTest() override { QCoreApplication::removeTranslator(&catalogue_); }

    OffscreenToolkit toolkit_;
    Catalogue catalogue_;
};

TEST_F(SystemWordsTest, NeitherTextsNorButtonsOfAlertsSpeakOfAnotherSystem)
{
    for (const std::string& text : textsOfAlerts())
        EXPECT_FALSE(namesAnotherSystem(text)) << text;
    QCoreApplication::removeTranslator(&catalogue_);
    EXPECT_EQ(std::ranges::count_if(textsOfAlerts(), namesAnotherSystem), 5) << "the control: without the catalogue";
}

TEST_F(SystemWordsTest, ReplaceNothingThatNoAlertSays)
{
    QCoreApplication::removeTranslator(&catalogue_);
    const std::vector<std::string> texts = textsOfAlerts();
    const std::set<std::string> replaced = catalogue_.replaced()["AppDelegate"];
    ASSERT_FALSE(replaced.empty());
    for (const std::string& source : replaced)
        EXPECT_THAT(texts, Contains(source));
}

TEST_F(SystemWordsTest, TheWebcamsAlertDoesNotSpeakOfAnotherSystem)
{
    const std::vector<std::string> texts = textsOfTheWebcamsAlert();
    EXPECT_THAT(texts, testing::Not(testing::IsEmpty()));
    for (const std::string& text : texts)
        EXPECT_FALSE(namesAnotherSystem(text)) << text;
    QCoreApplication::removeTranslator(&catalogue_);
    const std::vector<std::string> untranslated = textsOfTheWebcamsAlert();
    EXPECT_EQ(std::ranges::count_if(untranslated, namesAnotherSystem), 2) << "the control: without the catalogue";
    const std::set<std::string> replaced = catalogue_.replaced()["WebcamOverlay"];
    EXPECT_FALSE(replaced.empty());
    for (const std::string& source : replaced)
        EXPECT_THAT(untranslated, Contains(source));
}

TEST_F(SystemWordsTest, SettingsDoNotSpeakOfAnotherSystem)
{
    for (const std::string& text : textsOfSettings())
        EXPECT_FALSE(namesAnotherSystem(text)) << text;
    QCoreApplication::removeTranslator(&catalogue_);
    const std::set<std::string> untranslated = textsOfSettings();
    EXPECT_EQ(std::ranges::count_if(untranslated, namesAnotherSystem), 5) << "the control: without the catalogue";
    auto replaced = catalogue_.replaced();
    EXPECT_EQ(replaced.size(), 5U) << "one for whose texts nobody asks here";
    for (const char* const page : {"GeneralSettings", "WebcamSettings", "RecordingSettings"}) {
        EXPECT_FALSE(replaced[page].empty()) << page;
        for (const std::string& source : replaced[page])
            EXPECT_THAT(untranslated, Contains(source));
    }
}

TEST_F(SystemWordsTest, AButtonThatOpensNothingDoesNotSayThatItDoes)
{
    // Nothing on this system opens the settings of a permission.
    for (const Alert& alert : {alerts::capturePermissionNeeded(), alerts::microphoneAccessNeeded()})
        EXPECT_EQ(alert.buttons.at(alerts::openSystemSettingsButton), "OK");
}

} // namespace
} // namespace nimbrale
