#pragma once

#include "platform/v4l2/v4l2_cameras.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/unit/platform/v4l2/video_driver.h"

#include <QTemporaryDir>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale::v4l2 {

/// Cameras of an imitated driver, in a folder of the test's own.
class V4l2CamerasTest : public testing::Test {
protected:
    static constexpr std::uint8_t gray = 0x80;

    V4l2CamerasTest()
    {
        std::filesystem::create_directories(folder());
        cameras = createV4l2Cameras(queue, folder(), patience);
    }

    [[nodiscard]] std::filesystem::path folder() const
    {
        return std::filesystem::path(home_.path().toStdString()) / "dev";
    }
    [[nodiscard]] std::unique_ptr<VideoDriver> plugIn(int number, VideoDriver::Options options = {}) const
    {
        if (options.picture.empty())
            options.picture.assign(std::size_t{options.formats.front().width} * options.formats.front().height * 2,
                                   gray);
        return std::make_unique<VideoDriver>(folder() / ("video" + std::to_string(number)), std::move(options));
    }
    /// How many of the camera's buffers this process has in its memory.
    [[nodiscard]] int mappedBuffers(int number) const
    {
        const std::string file = std::filesystem::canonical(folder() / ("video" + std::to_string(number))).string();
        std::ifstream maps("/proc/self/maps");
        int count = 0;
        for (std::string line; std::getline(maps, line);)
            count += line.ends_with(" " + file) ? 1 : 0;
        return count;
    }
    /// As the system does a while after the file is there.
    void nameSocket(const std::string& socket, int number) const
    {
        const std::filesystem::path names = folder() / "v4l" / "by-path";
        std::filesystem::create_directories(names);
        std::filesystem::create_symlink("../../video" + std::to_string(number), names / socket);
    }
    template <typename Condition>
    [[nodiscard]] bool eventually(Condition condition, std::chrono::milliseconds longest = std::chrono::seconds(5))
    {
        const auto end = std::chrono::steady_clock::now() + longest;
        while (true) {
            queue.runPosted();
            if (condition())
                return true;
            if (std::chrono::steady_clock::now() > end)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    [[nodiscard]] bool lists(const std::vector<CameraDevice>& devices)
    {
        return eventually([&] { return cameras->devices() == devices; });
    }

    static constexpr std::chrono::milliseconds patience{600};
    FakeMainQueue queue;
    std::unique_ptr<Cameras> cameras;

private:
    QTemporaryDir home_;
};

} // namespace nimbrale::v4l2
