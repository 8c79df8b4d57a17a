// The computer's cameras on a PipeWire of the test's own: which there are, and what becomes of them.

#include "tests/desktop/pipewire_fixture.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>

namespace nimbrale::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class PipewireCamerasTest : public PipewireTest {};

TEST_F(PipewireCamerasTest, CamerasAreListedByTheirNodesNameAndCalledByTheirNick)
{
    const auto first = plugIn({.id = "front", .name = "Front camera"});
    const auto second = plugIn({.id = "rear", .name = "", .more = {"--description", "Rear camera (V4L2)"}});
    ASSERT_TRUE(eventually([&] { return isListed("front") && isListed("rear"); }));
    EXPECT_THAT(cameras->devices(), testing::UnorderedElementsAre(CameraDevice{"front", "Front camera"},
                                                                  CameraDevice{"rear", "Rear camera"}));
    // The session manager prefers one of them by itself.
    EXPECT_TRUE(eventually([&] { return cameras->preferredDevice().has_value(); }));
}

TEST_F(PipewireCamerasTest, WhichOneTheUserPrefersIsFollowed)
{
    const auto first = plugIn({.id = "liked", .name = "Liked camera"});
    const auto second = plugIn({.id = "unliked"});
    ASSERT_TRUE(eventually([&] { return isListed("liked") && isListed("unliked"); }));
    int changes = 0;
    const Subscription changed = cameras->observeDevices([&changes] { ++changes; });
    for (const std::string id : {"liked", "unliked", "liked"}) {
        changes = 0;
        const bool wasPreferred = cameras->preferredDevice() == id;
        prefer("video.source", id);
        EXPECT_TRUE(eventually([&] { return cameras->preferredDevice() == id; })) << id;
        EXPECT_TRUE(changes > 0 || wasPreferred) << id;
    }
    // One that is not there is not preferred.
    first->tell("unplug");
    EXPECT_TRUE(eventually([&] { return cameras->preferredDevice() != "liked"; }));
}

TEST_F(PipewireCamerasTest, AScreenThatIsSharedIsNoCamera)
{
    const auto screen = plugIn({.id = "screen", .more = {"--role", "Screen"}});
    const auto camera = plugIn({.id = "camera-after-it"});
    ASSERT_TRUE(eventually([&] { return isListed("camera-after-it"); }));
    EXPECT_FALSE(isListed("screen"));
}

TEST_F(PipewireCamerasTest, ComingAndGoingIsTold)
{
    const auto camera = plugIn({.id = "coming"});
    int changes = 0;
    const Subscription changed = cameras->observeDevices([&changes] { ++changes; });
    ASSERT_TRUE(eventually([&] { return isListed("coming"); }));
    EXPECT_GT(changes, 0);
    for (int round = 0; round < 2; ++round) {
        changes = 0;
        camera->tell("unplug");
        ASSERT_TRUE(eventually([&] { return !isListed("coming"); }));
        EXPECT_GT(changes, 0);
        changes = 0;
        camera->tell("plug");
        ASSERT_TRUE(eventually([&] { return isListed("coming"); }));
        EXPECT_GT(changes, 0);
    }
}

TEST_F(PipewireCamerasTest, AnOpenCameraThatIsUnpluggedIsLostOnceAndCanBeOpenedWhenItIsBack)
{
    const auto camera = plugIn({.id = "loose", .name = "Loose camera"});
    const auto other = plugIn({.id = "other"});
    ASSERT_TRUE(eventually([&] { return isListed("loose") && isListed("other"); }));
    CameraWatcher watcher(*cameras, "loose");
    ASSERT_TRUE(waitForPictures(watcher, 3));
    camera->tell("unplug");
    ASSERT_TRUE(camera->waitFor("unplugged"));
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("Loose camera"));
    const int count = watcher.count();
    // Neither another camera in its place nor the same one again.
    camera->tell("plug");
    ASSERT_TRUE(camera->waitFor("plugged"));
    EXPECT_FALSE(eventually([&] { return watcher.count() > count || watcher.losses.size() > 1; }, Milliseconds{700}));

    ASSERT_TRUE(eventually([&] { return isListed("loose"); }));
    CameraWatcher again(*cameras, "loose");
    EXPECT_TRUE(waitForPictures(again));
    EXPECT_THAT(again.losses, IsEmpty());
}

TEST_F(PipewireCamerasTest, ACameraThatIsNotThereIsLostAndNoOtherOneShownInItsPlace)
{
    const auto camera = plugIn({.id = "present"});
    ASSERT_TRUE(eventually([&] { return isListed("present"); }));
    CameraWatcher watcher(*cameras, "absent");
    EXPECT_THAT(watcher.losses, IsEmpty()) << "told within the call";
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_EQ(watcher.count(), 0);
}

TEST_F(PipewireCamerasTest, ACameraIsReleasedWhenItIsClosed)
{
    const auto camera = plugIn({.id = "lit"});
    ASSERT_TRUE(eventually([&] { return isListed("lit"); }));
    CameraWatcher watcher(*cameras, "lit");
    ASSERT_TRUE(waitForPictures(watcher));
    ASSERT_TRUE(camera->waitFor("streaming YUY2:320x180"));
    const auto start = std::chrono::steady_clock::now();
    watcher.close();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, Milliseconds{400});
    const int count = watcher.count();
    EXPECT_TRUE(camera->waitFor("paused", Milliseconds{1000}));
    EXPECT_EQ(watcher.count(), count) << "a picture came after the end";
}

TEST_F(PipewireCamerasTest, ACameraMayBeClosedWithinTheNewsOfItsLoss)
{
    const auto camera = plugIn({.id = "brief"});
    ASSERT_TRUE(eventually([&] { return isListed("brief"); }));
    std::unique_ptr<OpenCamera> open;
    int losses = 0;
    std::atomic<int> pictures{0};
    open = cameras->open("brief", {[&pictures](const auto&) { ++pictures; },
                                   [&](const Error&) {
                                       ++losses;
                                       open.reset();
                                   }});
    ASSERT_TRUE(eventually([&] { return pictures > 0; }));
    camera->crash();
    EXPECT_TRUE(eventually([&] { return losses > 0; }));
    EXPECT_EQ(open, nullptr);
    EXPECT_FALSE(eventually([&] { return losses > 1; }, Milliseconds{200}));
}

TEST_F(PipewireCamerasTest, NoLossIsToldOfACameraThatIsClosed)
{
    const auto camera = plugIn({.id = "closed"});
    ASSERT_TRUE(eventually([&] { return isListed("closed"); }));
    CameraWatcher watcher(*cameras, "closed");
    CameraWatcher control(*cameras, "closed");
    ASSERT_TRUE(waitForPictures(watcher) && waitForPictures(control));
    camera->tell("unplug");
    // The loss is posted by now, and has not been told.
    ASSERT_TRUE(waitUntil([&] { return queue.pendingPosts() >= 3; }, Milliseconds{5000}));
    watcher.close();
    EXPECT_TRUE(eventually([&] { return !control.losses.empty(); }));
    EXPECT_THAT(watcher.losses, IsEmpty());
}

TEST_F(PipewireCamerasTest, TwoMayWatchACameraAtATime)
{
    const auto camera = plugIn({.id = "popular", .formats = {"YUY2:320x180@30", "NV12:640x360@30"}});
    const std::unique_ptr<Cameras> others = makeCameras();
    ASSERT_TRUE(eventually([&] { return isListed("popular") && !others->devices().empty(); }));
    CameraWatcher first(*cameras, "popular");
    ASSERT_TRUE(waitForPictures(first));
    CameraWatcher second(*others, "popular");
    ASSERT_TRUE(waitForPictures(second));
    EXPECT_TRUE(waitForPictures(first, 3)) << "the second one stopped the first";
    first.close();
    EXPECT_TRUE(waitForPictures(second, 3)) << "the end of the first one stopped the second";
    EXPECT_THAT(first.losses, IsEmpty());
    EXPECT_THAT(second.losses, IsEmpty());
}

TEST_F(PipewireCamerasTest, ACameraWithoutPicturesIsLostAfterAWhile)
{
    const auto camera = plugIn({.id = "dark", .name = "Dark camera", .more = {"--fault", "silent"}});
    cameras = makeCameras(std::chrono::seconds{2});
    ASSERT_TRUE(eventually([&] { return isListed("dark"); }));
    CameraWatcher watcher(*cameras, "dark");
    EXPECT_FALSE(eventually([&] { return !watcher.losses.empty(); }, Milliseconds{1500}));
    ASSERT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_THAT(watcher.losses.front().message, HasSubstr("\"Dark camera\" gives no picture"));
}

TEST_F(PipewireCamerasTest, ACameraThatStopsInBetweenIsLostAfterAWhile)
{
    const auto camera = plugIn({.id = "stalling"});
    cameras = makeCameras(std::chrono::seconds{2});
    ASSERT_TRUE(eventually([&] { return isListed("stalling"); }));
    CameraWatcher watcher(*cameras, "stalling");
    ASSERT_TRUE(waitForPictures(watcher));
    EXPECT_FALSE(eventually([&] { return !watcher.losses.empty(); }, Milliseconds{3000})) << "lost while it works";
    camera->tell("fault silent");
    EXPECT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
}

TEST_F(PipewireCamerasTest, WhenTheDaemonCrashesAllCamerasGoAndComeBackWithIt)
{
    auto camera = plugIn({.id = "surviving"});
    ASSERT_TRUE(eventually([&] { return isListed("surviving"); }));
    CameraWatcher watcher(*cameras, "surviving");
    ASSERT_TRUE(waitForPictures(watcher));
    pipewire->crash();
    camera->crash();
    EXPECT_TRUE(eventually([&] { return cameras->devices().empty(); }));
    EXPECT_TRUE(eventually([&] { return !watcher.losses.empty(); }));
    EXPECT_FALSE(cameras->preferredDevice().has_value());
    watcher.close();

    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    camera = plugIn({.id = "surviving"});
    ASSERT_TRUE(eventually([&] { return isListed("surviving"); }));
    CameraWatcher again(*cameras, "surviving");
    EXPECT_TRUE(waitForPictures(again));
}

TEST_F(PipewireCamerasTest, WhetherItHasTheCamerasIsToldAsTheDaemonEndsAndComesBack)
{
    pipewire::KnownDevices& devices = *known.back();
    EXPECT_EQ(devices.hasCameras(), std::nullopt) << "nobody has asked yet";
    int changes = 0;
    const Subscription changed = devices.observeWhetherItHasCameras([&changes] { ++changes; });
    static_cast<void>(cameras->devices());
    ASSERT_TRUE(eventually([&] { return devices.hasCameras() == true; }));
    EXPECT_EQ(changes, 1);
    pipewire->crash();
    ASSERT_TRUE(eventually([&] { return devices.hasCameras() == false; }));
    EXPECT_EQ(changes, 2);
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    ASSERT_TRUE(eventually([&] { return devices.hasCameras() == true; }));
    EXPECT_EQ(changes, 3);
}

TEST_F(PipewireCamerasTest, ADaemonThatStartsLaterIsFound)
{
    pipewire->crash();
    cameras = makeCameras();
    EXPECT_FALSE(eventually([&] { return !cameras->devices().empty(); }, Milliseconds{500}));
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    const auto camera = plugIn({.id = "late"});
    EXPECT_TRUE(eventually([&] { return isListed("late"); }));
}

TEST_F(PipewireCamerasTest, WithoutADaemonACameraIsLostAtOnce)
{
    pipewire->crash();
    CameraWatcher watcher(*cameras, "anything");
    EXPECT_TRUE(eventually([&] { return !watcher.losses.empty(); }, Milliseconds{1000}));
    EXPECT_TRUE(pipewire->startAgain(reason)) << reason;
}

/// How often threads of that name of this process have gone to sleep of their own will.
long sleepsOf(const std::string& thread)
{
    long sleeps = -1;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name != thread)
            continue;
        std::ifstream status(task.path() / "status");
        const std::string key = "voluntary_ctxt_switches:";
        for (std::string word; status >> word;) {
            long count = 0;
            if (word == key && status >> count)
                sleeps = std::max(sleeps, 0L) + count;
        }
    }
    return sleeps;
}

TEST_F(PipewireCamerasTest, WhoWaitsForTheDaemonHardlyEverWakesUp)
{
    const auto camera = plugIn({.id = "waking"});
    ASSERT_TRUE(eventually([&] { return isListed("waking"); }));
    pipewire->crash(); // Its socket is left, where nobody listens.
    ASSERT_TRUE(eventually([&] { return cameras->devices().empty(); }));
    const long atCrash = sleepsOf("nimbrale-nodes");
    ASSERT_GE(atCrash, 0);
    sleepFor(Milliseconds{2000});
    const long afterTries = sleepsOf("nimbrale-nodes");
    EXPECT_GT(afterTries, atCrash) << "it does not even try";
    sleepFor(Milliseconds{2000});
    // One more try falls into this time, of a few sleeps; ten times a second would be 20 tries.
    EXPECT_LE(sleepsOf("nimbrale-nodes") - afterTries, 8);
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    const auto back = plugIn({.id = "back"});
    EXPECT_TRUE(eventually([&] { return isListed("back"); }));
}

TEST_F(PipewireCamerasTest, ADaemonThatHangsHoldsNobodyUp)
{
    const auto camera = plugIn({.id = "hung"});
    cameras = makeCameras(std::chrono::seconds{2});
    ASSERT_TRUE(eventually([&] { return isListed("hung"); }));
    CameraWatcher watcher(*cameras, "hung");
    ASSERT_TRUE(waitForPictures(watcher));
    const auto timeOf = [](const auto& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::steady_clock::now() - start;
    };
    ASSERT_EQ(kill(pipewire->daemon(), SIGSTOP), 0);
    std::optional<CameraWatcher> another;
    EXPECT_LT(timeOf([&] { another.emplace(*cameras, "hung"); }), Milliseconds{500});
    EXPECT_LT(timeOf([&] { watcher.close(); }), Milliseconds{1000});
    EXPECT_TRUE(eventually([&] { return !another->losses.empty(); })) << "nobody was told";
    EXPECT_LT(timeOf([&] { another.reset(); }), Milliseconds{1000});
    EXPECT_LT(timeOf([&] {
                  cameras.reset();
                  known.clear();
              }),
              Milliseconds{500});
    kill(pipewire->daemon(), SIGCONT);
}

std::ptrdiff_t descriptorsOfThisProcess()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

TEST_F(PipewireCamerasTest, NothingIsLeftOfCamerasThatWereOpen)
{
    const auto camera = plugIn({.id = "often"});
    ASSERT_TRUE(eventually([&] { return isListed("often"); }));
    const auto useOnce = [&] {
        CameraWatcher watcher(*cameras, "often");
        ASSERT_TRUE(waitForPictures(watcher));
    };
    useOnce(); // What the library makes once for all stays.
    const std::ptrdiff_t before = descriptorsOfThisProcess();
    {
        CameraWatcher watcher(*cameras, "often");
        ASSERT_TRUE(waitForPictures(watcher));
        EXPECT_GT(descriptorsOfThisProcess(), before) << "an open camera has descriptors";
    }
    for (int round = 0; round < 10; ++round)
        useOnce();
    EXPECT_EQ(descriptorsOfThisProcess(), before);
}

TEST_F(PipewireCamerasTest, AccessIsAskedOfWhoeverWasGiven)
{
    std::optional<bool> answer;
    cameras->requestAccess([&answer](bool isGranted) { answer = isGranted; });
    EXPECT_EQ(answer, true);
}

} // namespace
} // namespace nimbrale::test
