#include "platform/desktop/instance_claim.h"
#include "platform/desktop/instance_messages.h"

#include <gtest/gtest.h>

#include <string>

namespace nimbrale {
namespace {

TEST(InstanceMessagesTest, RequestsAreOneLine)
{
    EXPECT_EQ(formatRequest({"open-settings", ""}), "nimbrale/1 open-settings\n");
    EXPECT_EQ(formatRequest({"open-settings", "12345"}), "nimbrale/1 open-settings 12345\n");
    EXPECT_EQ(parseRequest("nimbrale/1 open-settings"), (InstanceRequest{"open-settings", ""}));
    EXPECT_EQ(parseRequest("nimbrale/1 open-settings 12345"), (InstanceRequest{"open-settings", "12345"}));
    EXPECT_EQ(parseRequest("nimbrale/1 toggle-recording"), (InstanceRequest{"toggle-recording", ""}))
        << "a command that is not known yet can be read";
}

TEST(InstanceMessagesTest, WhatNoProgramOfThisKindSendsIsNoRequest)
{
    using namespace std::string_literals;
    for (const std::string& line :
         {""s, "nimbrale/1"s, "nimbrale/1 "s, "nimbrale/2 open-settings"s, "open-settings"s,
          " nimbrale/1 open-settings"s, "nimbrale/1  open-settings"s, "nimbrale/1 open-settings "s,
          "nimbrale/1 open-settings a b"s, "nimbrale/1 open\tsettings"s, "nimbrale/1 open\0settings"s,
          "nimbrale/1 \xc3\xb6"
          "ffnen"s,
          "nimbrale/1 open-settings 1\x7f"s, "GET / HTTP/1.1\r"s})
        EXPECT_EQ(parseRequest(line), std::nullopt) << testing::PrintToString(line);
}

TEST(InstanceMessagesTest, TheLongestLineIsBounded)
{
    const std::string start = "nimbrale/1 ";
    const std::string longest(longestInstanceLine - 1 - start.size(), 'a');
    EXPECT_EQ(parseRequest(start + longest), (InstanceRequest{longest, ""}));
    EXPECT_EQ(formatRequest({longest, ""}).size(), longestInstanceLine);
    EXPECT_EQ(parseRequest(start + longest + "a"), std::nullopt);
}

TEST(InstanceMessagesTest, AnswersAreReadAsTheyAreWritten)
{
    for (const InstanceAnswer answer : {InstanceAnswer::done, InstanceAnswer::unknown, InstanceAnswer::ending}) {
        std::string line = formatAnswer(answer);
        ASSERT_EQ(line.back(), '\n');
        line.pop_back();
        EXPECT_EQ(parseAnswer(line), answer);
    }
    EXPECT_EQ(parseAnswer(""), std::nullopt);
    EXPECT_EQ(parseAnswer("done "), std::nullopt);
    EXPECT_EQ(parseAnswer("DONE"), std::nullopt);
}

TEST(InstanceMessagesTest, TimesAreNumbersOfTheServersClock)
{
    EXPECT_EQ(parseEventTime("1"), 1U);
    EXPECT_EQ(parseEventTime("4294967295"), 4294967295U);
    for (const char* text : {"", "0", "4294967296", "-1", "1a", " 1", "0x10"})
        EXPECT_EQ(parseEventTime(text), std::nullopt) << text;
    EXPECT_EQ(timeOfLaunch("xfce4-panel/nimbrale/1234-5-host_TIME98765"), 98765U);
    EXPECT_EQ(timeOfLaunch("a_TIME1_TIME2"), 2U);
    for (const char* text : {"", "gnome-shell-1", "x_TIME", "x_TIME12;", "x_TIME0"})
        EXPECT_EQ(timeOfLaunch(text), std::nullopt) << text;
}

TEST(InstanceMessagesTest, NamesOfTheSameDisplayHaveOneKey)
{
    EXPECT_EQ(displayKey(":1"), ":1");
    EXPECT_EQ(displayKey(":1.0"), ":1");
    EXPECT_EQ(displayKey("unix:1.2"), ":1");
    EXPECT_EQ(displayKey("localhost:10.0"), "localhost:10");
    EXPECT_EQ(displayKey("192.168.0.1:0.1"), "192.168.0.1:0") << "the dots of a host are no screen";
    EXPECT_EQ(displayKey(":12"), ":12");
    EXPECT_EQ(displayKey("nonsense.0"), "nonsense.0");
    EXPECT_EQ(displayKey(""), "");
}

} // namespace
} // namespace nimbrale
