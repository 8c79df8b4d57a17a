#pragma once

#include "settings/app_settings.h"
#include "tests/fakes/log_capture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace nimbrale {

inline QByteArray contentOf(const QString& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

class SettingsFileTest : public testing::Test {
protected:
    [[nodiscard]] QString path() const { return directory_.filePath("Nimbrale.conf"); }
    [[nodiscard]] std::string pathText() const { return path().toStdString(); }
    [[nodiscard]] QStringList setAside() const
    {
        return QDir(directory_.path()).entryList({"Nimbrale.conf.damaged-*"}, QDir::Files, QDir::Name);
    }
    [[nodiscard]] QString directoryPath() const { return directory_.path(); }

    void writeFile(const QByteArray& content) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        ASSERT_EQ(file.write(content), content.size());
    }

private:
    QTemporaryDir directory_;
};

/// Runs `work` in a process of its own and gives its exit status; -1 when it did not end by itself.
inline int runInChild(const std::function<int()>& work)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline constexpr int couldNotPrepare = 77;

} // namespace nimbrale
