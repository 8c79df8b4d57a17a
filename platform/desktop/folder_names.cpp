#include "platform/desktop/folder_names.h"

#include <QDir>
#include <QStandardPaths>

namespace nimbrale {

std::string folderDisplayName(const std::filesystem::path& folder)
{
    const QString path = QDir::cleanPath(QString::fromStdString(folder.string()));
    if (path == QDir::cleanPath(QDir::homePath()))
        return QStandardPaths::displayName(QStandardPaths::HomeLocation).toStdString();
    const QString name = QDir(path).dirName();
    // The root has no name.
    return (name.isEmpty() ? path : name).toStdString();
}

} // namespace nimbrale
