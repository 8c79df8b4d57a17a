// The catalogue that gives the alerts' texts and buttons this system's words.

#include "app/alerts.h"

#include <QCoreApplication>
#include <QFile>
#include <QTranslator>
#include <QXmlStreamReader>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
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
    /// What it replaces in the alerts.
    [[nodiscard]] std::vector<std::string> replaced() const
    {
        std::vector<std::string> sources;
        for (const auto& [key, text] : texts_) {
            if (key.first == u"AppDelegate")
                sources.push_back(key.second.toStdString());
        }
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

bool namesAnotherSystem(const std::string& text)
{
    const auto names = [&text](const char* words) { return text.find(words) != std::string::npos; };
    return names("System Settings") || names("Privacy & Security") || names(" Mac");
}

class SystemWordsTest : public testing::Test {
protected:
    SystemWordsTest() { QCoreApplication::installTranslator(&catalogue_); }
    ~SystemWordsTest() override { QCoreApplication::removeTranslator(&catalogue_); }

    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    int argumentCount_ = 1;
    QCoreApplication application_{argumentCount_, arguments_};
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
    ASSERT_FALSE(catalogue_.replaced().empty());
    for (const std::string& source : catalogue_.replaced())
        EXPECT_THAT(texts, Contains(source));
}

TEST_F(SystemWordsTest, AButtonThatOpensNothingDoesNotSayThatItDoes)
{
    // Nothing on this system opens the settings of a permission.
    for (const Alert& alert : {alerts::capturePermissionNeeded(), alerts::microphoneAccessNeeded()})
        EXPECT_EQ(alert.buttons.at(alerts::openSystemSettingsButton), "OK");
}

} // namespace
} // namespace nimbrale
