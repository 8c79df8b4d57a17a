#pragma once

#include "platform/desktop/instance_messages.h"
#include "platform/desktop/runtime_folder.h"
#include "platform/file_descriptor.h"
#include "platform/result.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace nimbrale {

/// The right to be the one running instance of the application on a display, and the only one that uses a settings
/// file. Held by locks that the system takes back however the process ends, so that nothing stale can stand in the
/// way. Hold it until everything else of the application has gone.
class InstanceClaim {
public:
    struct Subject {
        /// As DISPLAY names it; the screen's number is left out of account.
        std::string displayName;
        std::filesystem::path settingsFile;
        /// Nobody else's folders and programs are trusted.
        uid_t user = getuid();
    };
    struct Patience {
        /// How long a running instance may stay silent.
        std::chrono::milliseconds forAnswer{5000};
        /// How long its end, or its start, may take without any sign of life.
        std::chrono::milliseconds forEnd{15000};
        /// How long an instance on another display may take to give up the settings.
        std::chrono::milliseconds forSettings{3000};
    };

    /// Blocks. Where another instance runs on the display, it is asked for `request`: with its consent nothing comes
    /// back, and this process has nothing left to do. One that is ending is waited for. Fails with a message for the
    /// user when the running instance does not answer or does not know the request, or when one on another display
    /// uses the settings. Without a folder that is safe for a socket, the claim comes back without one, with a line on
    /// standard error: several instances are then not told apart.
    [[nodiscard]] static Result<std::optional<InstanceClaim>>
    make(const Subject& subject, const InstanceRequest& request, const Patience& patience);
    [[nodiscard]] static Result<std::optional<InstanceClaim>> make(const Subject& subject,
                                                                   const InstanceRequest& request)
    {
        return make(subject, request, Patience());
    }

    /// The socket on which others ask, listening; the caller owns it from now on. Empty where there is none, or when it
    /// was taken before.
    [[nodiscard]] FileDescriptor takeListeningSocket();

private:
    InstanceClaim() = default;

    FileDescriptor displayLock_;
    FileDescriptor settingsLock_;
    FileDescriptor listeningSocket_;
};

/// What two names of the same X display have in common.
[[nodiscard]] std::string displayKey(const std::string& displayName);

} // namespace nimbrale
