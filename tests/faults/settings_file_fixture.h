#pragma once

#include "settings/app_settings.h"
#include "tests/fakes/log_capture.h"
#include "tests/support/child_process.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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

} // namespace nimbrale
