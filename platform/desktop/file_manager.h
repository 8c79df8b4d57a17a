#pragma once

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
    void openFolderOf(const std::filesystem::path& file);

    std::function<bool(const std::filesystem::path&)> openFolder_;
};

} // namespace nimbrale
