// A recording while a browser shares the same screen, and one with the webcam in it.

#include "tests/meeting/recording_journey.h"
#include "tests/support/meeting.h"
#include "tests/support/private_pipewire.h"

#include <QTemporaryDir>

#include <fstream>

namespace nimbrale::test {
namespace {

void toggleRecording(PrivateDesktop& desktop)
{
    const auto toggle = desktop.spawn((buildFolder() / "nimbrale").string(), {"--toggle-recording"});
    ASSERT_EQ(toggle->waitForEnd(Milliseconds{8000}), 0);
}

TEST(RecordingInACall, TheCallAndTheMovieShowTheFramedArea)
{
    if (const std::string missing = MovieFile::missing(); !missing.empty())
        skipTest(missing);
    const QRect region(1000, 200, 500, 350);
    const QTemporaryDir folder;
    Meeting::Options options{.call = {.window = {40, 600, 320, 240}}};
    options.application.region = region;
    options.applicationEnvironment = {
        {"PATH", putFileManager(folder.path().toStdString(), qEnvironmentVariable("PATH").toStdString())}};
    options.application.others = {{"recordMicrophone", "false"}, {"recordQuality", "high"}};
    const auto meeting = requireMeeting(options);
    const std::filesystem::path videos = meeting->desktop().folder() / "home" / "Videos";
    meeting->placeMovement(region.center());
    toggleRecording(meeting->desktop());
    ASSERT_TRUE(waitUntil([&] { return !otherFilesIn(videos).empty(); }, Milliseconds{8000}));
    EXPECT_TRUE(meeting->showsContentOf(region));
    sleepFor(Milliseconds{2000});
    EXPECT_TRUE(meeting->showsContentOf(region));
    toggleRecording(meeting->desktop());
    ASSERT_TRUE(waitUntil([&] { return moviesIn(videos).size() == 1; }, Milliseconds{8000}));
    EXPECT_TRUE(meeting->showsContentOf(region)) << "the call goes on";
    EXPECT_TRUE(meeting->call().state().isLive);

    const MovieFile movie(moviesIn(videos).at(0));
    EXPECT_EQ(movie.problems(), "");
    ASSERT_TRUE(movie.video());
    EXPECT_EQ(movie.video()->size, region.size());
    EXPECT_GT(movie.video()->pictures.size(), 20U) << "what moves is in it";
    // Of the pattern's small rectangles a movie keeps the middle of each.
    QImage picture = movie.pictureAt(1.5);
    QImage content = meeting->contentOf(region);
    int compared = 0;
    int different = 0;
    for (int y = 0; y < content.height(); y += 3) {
        for (int x = 0; x < content.width(); x += 3) {
            if (content.pixelColor(x, y) == QColor(Qt::black))
                continue;
            ++compared;
            different += std::abs(qGray(picture.pixel(x, y)) - qGray(content.pixel(x, y))) > 32 ? 1 : 0;
        }
    }
    EXPECT_GT(compared, 10'000);
    EXPECT_LT(different, compared / 100) << keepImage(picture, "movie") << keepImage(content, "content");
}

class RecordingInABrowser : public RecordingJourney {};

TEST_F(RecordingInABrowser, AVideoElementPlaysTheMovie)
{
    if (findProgram("chromium").empty())
        skipTest("chromium is not installed");
    prepare();
    start();
    record(Milliseconds{3000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const std::filesystem::path page = desktop->folder() / "page.html";
    std::ofstream(page)
        << "<video id=v muted src='" << ("home/Videos/" + movie().path().filename().string())
        << "'></video><p id=o>nothing</p><script>"
           "v.onerror = () => { o.textContent = 'error ' + v.error.message; };"
           "v.onloadeddata = () => {"
           "  o.textContent = ['decoded', Math.round(v.duration), v.videoWidth, v.videoHeight].join(' ');"
           "};</script>";
    const auto browser = desktop->spawn(
        "chromium", {"--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync", "--virtual-time-budget=8000", "--dump-dom",
                     "--user-data-dir=" + (desktop->folder() / "browser").string(), "file://" + page.string()});
    ASSERT_TRUE(browser);
    ASSERT_TRUE(browser->waitForEnd(Milliseconds{30'000}));
    EXPECT_NE(browser->output().find("decoded 3 640 360"), std::string::npos) << browser->output();
}

class RecordingWithWebcam : public RecordingJourney {};

TEST_F(RecordingWithWebcam, TheWebcamIsInTheMovie)
{
    if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
        skipTest(missing);
    std::string reason;
    const auto pipewire = PrivatePipewire::start(reason);
    ASSERT_TRUE(pipewire) << reason;
    const QTemporaryDir folder;
    const QColor face(220, 120, 90);
    QImage picture(320, 180, QImage::Format_RGB32);
    picture.fill(face);
    ASSERT_TRUE(picture.save(folder.filePath("face.png")));
    VirtualCamera::Options options;
    options.formats = {"BGRx:320x180@30"};
    options.picture = folder.filePath("face.png").toStdString();
    const auto camera = VirtualCamera::start(*pipewire, options, reason);
    ASSERT_TRUE(camera) << reason;
    prepare();
    start({{"webcamEnabled", "true"},
           {"webcamShape", "rectangle"},
           {"webcamX", "400"},
           {"webcamY", "240"},
           {"webcamWidth", "160"},
           {"webcamHeight", "90"}},
          {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
    const QPoint inWebcam = region.topLeft() + QPoint(480, 285);
    ASSERT_TRUE(desktop->waitForPixel(inWebcam.x(), inWebcam.y(), face, Milliseconds{8000}));
    record(Milliseconds{2500});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const QImage shown = movie().pictureAt(1.5);
    const auto isNear = [](QColor color, QColor expected) {
        return std::abs(color.red() - expected.red()) < 10 && std::abs(color.green() - expected.green()) < 10 &&
               std::abs(color.blue() - expected.blue()) < 10;
    };
    EXPECT_TRUE(isNear(shown.pixelColor(480, 285), face)) << keepImage(shown, "movie");
    EXPECT_TRUE(isNear(shown.pixelColor(410, 250), face));
    EXPECT_TRUE(isNear(shown.pixelColor(390, 285), contentOf(region).pixelColor(390, 285))) << "beside it";
}

} // namespace
} // namespace nimbrale::test
