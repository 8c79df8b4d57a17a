#pragma once

#include "platform/desktop/instance_claim.h"
#include "tests/fakes/offscreen_application.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale {

inline const InstanceRequest openSettings{"open-settings", "17"};
/// For tests in which nobody answers, gives up or ends.
constexpr InstanceClaim::Patience shortPatience{.forAnswer = std::chrono::milliseconds{300},
                                                .forEnd = std::chrono::milliseconds{300},
                                                .forSettings = std::chrono::milliseconds{200}};
/// For what comes, however busy the machine is.
constexpr std::chrono::seconds longPatience{30};

/// A folder of the user's own, in which several claims in one process stand for several instances: the system's locks
/// tell them apart by the open file.
class InstanceClaimTest : public testing::Test {
protected:
    InstanceClaimTest()
    {
        startOffscreenApplication();
        std::filesystem::create_directory(runtime_);
        std::filesystem::permissions(runtime_, std::filesystem::perms::owner_all);
        qputenv("XDG_RUNTIME_DIR", runtime_.c_str());
        qputenv("XDG_CACHE_HOME", (root() / "cache").c_str());
    }
    [[nodiscard]] std::filesystem::path root() const { return directory_.path().toStdString(); }
    [[nodiscard]] std::filesystem::path folder() const { return runtime_ / "nimbrale"; }

    [[nodiscard]] static Result<std::optional<InstanceClaim>>
    claim(const std::string& display = ":1", const std::string& settings = "/home/settings",
          const InstanceClaim::Patience& patience = shortPatience)
    {
        return InstanceClaim::make({display, settings}, openSettings, patience);
    }
    [[nodiscard]] std::vector<std::filesystem::path> filesEnding(const std::string& suffix) const
    {
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            if (entry.path().extension() == suffix)
                found.push_back(entry.path());
        }
        return found;
    }
    /// Runs the event loop until the condition holds.
    [[nodiscard]] static bool runUntil(const std::function<bool()>& condition,
                                       std::chrono::milliseconds timeout = longPatience)
    {
        QElapsedTimer timer;
        timer.start();
        while (!condition()) {
            if (timer.elapsed() > timeout.count())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        }
        return true;
    }
    /// A second start, beside the event loop of the first one, which may stay silent for long.
    [[nodiscard]] static Result<std::optional<InstanceClaim>>
    claimBeside(std::chrono::milliseconds forEnd = longPatience)
    {
        std::optional<Result<std::optional<InstanceClaim>>> second;
        std::atomic<bool> isOver = false;
        std::thread thread([&] {
            second = claim(":1", "/home/settings", {longPatience, forEnd, longPatience});
            isOver = true;
        });
        EXPECT_TRUE(runUntil([&] { return isOver.load(); }));
        thread.join();
        return std::move(*second);
    }

    QTemporaryDir directory_;
    std::filesystem::path runtime_ = root() / "runtime";
};

} // namespace nimbrale
