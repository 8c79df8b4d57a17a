#include "platform/pipewire/device_list.h"

#include <gmock/gmock.h>

namespace nimbrale::pipewire {
namespace {

using CameraList = DeviceList<CameraDevice>;
using CameraSnapshot = DeviceSnapshot<CameraDevice>;

using testing::ElementsAre;
using testing::IsEmpty;

NodeProperties camera(const char* name, const char* nick = nullptr, const char* description = nullptr)
{
    return {"Video/Source", "Camera", name, nick, description};
}

std::string nameOf(const NodeProperties& properties)
{
    CameraList list;
    list.add(1, properties);
    const CameraSnapshot snapshot = list.snapshot();
    return snapshot.devices.empty() ? "none" : snapshot.devices.front().name;
}

TEST(DeviceListTest, NickComesBeforeDescriptionAndThatBeforeTheNodesName)
{
    EXPECT_EQ(nameOf(camera("node", "Nick", "Description")), "Nick");
    EXPECT_EQ(nameOf(camera("node", "", "Description")), "Description");
    EXPECT_EQ(nameOf(camera("node", nullptr, " \t")), "node");
    EXPECT_EQ(nameOf(camera("node")), "node");
}

TEST(DeviceListTest, TheDriversNameIsLeftOut)
{
    EXPECT_EQ(nameOf(camera("node", nullptr, "Integrated camera (V4L2)")), "Integrated camera");
    EXPECT_EQ(nameOf(camera("node", nullptr, "Integrated (V4L2) camera")), "Integrated (V4L2) camera");
    EXPECT_EQ(nameOf(camera("node", "Nick (V4L2)")), "Nick (V4L2)");
}

TEST(DeviceListTest, WhatIsNoUtf8IsMadeReadable)
{
    EXPECT_EQ(nameOf(camera("node", "B\xfcro")), "B\xef\xbf\xbdro");
    EXPECT_EQ(nameOf(camera("node", "Büro")), "Büro");
}

TEST(DeviceListTest, OnlyVideoSourcesThatAreCamerasCount)
{
    CameraList list;
    list.add(1, {"Audio/Source", "Camera", "microphone", nullptr, nullptr});
    list.add(2, {"Video/Source", "Screen", "screen", nullptr, nullptr});
    list.add(3, {"Video/Source", nullptr, "unknown", nullptr, nullptr});
    list.add(4, {"Stream/Input/Video", "Camera", "consumer", nullptr, nullptr});
    list.add(5, {"Video/Source", "Camera", nullptr, nullptr, nullptr});
    list.add(6, {"Video/Source", "Camera", "", nullptr, nullptr});
    list.add(7, {});
    EXPECT_THAT(list.snapshot().devices, IsEmpty());
    list.add(8, camera("camera"));
    EXPECT_THAT(list.snapshot().devices, ElementsAre(CameraDevice{"camera", "camera"}));
}

TEST(DeviceListTest, OfSeveralNodesOfANameTheFirstIsListedAndAnotherTakesItsPlace)
{
    CameraList list;
    list.add(5, camera("twin", "Second"));
    list.add(3, camera("twin", "First"));
    EXPECT_THAT(list.snapshot().devices, ElementsAre(CameraDevice{"twin", "First"}));
    list.remove(3);
    EXPECT_THAT(list.snapshot().devices, ElementsAre(CameraDevice{"twin", "Second"}));
    list.remove(3);
    list.remove(5);
    EXPECT_THAT(list.snapshot().devices, IsEmpty());
}

TEST(DeviceListTest, PreferredIsTheDefaultSourceWhileItIsThere)
{
    CameraList list;
    list.setDefault(R"({"name":"front"})");
    EXPECT_EQ(list.snapshot().preferred, std::nullopt);
    list.add(1, camera("front"));
    EXPECT_EQ(list.snapshot().preferred, "front");
    list.setDefault(nullptr);
    EXPECT_EQ(list.snapshot().preferred, std::nullopt);
}

TEST(DeviceListTest, ADefaultThatCannotBeReadIsNone)
{
    CameraList list;
    list.add(1, camera("front"));
    for (const char* text : {"", "front", "{", "[\"front\"]", R"({"name":7})", R"({"name":["front"]})"}) {
        list.setDefault(R"({"name":"front"})");
        ASSERT_EQ(list.snapshot().preferred, "front");
        list.setDefault(text);
        EXPECT_EQ(list.snapshot().preferred, std::nullopt) << text;
    }
}

TEST(DeviceListTest, NothingIsLeftAfterTheDaemonWent)
{
    CameraList list;
    list.add(1, camera("front"));
    list.setDefault(R"({"name":"front"})");
    list.clear();
    EXPECT_EQ(list.snapshot(), CameraSnapshot{});
}

TEST(DeviceListTest, OnlySourcesOfSoundAreMicrophones)
{
    DeviceList<MicrophoneDevice> list;
    list.add(1, {"Audio/Sink", nullptr, "loudspeaker", nullptr, nullptr});
    list.add(2, {"Stream/Input/Audio", nullptr, "recorder", nullptr, nullptr});
    list.add(3, {"Stream/Output/Audio", nullptr, "player", nullptr, nullptr});
    list.add(4, {"Video/Source", "Camera", "camera", nullptr, nullptr});
    list.add(5, {"Audio/Source", nullptr, nullptr, nullptr, nullptr});
    list.add(6, {});
    EXPECT_THAT(list.snapshot().devices, IsEmpty());
    list.add(7, {"Audio/Source", nullptr, "inner", "Inner microphone", nullptr});
    list.add(8, {"Audio/Source/Virtual", nullptr, "cleaned", nullptr, "Without noise"});
    EXPECT_THAT(list.snapshot().devices, ElementsAre(MicrophoneDevice{"inner", "Inner microphone"},
                                                     MicrophoneDevice{"cleaned", "Without noise"}));
}

TEST(DeviceListTest, WhereNoMicrophoneIsLeftTheDefaultLoudspeakerIsNotPreferred)
{
    DeviceList<MicrophoneDevice> list;
    list.add(1, {"Audio/Sink", nullptr, "loudspeaker", nullptr, nullptr});
    list.add(2, {"Audio/Source", nullptr, "inner", nullptr, nullptr});
    list.setDefault(R"({"name":"inner"})");
    EXPECT_EQ(list.snapshot().preferred, "inner");
    list.remove(2);
    list.setDefault(R"({"name":"loudspeaker"})");
    EXPECT_EQ(list.snapshot(), DeviceSnapshot<MicrophoneDevice>{});
}

} // namespace
} // namespace nimbrale::pipewire
