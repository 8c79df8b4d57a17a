#pragma once

#include "platform/pipewire/pipewire_cameras.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/support/camera_watcher.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/requirements.h"

#include <QTemporaryDir>

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// One private PipeWire for the whole suite, on which each test plugs in its own devices.
class PipewireSessionTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        missing = PrivatePipewire::missing();
        if (!missing.empty())
            return;
        pipewire = PrivatePipewire::start(reason);
        if (!pipewire)
            return;
        for (const auto& [name, value] : pipewire->environment()) {
            if (name != "PATH" && name != "HOME")
                qputenv(name.c_str(), value.c_str());
        }
    }
    static void TearDownTestSuite() { pipewire.reset(); }
    void SetUp() override
    {
        if (!missing.empty())
            GTEST_SKIP() << missing;
        ASSERT_TRUE(pipewire) << reason;
    }

    /// Does what is posted to the main thread until the condition holds.
    template <typename Condition>
    [[nodiscard]] bool eventually(Condition condition, Milliseconds patience = Milliseconds{10'000})
    {
        return waitUntil(
            [&] {
                queue.runPosted();
                return condition();
            },
            patience);
    }
    /// Runs one of PipeWire's own programs to its end.
    void runProgram(const std::string& name, const std::vector<std::string>& arguments)
    {
        requireProgram(name);
        Process::Options options;
        options.environment = pipewire->environment();
        std::string why;
        const auto program = Process::start(name, arguments, options, why);
        ASSERT_TRUE(program) << why;
        ASSERT_EQ(program->waitForEnd(Milliseconds{5000}), 0);
    }
    /// What the user prefers; `kind` is one of "audio.source", "audio.sink" and "video.source".
    void prefer(const std::string& kind, const std::string& id)
    {
        runProgram("pw-metadata",
                   {"0", "default.configured." + kind, R"({"name":")" + id + R"("})", "Spa:String:JSON"});
    }

    static inline std::string missing;
    static inline std::string reason;
    static inline std::unique_ptr<PrivatePipewire> pipewire;

    FakeMainQueue queue;
};

/// The cameras on it.
class PipewireTest : public PipewireSessionTest {
protected:
    void SetUp() override
    {
        PipewireSessionTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure())
            cameras = makeCameras();
    }

    [[nodiscard]] std::unique_ptr<Cameras> makeCameras(std::chrono::seconds patience = pipewire::cameraPatience)
    {
        return pipewire::createPipewireCameras(
            queue, *known.emplace_back(std::make_unique<pipewire::KnownDevices>(queue)),
            [](const std::function<void(bool)>& onAnswer) { onAnswer(true); }, patience);
    }
    [[nodiscard]] std::unique_ptr<VirtualCamera> plugIn(const VirtualCamera::Options& options)
    {
        std::string why;
        auto camera = VirtualCamera::start(*pipewire, options, why);
        if (!camera)
            failTest(why);
        return camera;
    }
    [[nodiscard]] bool isListed(const std::string& id) const
    {
        const auto devices = cameras->devices();
        return std::ranges::any_of(devices, [&id](const CameraDevice& device) { return device.id == id; });
    }
    [[nodiscard]] bool waitForPictures(const CameraWatcher& watcher, int count = 1)
    {
        const int wanted = watcher.count() + count;
        return eventually([&] { return watcher.count() >= wanted; });
    }

    std::vector<std::unique_ptr<pipewire::KnownDevices>> known; ///< one for each of the cameras that were made
    std::unique_ptr<Cameras> cameras;
};

} // namespace nimbrale::test
