#include "tests/fakes/offscreen_toolkit.h"
#include "tests/unit/ui/widget_input.h"
#include "ui/number_field.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NumberFieldTest : public testing::Test {
protected:
    ~NumberFieldTest() override { QLocale::setDefault(usual_); }

    /// A field of a user with that locale, with the keyboard in it.
    void open(const char* locale, std::int64_t value)
    {
        QLocale::setDefault(QLocale(locale));
        committed_.clear();
        field_ = std::make_unique<NumberField>("&Width", "Width", "px");
        edit().onCommit = [this](std::int64_t newValue) { committed_.push_back(newValue); };
        edit().setValue(value);
        field_->show();
        field_->activateWindow();
        QApplication::processEvents();
        edit().setFocus();
    }
    [[nodiscard]] NumberEdit& edit() { return field_->edit(); }
    [[nodiscard]] QString shown() { return textOf(edit()); }
    void enter(const QString& text)
    {
        type(edit(), text);
        press(edit(), Qt::Key_Return);
    }

    OffscreenToolkit toolkit_;
    QLocale usual_;
    std::unique_ptr<NumberField> field_;
    std::vector<std::int64_t> committed_;
};

struct LocaleCase {
    const char* locale;
    const char* shown;
    /// What keyboards have for it.
    const char* typed;
};

const LocaleCase localesWithThousands[] = {
    {"C", "1920", "1920"},       {"en_US", "1,920", "1,920"},
    {"de_DE", "1.920", "1.920"}, {"fr_FR", "1\u202f920", "1 920"},
    {"de_CH", "1’920", "1'920"}, {"es_ES", "1920", "1920"},
};

TEST_F(NumberFieldTest, GroupsThousandsAsTheLocaleDoes)
{
    for (const LocaleCase& locale : localesWithThousands) {
        open(locale.locale, 1920);
        EXPECT_EQ(shown(), locale.shown) << locale.locale;
    }
}

TEST_F(NumberFieldTest, TakesThousandsWithAndWithoutGroups)
{
    for (const LocaleCase& locale : localesWithThousands) {
        for (const char* text : {"1920", locale.shown, locale.typed}) {
            open(locale.locale, 800);
            enter(text);
            EXPECT_THAT(committed_, ElementsAre(1920)) << locale.locale << ": " << text;
            EXPECT_EQ(shown(), locale.shown) << locale.locale << ": " << text;
        }
    }
}

TEST_F(NumberFieldTest, DigitsChangedWithinGroupsAreTaken)
{
    open("en_US", 1920);
    enter("1,9200");
    enter("1,90");
    EXPECT_THAT(committed_, ElementsAre(19200, 190));
}

TEST_F(NumberFieldTest, DecimalsAreNoGroups)
{
    open("de_DE", 800);
    enter("1,500");
    open("en_US", 800);
    enter("1.500");
    EXPECT_THAT(committed_, IsEmpty());
    EXPECT_EQ(shown(), "800");
}

TEST_F(NumberFieldTest, WhatItShowsCanBeTypedAgainWithoutAChange)
{
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    for (const char* locale : {"C", "en_US", "de_DE", "fr_FR", "de_CH", "sv_SE", "fa_IR", "ar_EG"}) {
        for (const std::int64_t value : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{-70000}, largest, smallest}) {
            open(locale, value);
            const QString before = shown();
            enter(before);
            EXPECT_THAT(committed_, IsEmpty()) << locale << ' ' << value;
            EXPECT_EQ(shown(), before) << locale << ' ' << value;

            edit().setValue(5);
            enter(before);
            EXPECT_THAT(committed_, ElementsAre(value)) << locale << ": " << before.toStdString();
        }
    }
}

TEST_F(NumberFieldTest, TheKeyboardsMinusIsTakenInEveryLocale)
{
    for (const char* locale : {"C", "en_US", "sv_SE", "fa_IR", "ar_EG"}) {
        open(locale, 0);
        enter("-1");
        EXPECT_THAT(committed_, ElementsAre(-1)) << locale;
    }
}

TEST_F(NumberFieldTest, UpAndDownStepAndAreTakenAtOnce)
{
    open("en_US", 999);
    press(edit(), Qt::Key_Up);
    EXPECT_EQ(shown(), "1,000");
    press(edit(), Qt::Key_Down);
    press(edit(), Qt::Key_Down);
    EXPECT_THAT(committed_, ElementsAre(1000, 999, 998));
    press(edit(), Qt::Key_PageUp);
    press(edit(), Qt::Key_PageDown);
    EXPECT_THAT(committed_, ElementsAre(1000, 999, 998, 1008, 998));
}

TEST_F(NumberFieldTest, TheWheelStepsByWholeNotches)
{
    open("C", 10);
    turnWheel(edit(), 120);
    EXPECT_THAT(committed_, ElementsAre(11));
    turnWheel(edit(), -240);
    EXPECT_THAT(committed_, ElementsAre(11, 9));
    turnWheel(edit(), 60);
    EXPECT_THAT(committed_, ElementsAre(11, 9)) << "half a notch";
    turnWheel(edit(), 60);
    EXPECT_THAT(committed_, ElementsAre(11, 9, 10));
}

TEST_F(NumberFieldTest, StepsEndAtTheNearestAllowedNumberAndTypedOnesDoNot)
{
    open("C", 95);
    edit().nearestStep = [](std::int64_t wanted) { return std::clamp<std::int64_t>(wanted, 0, 100); };
    press(edit(), Qt::Key_PageUp);
    press(edit(), Qt::Key_Up);
    EXPECT_THAT(committed_, ElementsAre(100)) << "a step that changes nothing is none";
    enter("300");
    EXPECT_THAT(committed_, ElementsAre(100, 300));
    type(edit(), "400");
    press(edit(), Qt::Key_Down);
    EXPECT_THAT(committed_, ElementsAre(100, 300, 100));
}

TEST_F(NumberFieldTest, StepsBeyondTheLargestNumberStayThere)
{
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    open("C", largest - 3);
    press(edit(), Qt::Key_PageUp);
    EXPECT_THAT(committed_, ElementsAre(largest));
    open("C", smallest + 3);
    press(edit(), Qt::Key_PageDown);
    EXPECT_THAT(committed_, ElementsAre(smallest));
}

TEST_F(NumberFieldTest, AStepGoesOnFromWhatIsTyped)
{
    open("en_US", 800);
    type(edit(), "1,500");
    press(edit(), Qt::Key_Up);
    EXPECT_THAT(committed_, ElementsAre(1501));
    type(edit(), "wide");
    press(edit(), Qt::Key_Down);
    EXPECT_THAT(committed_, ElementsAre(1501, 1500));
    press(edit(), Qt::Key_Return);
    EXPECT_EQ(committed_.size(), 2) << "nothing is left to be taken";
}

} // namespace
} // namespace nimbrale
