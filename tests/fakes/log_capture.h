#pragma once

#include <QLoggingCategory>
#include <QString>

#include <mutex>
#include <string>
#include <vector>

namespace nimbrale {

/// Takes every line that is logged while it lives. One at a time.
class LogCapture {
public:
    struct Line {
        QtMsgType type = QtDebugMsg;
        std::string category;
        std::string message;

        bool operator==(const Line&) const = default;
    };

    LogCapture()
    {
        current_ = this;
        previous_ = qInstallMessageHandler(take);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(previous_);
        current_ = nullptr;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All lines, oldest first.
    [[nodiscard]] std::vector<Line> lines() const
    {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    /// The lines of error level, oldest first.
    [[nodiscard]] std::vector<Line> errors() const
    {
        const std::lock_guard lock(mutex_);
        std::vector<Line> found;
        for (const Line& line : lines_) {
            if (line.type == QtCriticalMsg)
                found.push_back(line);
        }
        return found;
    }

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        const std::lock_guard lock(current_->mutex_);
        current_->lines_.push_back({type, context.category, message.toStdString()});
    }

    static inline LogCapture* current_ = nullptr;
    QtMessageHandler previous_ = nullptr;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

/// A line of error level as a category logs it.
[[nodiscard]] inline LogCapture::Line errorLine(const char* category, const std::string& message)
{
    return {QtCriticalMsg, category, message};
}

} // namespace nimbrale
