#pragma once

#include "platform/desktop/qt_main_queue.h"
#include "platform/disk_questions.h"
#include "platform/file_descriptor.h"

#include <QObject>

#include <filesystem>
#include <functional>

namespace nimbrale {

/// The user's file manager. Lives on the main thread, while the application object exists.
class FileManager final : public QObject {
public:
    /// `openFolder` is the way that is left when nobody answers on the session's bus; whether it opened anything.
    explicit FileManager(std::function<bool(const std::filesystem::path& folder)> openFolder);
    ~FileManager() override;
    FileManager(const FileManager&) = delete;
    FileManager& operator=(const FileManager&) = delete;

    /// Asks the file manager to show the file selected, then the desktop's portal, then opens the folder that holds it.
    void reveal(const std::filesystem::path& file);

private:
    void revealByPortal(const std::filesystem::path& file);
    void revealByPortal(const std::filesystem::path& file, const FileDescriptor& descriptor);
    void openFolderOf(const std::filesystem::path& file);

    std::function<bool(const std::filesystem::path&)> openFolder_;
    QtMainQueue mainQueue_;
    DiskQuestions disk_{mainQueue_, "Nimbrale.reveal"};
    /// Of the file that is to be shown last.
    DiskQuestions::Asked descriptor_;
};

} // namespace nimbrale
