#include "platform/desktop/file_manager.h"

#include "platform/desktop/bus_question.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QUrl>
#include <QVariantMap>

#include <chrono>
#include <fcntl.h>
#include <utility>

namespace nimbrale {

namespace {

/// A file manager may have to be started first.
constexpr std::chrono::seconds longestCall{10};

QString uriOf(const std::filesystem::path& file)
{
    return QString::fromLatin1(QUrl::fromLocalFile(QString::fromStdString(file.string())).toEncoded());
}

/// `onFailure` is called on the main thread where the call fails, for whatever reason.
void call(QObject& owner, const QDBusMessage& message, std::function<void()> onFailure)
{
    callOnBus(owner, QDBusConnection::sessionBus(), message, longestCall,
              [onFailure = std::move(onFailure)](const QDBusMessage& answer) {
                  if (answer.type() == QDBusMessage::ErrorMessage)
                      onFailure();
              });
}

} // namespace

FileManager::FileManager(std::function<bool(const std::filesystem::path&)> openFolder)
    : openFolder_(std::move(openFolder))
{}

FileManager::~FileManager() = default;

void FileManager::reveal(const std::filesystem::path& file)
{
    if (!QDBusConnection::sessionBus().isConnected()) {
        openFolderOf(file);
        return;
    }
    QDBusMessage showItems = QDBusMessage::createMethodCall(
        "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1", "ShowItems");
    const QString noStartupIdentifier = "";
    showItems << QStringList{uriOf(file)} << noStartupIdentifier;
    call(*this, showItems, [this, file] { revealByPortal(file); });
}

// The portal opens the folder of the file behind the descriptor.
void FileManager::revealByPortal(const std::filesystem::path& file)
{
    descriptor_ =
        disk_.ask<FileDescriptor>([file] { return FileDescriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)); },
                                  [this, file](const FileDescriptor& descriptor) { revealByPortal(file, descriptor); });
}

void FileManager::revealByPortal(const std::filesystem::path& file, const FileDescriptor& descriptor)
{
    if (!descriptor) {
        openFolderOf(file);
        return;
    }
    QDBusMessage openDirectory =
        QDBusMessage::createMethodCall("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                                       "org.freedesktop.portal.OpenURI", "OpenDirectory");
    const QString noParentWindow = "";
    openDirectory << noParentWindow << QVariant::fromValue(QDBusUnixFileDescriptor(descriptor.get())) << QVariantMap();
    call(*this, openDirectory, [this, file] { openFolderOf(file); });
}

void FileManager::openFolderOf(const std::filesystem::path& file)
{
    const std::filesystem::path folder = file.parent_path();
    if (!openFolder_(folder))
        qWarning("The folder %s cannot be shown: nothing on this desktop opens folders.", folder.c_str());
}

} // namespace nimbrale
