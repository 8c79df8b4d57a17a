#pragma once

#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/scene.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale::test {

/// On a server where the monitor bears no output, and on one where it does.
class LeftoversTest : public VirtualDisplayTest, public testing::WithParamInterface<PrivateDesktop::Server> {
protected:
    void startLoudDesktop()
    {
        start({.server = GetParam(), .width = 1280, .height = 720});
        scene_ = makeLoud();
        primaryBefore_ = primary();
        windowsBefore_ = topLevelWindows();
    }

    /// In the place of this process, with a caretaker of its own.
    [[nodiscard]] std::unique_ptr<Process> startProcessWithDisplay()
    {
        host_.reset();
        auto process = desktop_->spawn(buildFolder() / "x11_virtual_display_leftovers_test",
                                       {"--gtest_filter=ProcessThatIsKilled.*", "--gtest_also_run_disabled_tests"});
        EXPECT_TRUE(process);
        EXPECT_TRUE(waitUntil([&] { return isWhole({1280, 720, 800, 600}); }, Milliseconds{5000}));
        EXPECT_NE(primary(), 0U);
        if (!waitUntil([&] { return caretaker().has_value(); }, Milliseconds{3000}))
            failTest("no caretaker");
        return process;
    }

    /// The caretaker of this desktop: a program of its own that outlives the one that started it.
    [[nodiscard]] std::optional<pid_t> caretaker() const
    {
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "cmdline");
            const std::string arguments{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            const std::string ending = std::string("nimbrale-caretaker") + '\0' + desktop_->displayName() + '\0';
            if (arguments.size() >= ending.size() &&
                arguments.compare(arguments.size() - ending.size(), ending.size(), ending) == 0)
                return std::stoi(entry.path().filename());
        }
        return std::nullopt;
    }

    /// A program that shares the screen, as long as it is not ended.
    [[nodiscard]] std::unique_ptr<Process> startReader()
    {
        auto reader = desktop_->spawn("nimbrale_screen_reader");
        if (!reader || !reader->waitForOutput("reading", Milliseconds{3000}))
            failTest("no program that reads the screen");
        return reader;
    }

    [[nodiscard]] int topLevelWindows() const
    {
        xcb_connection_t* const raw = desktop_->connection();
        const x11::Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(raw, xcb_query_tree(raw, desktop_->screen().root), nullptr));
        return tree ? tree->children_len : -1;
    }

    [[nodiscard]] bool isAsBefore() const
    {
        return desktop_->monitors().size() == 1 && desktop_->screenSize() == QSize(1280, 720) &&
               primary() == primaryBefore_ && topLevelWindows() == windowsBefore_;
    }

    [[nodiscard]] static bool isOfTheCard(std::uint32_t color)
    {
        const auto channel = [color](int shift) { return static_cast<int>(color >> shift & 0xff); };
        return channel(16) == channel(8) && channel(0) >= channel(8) && channel(0) - channel(8) <= 4;
    }

    std::unique_ptr<Scene> scene_;
    xcb_randr_output_t primaryBefore_ = 0;
    int windowsBefore_ = 0;
};

} // namespace nimbrale::test
