#include "platform/desktop/qt_workspace.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "ui/number_edit.h"
#include "ui/number_field.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>
#include <QVBoxLayout>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void pressKey(QWidget& widget, int key, const QString& text = {})
{
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(&widget, &press);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QApplication::sendEvent(&widget, &release);
    QApplication::processEvents();
}

/// No event loop runs here that would do it.
void deleteWhatIsToBeDeleted()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

class QtWorkspaceTest : public testing::Test {
protected:
    void TearDown() override
    {
        open_.clear();
        deleteWhatIsToBeDeleted();
    }

    void ask(const Alert& alert)
    {
        open_.push_back(workspace_.showAlert(alert, [this](int button) { answers_.push_back(button); }));
        QApplication::processEvents();
    }
    [[nodiscard]] static std::vector<QMessageBox*> boxes()
    {
        deleteWhatIsToBeDeleted();
        std::vector<QMessageBox*> found;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* const box = qobject_cast<QMessageBox*>(window))
                found.push_back(box);
        }
        return found;
    }
    [[nodiscard]] static QMessageBox& box()
    {
        if (boxes().size() != 1)
            throw std::runtime_error("there is not just one alert");
        return *boxes().front();
    }
    static void press(const QString& label)
    {
        for (QAbstractButton* button : box().buttons()) {
            if (button->text() == label) {
                button->click();
                QApplication::processEvents();
                return;
            }
        }
        throw std::runtime_error("no button is called " + label.toStdString());
    }

    OffscreenToolkit toolkit_;
    QtWorkspace workspace_;
    std::vector<std::unique_ptr<OpenQuestion>> open_;
    std::vector<int> answers_;
};

const Alert question{AlertStyle::warning, "It did not start", "The reason.", {"First", "Second", "Third"}};

TEST_F(QtWorkspaceTest, PressedButtonIsAnsweredByItsIndex)
{
    for (const char* label : {"Second", "First", "Third"}) {
        ask(question);
        press(label);
    }
    EXPECT_THAT(answers_, ElementsAre(1, 0, 2));
}

TEST_F(QtWorkspaceTest, ReturnKeyPressesTheFirstButton)
{
    ask(question);
    pressKey(box(), Qt::Key_Return);
    EXPECT_THAT(answers_, ElementsAre(0));
}

TEST_F(QtWorkspaceTest, EscapeCountsAsTheLastButton)
{
    ask(question);
    pressKey(box(), Qt::Key_Escape);
    EXPECT_THAT(answers_, ElementsAre(2));
}

TEST_F(QtWorkspaceTest, ClosedAlertCountsAsTheLastButton)
{
    ask(question);
    box().close();
    EXPECT_THAT(answers_, ElementsAre(2));
}

TEST_F(QtWorkspaceTest, OnlyButtonIsAlsoTheLastOne)
{
    ask({AlertStyle::informational, "So it is", "", {"OK"}});
    box().close();
    EXPECT_THAT(answers_, ElementsAre(0));
}

TEST_F(QtWorkspaceTest, AlertIsApplicationModalAndInItsStyle)
{
    ask(question);
    EXPECT_TRUE(box().isVisible());
    EXPECT_EQ(box().windowModality(), Qt::ApplicationModal);
    EXPECT_EQ(box().icon(), QMessageBox::Warning);
    press("First");
    ask({AlertStyle::informational, "So it is", "", {"OK"}});
    EXPECT_EQ(box().icon(), QMessageBox::Information);
}

TEST_F(QtWorkspaceTest, TextsAreNeverTakenForMarkup)
{
    ask({AlertStyle::warning, "<b>bold</b>", "<img src=\"file:///etc/hostname\"> & more", {"OK"}});
    std::vector<QString> texts;
    for (const QLabel* label : box().findChildren<QLabel*>()) {
        EXPECT_EQ(label->textFormat(), Qt::PlainText);
        texts.push_back(label->text());
    }
    EXPECT_THAT(texts,
                testing::IsSupersetOf({QString("<b>bold</b>"), QString("<img src=\"file:///etc/hostname\"> & more")}));
}

TEST_F(QtWorkspaceTest, AnswerMayAskTheNextQuestion)
{
    open_.push_back(workspace_.showAlert(question, [this](int) {
        ask({AlertStyle::warning, "Again", "", {"Yes", "No"}});
    }));
    press("Third");
    EXPECT_EQ(box().text(), "Again");
    press("No");
    EXPECT_THAT(answers_, ElementsAre(1));
}

TEST_F(QtWorkspaceTest, OpenAlertsAreClosedUnansweredWithTheWorkspace)
{
    std::unique_ptr<OpenQuestion> open;
    {
        QtWorkspace ending;
        open = ending.showAlert(question, [this](int button) { answers_.push_back(button); });
        QApplication::processEvents();
        EXPECT_EQ(boxes().size(), 1U);
    }
    EXPECT_THAT(boxes(), IsEmpty());
    EXPECT_THAT(answers_, IsEmpty());
    open.reset();
}

TEST_F(QtWorkspaceTest, AnAlertThatIsGivenUpClosesUnanswered)
{
    ask(question);
    ask({AlertStyle::informational, "So it is", "", {"OK"}});
    ASSERT_EQ(boxes().size(), 2U);
    open_.erase(open_.begin());
    QApplication::processEvents();
    EXPECT_EQ(box().text(), "So it is");
    EXPECT_THAT(answers_, IsEmpty());
    press("OK");
    EXPECT_THAT(answers_, ElementsAre(0));
    open_.clear();
    EXPECT_THAT(answers_, ElementsAre(0));
}

TEST_F(QtWorkspaceTest, AnAlertMayBeGivenUpWithinItsAnswer)
{
    std::unique_ptr<OpenQuestion> open;
    int answers = 0;
    open = workspace_.showAlert(question, [&](int) {
        open.reset();
        ++answers;
    });
    QApplication::processEvents();
    press("Second");
    EXPECT_EQ(answers, 1);
    EXPECT_THAT(boxes(), IsEmpty());
}

TEST_F(QtWorkspaceTest, TellsWhichAlertsAreOpen)
{
    std::vector<std::size_t> counts;
    std::vector<std::uintptr_t> newest;
    workspace_.onAlertsChanged = [&](const std::vector<std::uintptr_t>& windows) {
        counts.push_back(windows.size());
        newest = windows;
    };
    ask(question);
    EXPECT_THAT(newest, ElementsAre(box().winId()));
    ask({AlertStyle::informational, "So it is", "", {"OK"}});
    EXPECT_THAT(counts, ElementsAre(1, 2));
    open_.pop_back();
    press("Third");
    EXPECT_THAT(counts, ElementsAre(1, 2, 1, 0));
    EXPECT_EQ(answers_.size(), 1U);
}

TEST_F(QtWorkspaceTest, TheAnswerComesWhenTheAlertCountsAsClosed)
{
    std::vector<std::string> order;
    workspace_.onAlertsChanged = [&](const auto& windows) { order.push_back(windows.empty() ? "none" : "open"); };
    open_.push_back(workspace_.showAlert(question, [&](int) { order.push_back("answer"); }));
    QApplication::processEvents();
    press("First");
    EXPECT_THAT(order, ElementsAre("open", "none", "answer"));
}

TEST_F(QtWorkspaceTest, AlertsAndWindowsAreActivatedByTheWindowSystem)
{
    using Activation = std::pair<std::uintptr_t, std::optional<EventTime>>;
    std::vector<Activation> activations;
    QtWorkspace workspace(
        [&](std::uintptr_t window, std::optional<EventTime> cause) { activations.emplace_back(window, cause); });
    QWidget window;
    window.show();
    workspace.activate(window.winId(), 4711);
    EXPECT_THAT(activations, ElementsAre(Activation(window.winId(), 4711)));
    workspace.activate(0, 4711);
    EXPECT_EQ(activations.size(), 1U) << "there is no such window";

    const auto open = workspace.showAlert(question, [](int) {});
    EXPECT_THAT(activations, ElementsAre(testing::_, Activation(box().winId(), std::nullopt)));
}

TEST_F(QtWorkspaceTest, AFolderThatIsChosenIsTold)
{
    const QTemporaryDir folder;
    std::vector<std::optional<std::filesystem::path>> chosen;
    const auto tell = [&](const std::optional<std::filesystem::path>& path) { chosen.push_back(path); };
    const auto dialog = [] {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* const found = qobject_cast<QFileDialog*>(window); found && found->isVisible())
                return found;
        }
        throw std::runtime_error("no folder is asked for");
    };
    const FolderQuestion folderQuestion{"Choose where it goes", "Choose", folder.path().toStdString()};
    const auto first = workspace_.chooseFolder(folderQuestion, tell);
    QApplication::processEvents();
    EXPECT_EQ(dialog()->windowTitle(), "Choose where it goes");
    EXPECT_EQ(dialog()->labelText(QFileDialog::Accept), "Choose");
    EXPECT_EQ(dialog()->directory(), QDir(folder.path()));
    EXPECT_EQ(dialog()->windowModality(), Qt::ApplicationModal);
    EXPECT_THAT(chosen, IsEmpty()) << "it does not wait for the answer";
    QMetaObject::invokeMethod(dialog(), "accept");
    QApplication::processEvents();
    EXPECT_THAT(chosen, ElementsAre(std::filesystem::path(folder.path().toStdString())));

    const auto second = workspace_.chooseFolder(folderQuestion, tell);
    QApplication::processEvents();
    dialog()->reject();
    EXPECT_THAT(chosen, ElementsAre(testing::_, std::nullopt));

    auto third = workspace_.chooseFolder(folderQuestion, tell);
    QApplication::processEvents();
    third.reset();
    QApplication::processEvents();
    EXPECT_THROW(static_cast<void>(dialog()), std::runtime_error);
    EXPECT_EQ(chosen.size(), 2U);
}

TEST_F(QtWorkspaceTest, FoldersAreKnownByTheirOwnNames)
{
    const std::filesystem::path home = QDir::homePath().toStdString();
    EXPECT_EQ(workspace_.folderName(home), "Home");
    EXPECT_EQ(workspace_.folderName(home / ""), "Home");
    EXPECT_EQ(workspace_.folderName(home / "Vid\xc3\xa9os"), "Vid\xc3\xa9os") << "as the desktop named it";
    EXPECT_EQ(workspace_.folderName(home / "Videos" / "Meetings" / ""), "Meetings");
    EXPECT_EQ(workspace_.folderName("/"), "/");
    EXPECT_EQ(workspace_.folderName("/srv"), "srv");
    EXPECT_EQ(workspace_.folderName("/no/such/folder"), "folder");
}

TEST_F(QtWorkspaceTest, TerminationWaitsForTheApplicationsAnswer)
{
    TerminateReply reply = TerminateReply::cancel;
    int questions = 0;
    workspace_.termination().onShouldTerminate = [&] {
        ++questions;
        return reply;
    };
    const auto runFor = [](int milliseconds) {
        constexpr int brokenOff = 99;
        QTimer::singleShot(milliseconds, [] { QApplication::exit(brokenOff); });
        return QApplication::exec();
    };
    workspace_.terminate();
    EXPECT_FALSE(workspace_.isTerminating());
    EXPECT_EQ(runFor(50), 99) << "it was refused";

    reply = TerminateReply::later;
    workspace_.terminate();
    workspace_.terminate();
    EXPECT_TRUE(workspace_.isTerminating());
    EXPECT_EQ(runFor(50), 99);
    EXPECT_EQ(questions, 2) << "asked once for both";
    workspace_.termination().reply(true);
    EXPECT_TRUE(workspace_.isTerminating());
    EXPECT_EQ(runFor(5000), 0);
}

TEST_F(QtWorkspaceTest, DroppedKeyboardFocusCommitsWhatIsBeingTyped)
{
    QWidget window;
    auto* const field = new NumberField("Width", "Width", "points", &window);
    std::vector<std::int64_t> committed;
    field->edit().onCommit = [&committed](std::int64_t value) { committed.push_back(value); };
    (new QVBoxLayout(&window))->addWidget(field);
    window.show();
    window.activateWindow();
    QApplication::processEvents();
    NumberEdit& edit = field->edit();
    edit.setFocus();
    edit.selectAll();
    pressKey(edit, Qt::Key_4, "4");
    pressKey(edit, Qt::Key_2, "2");
    ASSERT_TRUE(edit.hasFocus());
    ASSERT_THAT(committed, IsEmpty());

    workspace_.dropKeyboardFocus();
    EXPECT_THAT(committed, ElementsAre(42));
    EXPECT_FALSE(edit.hasFocus());
}

TEST_F(QtWorkspaceTest, TerminationLeavesTheEventLoopWithSuccess)
{
    workspace_.terminate();
    workspace_.terminate();
    EXPECT_EQ(QApplication::exec(), 0);
}

} // namespace
} // namespace nimbrale
