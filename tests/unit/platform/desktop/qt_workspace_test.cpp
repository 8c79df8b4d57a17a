#include "platform/desktop/qt_workspace.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "ui/number_field.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QTemporaryDir>
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

class QtWorkspaceTest : public testing::Test {
protected:
    void ask(const Alert& alert)
    {
        workspace_.showAlert(alert, [this](int button) { answers_.push_back(button); });
        QApplication::processEvents();
    }
    [[nodiscard]] static std::vector<QMessageBox*> boxes()
    {
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
    workspace_.showAlert(question, [this](int) { ask({AlertStyle::warning, "Again", "", {"Yes", "No"}}); });
    press("Third");
    EXPECT_EQ(box().text(), "Again");
    press("No");
    EXPECT_THAT(answers_, ElementsAre(1));
}

TEST_F(QtWorkspaceTest, OpenAlertsAreClosedUnansweredWithTheWorkspace)
{
    {
        QtWorkspace ending;
        ending.showAlert(question, [this](int button) { answers_.push_back(button); });
        QApplication::processEvents();
        EXPECT_EQ(boxes().size(), 1U);
    }
    EXPECT_THAT(boxes(), IsEmpty());
    EXPECT_THAT(answers_, IsEmpty());
}

/// Puts a program of the test's own in the place of the one that knows what opens a scheme.
class QtWorkspaceLocationTest : public QtWorkspaceTest {
protected:
    QtWorkspaceLocationTest() { qputenv("PATH", directory_.path().toLocal8Bit()); }
    ~QtWorkspaceLocationTest() override { qputenv("PATH", path_); }

    void answerWith(const QByteArray& handler)
    {
        QFile program(directory_.filePath("xdg-mime"));
        ASSERT_TRUE(program.open(QIODevice::WriteOnly));
        program.write("#!/bin/sh\necho \"$@\" >>" + questionsFile().toLocal8Bit() + "\necho " + handler + "\n");
        program.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    }
    [[nodiscard]] QByteArray questions() const
    {
        QFile file(questionsFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    [[nodiscard]] QString questionsFile() const { return directory_.filePath("questions"); }

    QTemporaryDir directory_;
    QByteArray path_ = qgetenv("PATH");
};

TEST_F(QtWorkspaceLocationTest, SchemeThatNothingOpensIsRefused)
{
    answerWith("");
    EXPECT_FALSE(workspace_.openLocation("x-apple.systempreferences:com.apple.preference.security?Privacy"));
    EXPECT_EQ(questions(), "query default x-scheme-handler/x-apple.systempreferences\n");
}

TEST_F(QtWorkspaceLocationTest, SchemeIsRefusedWhereNothingKnowsWhatOpensIt)
{
    EXPECT_FALSE(workspace_.openLocation("https://example.org/"));
}

TEST_F(QtWorkspaceLocationTest, WhatIsNoLocationIsRefusedWithoutAQuestion)
{
    answerWith("any.desktop");
    EXPECT_FALSE(workspace_.openLocation(""));
    EXPECT_FALSE(workspace_.openLocation("just/a/path"));
    EXPECT_FALSE(workspace_.openLocation("http://[broken"));
    EXPECT_FALSE(workspace_.openLocation("file:///no/such/file/anywhere"));
    EXPECT_EQ(questions(), "");
}

TEST_F(QtWorkspaceTest, DroppedKeyboardFocusCommitsWhatIsBeingTyped)
{
    QWidget window;
    auto* const field = new NumberField("Width", "Width", "points", &window);
    std::vector<std::int64_t> committed;
    field->onCommit = [&committed](std::int64_t value) { committed.push_back(value); };
    (new QVBoxLayout(&window))->addWidget(field);
    window.show();
    window.activateWindow();
    QApplication::processEvents();
    auto& edit = *field->findChild<QLineEdit*>();
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
