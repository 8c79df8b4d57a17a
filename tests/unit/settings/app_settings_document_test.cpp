// The text of a settings file: what counts as one, and what its lines say.

#include "settings/app_settings_document.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace nimbrale {
namespace {

using Value = SettingsDocument::Value;

std::optional<Value> valueIn(const std::string& content)
{
    const std::optional<SettingsDocument> document = SettingsDocument::parse(content);
    EXPECT_TRUE(document) << content;
    return document ? document->value("key") : std::nullopt;
}

bool isSettingsText(const std::string& content)
{
    return SettingsDocument::parse(content).has_value();
}

TEST(SettingsDocumentTest, KeysCountInTheGeneralSectionAlone)
{
    EXPECT_EQ(valueIn("key=1\n"), Value("1")) << "before any section";
    EXPECT_EQ(valueIn("[General]\nkey=1\n"), Value("1"));
    EXPECT_EQ(valueIn("[Other]\nkey=1\n"), std::nullopt);
    EXPECT_EQ(valueIn("[General]\nkey=1\n[Other]\nkey=2\n"), Value("1"));
    EXPECT_EQ(valueIn("[Other]\nkey=2\n[General]\nkey=1\n"), Value("1"));
}

TEST(SettingsDocumentTest, TheLastOfEqualKeysCountsAndAllAreSet)
{
    auto document = SettingsDocument::parse("key=1\nkey=2\n");
    ASSERT_TRUE(document);
    EXPECT_EQ(document->value("key"), Value("2"));
    document->setValue("key", "3");
    EXPECT_EQ(document->text(), "key=3\nkey=3\n");
}

TEST(SettingsDocumentTest, CommentsAssignNothing)
{
    EXPECT_EQ(valueIn("[General]\n;key=1\n"), std::nullopt);
    EXPECT_EQ(valueIn("[General]\n# key=1\n"), std::nullopt);
    const auto commented = SettingsDocument::parse(";key=1\n#key=1\n");
    ASSERT_TRUE(commented);
    EXPECT_EQ(commented->value(";key"), std::nullopt);
    EXPECT_EQ(commented->value("#key"), std::nullopt);
}

TEST(SettingsDocumentTest, BlanksAroundKeyAndValueDoNotCount)
{
    auto document = SettingsDocument::parse("  [General] \n\tkey \t= 1 \r\n");
    ASSERT_TRUE(document);
    EXPECT_EQ(document->value("key"), Value("1"));
    document->setValue("key", "2");
    EXPECT_EQ(document->text(), "  [General] \nkey=2\n");
}

TEST(SettingsDocumentTest, WhatCannotBeUnderstoodIsAbsent)
{
    EXPECT_EQ(valueIn("key=\"never closed\n"), std::nullopt);
    EXPECT_EQ(valueIn("key=@ByteArray(never closed\n"), std::nullopt);
    EXPECT_EQ(valueIn("key=\\x12345\n"), std::nullopt) << "more than a character's number";
    EXPECT_EQ(valueIn("key=\\xzz\n"), std::nullopt);
    EXPECT_EQ(valueIn("key=\\q\n"), std::nullopt);
    EXPECT_EQ(valueIn("key=1, 2\n"), std::nullopt) << "a list";
    EXPECT_EQ(valueIn("key=\\x41\n"), Value("A")) << "the control: an escape that means something";
}

TEST(SettingsDocumentTest, WhatIsNoSettingsTextIsRefused)
{
    EXPECT_TRUE(isSettingsText(""));
    EXPECT_TRUE(isSettingsText("\n  \n; words\n# words\n[Any Section]\nkey=\n"));
    EXPECT_FALSE(isSettingsText("words\n"));
    EXPECT_FALSE(isSettingsText("=1\n")) << "a value without a key";
    EXPECT_FALSE(isSettingsText(std::string("key=a\0b\n", 8)));
    EXPECT_FALSE(isSettingsText("key=\xff\n"));
}

TEST(SettingsDocumentTest, TheLargestSizeIsALimit)
{
    const std::string key = "key=";
    const std::string most = key + std::string(SettingsDocument::largestSize - key.size(), 'a');
    EXPECT_TRUE(isSettingsText(most));
    EXPECT_FALSE(isSettingsText(most + "a"));
}

TEST(SettingsDocumentTest, ANewKeyGoesToTheEndOfTheGeneralSection)
{
    auto document = SettingsDocument::parse("[General]\na=1\n\n[Other]\nb=2\n");
    ASSERT_TRUE(document);
    document->setValue("key", "3");
    EXPECT_EQ(document->text(), "[General]\na=1\nkey=3\n\n[Other]\nb=2\n");
    document = SettingsDocument::parse("[Other]\nkey=2\n");
    ASSERT_TRUE(document);
    document->setValue("key", "3");
    EXPECT_EQ(document->text(), "[General]\nkey=3\n[Other]\nkey=2\n");
}

} // namespace
} // namespace nimbrale
