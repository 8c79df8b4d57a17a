// The program as it is installed, with a model that does not find people because it is missing or damaged.

#include "tests/meeting/webcam_journey.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <vector>

namespace nimbrale::test {
namespace {

constexpr QRect box(20, 30, 320, 180);
const std::string line = "Finding the person failed: ";

/// Fine stripes, of which a blur leaves gray.
QImage stripes()
{
    QImage picture(320, 180, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixelColor(x, y, x / 2 % 2 == 0 ? Qt::black : Qt::white);
    }
    return picture;
}

class WebcamModel : public WebcamJourney {
protected:
    void SetUp() override
    {
        prepare({.name = "Openbox"}, stripes());
        prefix_ = folder_.path().toStdString();
        std::string reason;
        const auto install = Process::start(findProgram("cmake"), {"--install", buildFolder(), "--prefix", prefix_},
                                            {{}, prefix_ / "install.txt", false}, reason);
        ASSERT_TRUE(install) << reason;
        ASSERT_EQ(install->waitForEnd(Milliseconds{20000}), 0) << install->output();
        ASSERT_TRUE(std::filesystem::exists(model())) << install->output();
    }
    [[nodiscard]] std::filesystem::path model() const
    {
        return prefix_ / "share" / "nimbrale" / "selfie_landscape.onnx";
    }
    [[nodiscard]] std::filesystem::path program() const { return prefix_ / "bin" / "nimbrale"; }
    /// With a blurred background.
    [[nodiscard]] std::unique_ptr<Process> startInstalled()
    {
        Application::writeSettings(*desktop, {.region = region,
                                              .others = {{"webcamEnabled", "true"},
                                                         {"webcamBackground", "blurred"},
                                                         {"webcamShape", "rectangle"},
                                                         {"webcamX", "20"},
                                                         {"webcamY", "30"},
                                                         {"webcamWidth", "320"},
                                                         {"webcamHeight", "180"}}});
        auto started = desktop->spawn(program().string(), {}, {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
        if (!started)
            failTest("the installed program is not there");
        return started;
    }
    /// How light the stripes are on the screen and in the share; less than none where the two do not show the same.
    [[nodiscard]] int contrast() const
    {
        int darkest = 255;
        int lightest = 0;
        for (int step = 0; step < 4; ++step) {
            const QPoint place = box.center() + QPoint(step, 0);
            const QColor color = onScreen(place);
            if (color != shared(place))
                return -1;
            darkest = std::min(darkest, color.red());
            lightest = std::max(lightest, color.red());
        }
        return lightest - darkest;
    }

private:
    QTemporaryDir folder_;
    std::filesystem::path prefix_;
};

TEST_F(WebcamModel, MissingOrDamagedItLeavesTheCamerasOwnPictureAndOneLineSaysSo)
{
    {
        SCOPED_TRACE("The control: with the model the stripes are blurred.");
        const auto process = startInstalled();
        EXPECT_TRUE(waitUntil([&] { return contrast() >= 0 && contrast() < 30 && shared(box.center()) != wall; },
                              Milliseconds{10'000}))
            << picture() << process->output();
        process->signal(SIGTERM);
        ASSERT_EQ(process->waitForEnd(Milliseconds{5000}), 0) << process->output();
        EXPECT_EQ(process->output().find(line), std::string::npos) << process->output();
    }
    const auto whole = std::filesystem::file_size(model());
    struct Damage {
        const char* name;
        std::function<void()> make;
        const char* told;
    };
    const std::vector<Damage> damages{
        {"truncated", [&] { std::filesystem::resize_file(model(), whole / 2); }, "is damaged"},
        {"empty", [&] { std::filesystem::resize_file(model(), 0); }, "is damaged"},
        {"another file",
         [&] { std::filesystem::copy_file(program(), model(), std::filesystem::copy_options::overwrite_existing); },
         "is damaged"},
        {"a folder",
         [&] {
             std::filesystem::remove(model());
             std::filesystem::create_directory(model());
         },
         "cannot be read"},
        {"missing", [&] { std::filesystem::remove(model()); }, "cannot be read"},
    };
    for (const Damage& damage : damages) {
        SCOPED_TRACE(damage.name);
        damage.make();
        const auto process = startInstalled();
        EXPECT_TRUE(waitUntil([&] { return contrast() > 200; }, Milliseconds{10'000})) << picture();
        EXPECT_TRUE(process->waitForOutput(line + "The model that finds people " + damage.told, Milliseconds{5000}))
            << process->output();
        // The pictures that follow, thirty a second, fail as well, and nothing more is told of them.
        EXPECT_FALSE(waitUntil([&] { return contrast() < 200; }, Milliseconds{1000})) << picture();
        const std::string output = process->output();
        EXPECT_EQ(output.find(line, output.find(line) + 1), std::string::npos) << output;
        process->signal(SIGTERM);
        EXPECT_EQ(process->waitForEnd(Milliseconds{5000}), 0) << output;
    }
}

} // namespace
} // namespace nimbrale::test
