#include "platform/desktop/qt_workspace.h"
#include "tests/fakes/offscreen_toolkit.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

/// Puts a program of the test's own in the place of the one that knows what opens a scheme.
class QtWorkspaceLocationTest : public testing::Test {
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

    OffscreenToolkit toolkit_;
    QtWorkspace workspace_;

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

} // namespace
} // namespace nimbrale
