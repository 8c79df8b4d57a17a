// A recording while a browser shares the same screen, and one with the webcam in it.

#include "tests/meeting/recording_journey.h"
#include "tests/support/meeting.h"
#include "tests/support/private_pipewire.h"

#include <QTemporaryDir>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

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

/// A player that has nothing to do with the libraries which write the movie.
class RecordingInABrowser : public RecordingJourney {
protected:
    /// Lets a browser play a movie to its end, and then jump to these times. It tells of that line by line.
    [[nodiscard]] std::unique_ptr<Process> play(const std::filesystem::path& movie, const std::vector<double>& times)
    {
        const std::filesystem::path page = desktop->folder() / "page.html";
        std::ofstream file(page);
        file << "<video id=v muted src='home/Videos/" << movie.filename().string() << "'></video><canvas id=c></canvas>"
             << "<script>const times = [";
        for (const double time : times)
            file << time << ",";
        file << R"(];
            // The end of a seek may come before its picture does.
            const seek = time => new Promise(done => { v.requestVideoFrameCallback(done); v.currentTime = time; });
            v.onerror = () => console.log('Error: ' + v.error.message);
            v.onloadeddata = async () => {
                console.log('Movie: ' + [v.duration, v.videoWidth, v.videoHeight].join(' '));
                await v.play();
                await new Promise(done => { v.onended = done; });
                console.log('Ended: ' + [v.currentTime, v.getVideoPlaybackQuality().totalVideoFrames].join(' '));
                c.width = v.videoWidth;
                c.height = v.videoHeight;
                for (const time of times) {
                    await seek(time);
                    c.getContext('2d').drawImage(v, 0, 0);
                    console.log('Picture: ' + c.toDataURL().split(',')[1]);
                }
                console.log('Done: 0');
            };</script>)";
        // A clock that runs ahead, as pages are often printed with, would leave the player behind.
        return desktop->spawn(
            "chromium", {"--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                         "--disable-background-networking", "--disable-component-update", "--disable-sync",
                         "--enable-logging=stderr", "--allow-file-access-from-files", "--remote-debugging-port=0",
                         "--user-data-dir=" + (desktop->folder() / "browser").string(), "file://" + page.string()});
    }
    /// What stands behind this word in each line that the page wrote.
    [[nodiscard]] static std::vector<std::string> told(Process& browser, const std::string& word)
    {
        std::vector<std::string> found;
        const std::string output = browser.output();
        const std::string beginning = '"' + word + ": ";
        for (std::size_t at = output.find(beginning); at != std::string::npos; at = output.find(beginning, at + 1)) {
            const std::size_t from = at + beginning.size();
            found.push_back(output.substr(from, output.find('"', from) - from));
        }
        return found;
    }
};

TEST_F(RecordingInABrowser, AVideoElementPlaysTheMovieToItsEndAndShowsItsPicturesAtTheirTimes)
{
    if (findProgram("chromium").empty())
        skipTest("chromium is not installed");
    prepare();
    start();
    scene->add("moving", {.geometry = {301, 301, 80, 80}, .seed = 0, .color = Qt::white});
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    for (int step = 0; step < 40; ++step) {
        scene->move("moving", {301 + 10 * step, 301});
        sleepFor(Milliseconds{75});
    }
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();

    const std::vector<MovieFile::Picture> pictures = movie().video()->pictures;
    ASSERT_GT(pictures.size(), 30U);
    // In the middle of pictures that are shown for long enough, the later ones first.
    std::vector<double> times;
    for (std::size_t index = pictures.size() - 2; index > 5; index -= 6) {
        if (pictures[index + 1].time - pictures[index].time > 0.03)
            times.push_back((pictures[index].time + pictures[index + 1].time) / 2);
    }
    ASSERT_GE(times.size(), 3U);

    const auto browser = play(movie().path(), times);
    ASSERT_TRUE(browser);
    ASSERT_TRUE(waitUntil([&] { return !told(*browser, "Done").empty() || !told(*browser, "Error").empty(); },
                          Milliseconds{60'000}))
        << browser->output();
    std::istringstream about(told(*browser, "Movie").at(0));
    double duration = 0;
    QSize size;
    about >> duration >> size.rwidth() >> size.rheight();
    EXPECT_NEAR(duration, movie().video()->duration, 0.05);
    EXPECT_EQ(size, region.size());
    std::istringstream end(told(*browser, "Ended").at(0));
    double reached = 0;
    std::size_t shown = 0;
    end >> reached >> shown;
    EXPECT_NEAR(reached, duration, 0.05);
    EXPECT_EQ(shown, pictures.size());

    // Players differ in how they spread the colors, of which there is one for four pixels.
    constexpr ImageTolerance sameColors{.perChannel = 24, .differingPixels = 640 * 360 / 50};
    // The block is 80 pixels high and goes 10 at a time, and what it leaves counts as well.
    constexpr ImageTolerance samePlaces{.differingPixels = 400};
    const std::vector<std::string> seen = told(*browser, "Picture");
    ASSERT_EQ(seen.size(), times.size());
    for (std::size_t index = 0; index < times.size(); ++index) {
        const QImage picture = QImage::fromData(QByteArray::fromBase64(QByteArray::fromStdString(seen[index])))
                                   .convertToFormat(QImage::Format_RGB32);
        const QImage expected = movie().pictureAt(times[index]);
        EXPECT_TRUE(imagesMatch(picture, expected, sameColors)) << "at " << times[index];
        EXPECT_TRUE(imagesMatch(brightPart(picture), brightPart(expected), samePlaces)) << "at " << times[index];
    }
    EXPECT_FALSE(imagesAreAlike(brightPart(movie().pictureAt(times.front())),
                                brightPart(movie().pictureAt(times.back())), samePlaces))
        << "the control: they differ";
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
