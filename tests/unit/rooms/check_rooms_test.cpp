// What each room may include, by the table in docs/architecture.md.

#include <QTemporaryDir>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace nimbrale {
namespace {

const std::filesystem::path sourceFolder = NIMBRALE_SOURCE_FOLDER;

struct Check {
    bool isClean = false;
    std::string output;
};

Check checkRooms(const std::filesystem::path& root)
{
    const std::string command =
        "'" + (sourceFolder / "scripts/check-rooms.sh").string() + "' '" + root.string() + "' 2>&1";
    std::FILE* const pipe = popen(command.c_str(), "r");
    if (!pipe)
        return {};
    Check check;
    std::array<char, 512> line{};
    while (std::fgets(line.data(), line.size(), pipe))
        check.output += line.data();
    check.isClean = pclose(pipe) == 0;
    return check;
}

/// The sources with one more file, which includes one header.
Check checkRoomsWith(const std::string& file, const std::string& include)
{
    const QTemporaryDir folder;
    const std::filesystem::path root = folder.path().toStdString();
    for (const char* name :
         {"app", "controls", "docs", "geometry", "platform", "region", "settings", "share", "ui", "webcam"})
        std::filesystem::copy(sourceFolder / name, root / name, std::filesystem::copy_options::recursive);
    std::filesystem::create_directories((root / file).parent_path());
    std::ofstream(root / file) << "#pragma once\n\n#include " << include << "\n";
    return checkRooms(root);
}

TEST(CheckRoomsTest, SourcesKeepToTheTable)
{
    const Check check = checkRooms(sourceFolder);
    EXPECT_TRUE(check.isClean) << check.output;
}

TEST(CheckRoomsTest, WhatTheTableAllowsIsClean)
{
    EXPECT_TRUE(checkRoomsWith("region/added.h", "\"share/region_capture.h\"").isClean);
    EXPECT_TRUE(checkRoomsWith("platform/x11/layers/added.h", "\"platform/x11/server/connection.h\"").isClean);
    EXPECT_TRUE(checkRoomsWith("app/added.h", "\"ui/settings_window.h\"").isClean);
}

struct Wrong {
    const char* what;
    const char* file;
    const char* include;
    const char* message;
};

class WrongIncludeTest : public testing::TestWithParam<Wrong> {};

TEST_P(WrongIncludeTest, IsTold)
{
    const Check check = checkRoomsWith(GetParam().file, GetParam().include);
    EXPECT_FALSE(check.isClean);
    EXPECT_EQ(check.output, std::string(GetParam().file) + ":3: " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Includes, WrongIncludeTest,
    testing::Values(Wrong{"Upward", "share/added.h", "\"region/region_editor.h\"", "share may not include region"},
                    Wrong{"Sideways", "platform/x11/layers/added.h", "\"platform/x11/capture/capture_engine.h\"",
                          "platform/x11/layers may not include platform/x11/capture"},
                    Wrong{"Backend", "ui/added.h", "\"platform/x11/server/connection.h\"",
                          "ui may not include platform/x11/server"},
                    Wrong{"FromTheInterfaces", "platform/added.h", "\"settings/app_settings.h\"",
                          "platform may not include settings"},
                    Wrong{"NoRoomOfTheTable", "platform/other/added.h", "\"platform/x11/server/connection.h\"",
                          "platform/other may not include platform/x11/server"},
                    Wrong{"ServerLibrary", "region/added.h", "<xcb/xcb.h>",
                          "only platform/x11 may include <xcb/xcb.h>"},
                    Wrong{"LibraryOfTheModel", "webcam/added.h", "<opencv2/dnn.hpp>",
                          "only platform/opencv may include <opencv2/dnn.hpp>"},
                    Wrong{"CameraLibrary", "webcam/added.h", "<pipewire/pipewire.h>",
                          "only platform/pipewire may include <pipewire/pipewire.h>"},
                    Wrong{"SoundLibrary", "recording/added.h", "<pulse/pulseaudio.h>",
                          "only platform/pulseaudio may include <pulse/pulseaudio.h>"},
                    Wrong{"KernelsCameras", "webcam/added.h", "<linux/videodev2.h>",
                          "only platform/v4l2 may include <linux/videodev2.h>"},
                    Wrong{"CameraFormats", "platform/desktop/added.h", "<spa/pod/pod.h>",
                          "only platform/pipewire may include <spa/pod/pod.h>"}),
    [](const auto& description) { return description.param.what; });

} // namespace
} // namespace nimbrale
