#include "tests/fakes/fake_screens.h"
#include "tests/fakes/offscreen_toolkit.h"
#include "tests/unit/ui/widget_input.h"
#include "ui/number_field.h"
#include "ui/settings_window.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QSpinBox>
#include <QTabWidget>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

namespace nimbrale {
namespace {

class SettingsWindowTest : public testing::Test {
protected:
    SettingsWindowTest()
    {
        window_.show();
        QApplication::processEvents();
    }

    template <typename T>
    [[nodiscard]] T& named(const QString& accessibleName)
    {
        const QList<T*> candidates = window_.findChildren<T*>();
        const auto found = std::ranges::find_if(
            candidates, [&](const T* candidate) { return candidate->accessibleName() == accessibleName; });
        if (found == candidates.end())
            throw std::runtime_error("no control is called " + accessibleName.toStdString());
        return **found;
    }
    [[nodiscard]] SettingsWindow::Sources sources(FramedAreaSource framedArea)
    {
        return {[this] { return displays_; },
                std::move(framedArea),
                [this] { return cameras_; },
                [] { return std::vector<MicrophoneDevice>(); },
                {[] { return "Videos"; }, [] { return "Videos"; }, [] {}}};
    }
    [[nodiscard]] QWidget& field(const QString& name) { return named<QWidget>(name); }
    [[nodiscard]] QAbstractButton& toggle(const QString& text)
    {
        const QList<QAbstractButton*> buttons = window_.findChildren<QAbstractButton*>();
        const auto found = std::ranges::find_if(
            buttons, [&](QAbstractButton* button) { return button->text().remove('&').startsWith(text); });
        if (found == buttons.end())
            throw std::runtime_error("no toggle starts with " + text.toStdString());
        return **found;
    }
    [[nodiscard]] bool shows(const QString& text)
    {
        const QList<QLabel*> labels = window_.findChildren<QLabel*>();
        return std::ranges::any_of(
            labels, [&](const QLabel* label) { return label->text().startsWith(text) && label->isVisible(); });
    }

    OffscreenToolkit toolkit_;
    QTemporaryDir directory_;
    AppSettings settings_{directory_.filePath("Nimbrale.conf").toStdString()};
    std::vector<Screen> displays_{makeScreen(3, {0, 0, 1920, 1080}), makeScreen(7, {1920, 0, 1600, 900})};
    std::optional<FramedArea> framedArea_;
    std::vector<CameraDevice> cameras_{{"front", "Front camera"}, {"desk", "Desk camera"}};
    SettingsWindow window_{settings_, sources([this] { return framedArea_; })};
};

TEST_F(SettingsWindowTest, IsKnownByItsTitleAndName)
{
    EXPECT_EQ(window_.windowTitle(), "Nimbrale Settings");
    EXPECT_EQ(window_.objectName(), "Settings");
}

TEST_F(SettingsWindowTest, ShowsTheStoredValuesAndWritesNothing)
{
    EXPECT_EQ(textOf(field("Left")), "0");
    EXPECT_EQ(textOf(field("Width")), "800");
    EXPECT_EQ(textOf(field("Height")), "600");
    EXPECT_EQ(named<QSpinBox>("Framerate").value(), 30);
    EXPECT_TRUE(toggle("Snap").isChecked());
    EXPECT_TRUE(toggle("Show notifications").isChecked());
    EXPECT_FALSE(QFile::exists(directory_.filePath("Nimbrale.conf")));
}

TEST_F(SettingsWindowTest, FieldsBelowEachOtherBeginBelowEachOther)
{
    const auto leftEdge = [this](const char* name) { return field(name).mapTo(&window_, QPoint(0, 0)).x(); };
    EXPECT_EQ(leftEdge("Left"), leftEdge("Width"));
    EXPECT_EQ(leftEdge("Top"), leftEdge("Height"));
    EXPECT_LT(leftEdge("Width"), leftEdge("Height"));
}

TEST_F(SettingsWindowTest, ReturnStoresATypedNumber)
{
    type(field("Width"), "1024");
    EXPECT_EQ(settings_.width(), 800);
    press(field("Width"), Qt::Key_Return);
    EXPECT_EQ(settings_.width(), 1024);
    EXPECT_EQ(textOf(field("Width")), QLocale().toString(1024));
}

TEST_F(SettingsWindowTest, LeavingAFieldStoresATypedNumber)
{
    type(field("Top"), "-12");
    field("Top").clearFocus();
    EXPECT_EQ(settings_.top(), -12);
}

TEST_F(SettingsWindowTest, TextThatIsNoNumberIsTakenBack)
{
    for (const char* text : {"abc", "12px", "", "1.5", "99999999999999999999"}) {
        type(field("Height"), "1");
        press(field("Height"), Qt::Key_Backspace);
        type(field("Height"), text);
        press(field("Height"), Qt::Key_Return);
        EXPECT_EQ(settings_.height(), 600) << text;
        EXPECT_EQ(textOf(field("Height")), "600") << text;
    }
}

TEST_F(SettingsWindowTest, FieldsHaveNoLimits)
{
    type(field("Left"), "-70000");
    press(field("Left"), Qt::Key_Return);
    EXPECT_EQ(settings_.left(), -70000);
}

TEST_F(SettingsWindowTest, StepsAreStoredAtOnce)
{
    press(field("Left"), Qt::Key_Up);
    EXPECT_EQ(settings_.left(), 1);
    press(field("Top"), Qt::Key_Down);
    EXPECT_EQ(settings_.top(), -1);
    turnWheel(field("Width"), 120);
    EXPECT_EQ(settings_.width(), 801);
    turnWheel(field("Height"), -120);
    EXPECT_EQ(settings_.height(), 599);
}

TEST_F(SettingsWindowTest, StepsStayWithinTheDisplayAndTypedNumbersAreLeftToTheCapture)
{
    framedArea_ = FramedArea{DisplayGeometry::of(displays_.front()), {0, 1, 800, 600}, 1};
    press(field("Left"), Qt::Key_Down);
    EXPECT_EQ(settings_.left(), 0);
    press(field("Top"), Qt::Key_PageDown);
    EXPECT_EQ(settings_.top(), -1) << "the display has nothing at its top, and 0 is one point below";
    type(field("Width"), "2500");
    press(field("Width"), Qt::Key_Return);
    EXPECT_EQ(settings_.width(), 2500);
    press(field("Width"), Qt::Key_Up);
    EXPECT_EQ(settings_.width(), 1920);
    type(field("Height"), "55");
    press(field("Height"), Qt::Key_PageDown);
    EXPECT_EQ(settings_.height(), 50);
    type(field("Left"), "1900");
    turnWheel(field("Left"), 120);
    EXPECT_EQ(settings_.left(), 0) << "nothing is left beside a frame as wide as the display";
}

TEST_F(SettingsWindowTest, TopIsCountedFromBelowWhatTheDisplayHasAtItsTop)
{
    Screen withPanel = displays_.front();
    withPanel.visibleFrame.height -= 31;
    framedArea_ = FramedArea{DisplayGeometry::of(withPanel), {0, 31, 800, 600}, 1};
    type(field("Top"), "-25");
    press(field("Top"), Qt::Key_PageDown);
    EXPECT_EQ(settings_.top(), -31);
    type(field("Top"), "440");
    press(field("Top"), Qt::Key_PageUp);
    EXPECT_EQ(settings_.top(), 1080 - 600 - 31);
}

TEST_F(SettingsWindowTest, TellsTheSharedSizeWhereAPointIsNotOnePixel)
{
    const DisplayGeometry display = DisplayGeometry::of(displays_.front());
    framedArea_ = FramedArea{display, {0, 1, 800, 600}, 2};
    window_.framedAreaDidChange();
    EXPECT_TRUE(shows("Shared: 1600 × 1200 pixels"));

    framedArea_ = FramedArea{display, {0, 1, 801, 601}, 1.25};
    window_.framedAreaDidChange();
    EXPECT_TRUE(shows("Shared: 1001 × 751 pixels")) << "pixels that a region ends within are not shared";

    framedArea_->pixelScale = 1;
    window_.framedAreaDidChange();
    EXPECT_FALSE(shows("Shared:"));
    framedArea_->pixelScale = 2;
    window_.framedAreaDidChange();
    EXPECT_TRUE(shows("Shared: 1602 × 1202 pixels"));
    framedArea_.reset();
    window_.framedAreaDidChange();
    EXPECT_FALSE(shows("Shared:"));
}

TEST_F(SettingsWindowTest, FollowsChangesMadeElsewhere)
{
    int assignments = 0;
    const Subscription subscription = settings_.observeChanges([&] { ++assignments; });
    settings_.setLeft(55);
    settings_.setFramerate(12);
    settings_.setSnappingEnabled(false);
    settings_.setShareNotifications(false);
    settings_.setDisplayID(7);
    QApplication::processEvents();
    EXPECT_EQ(textOf(field("Left")), "55");
    EXPECT_EQ(named<QSpinBox>("Framerate").value(), 12);
    EXPECT_FALSE(toggle("Snap").isChecked());
    EXPECT_FALSE(toggle("Show notifications").isChecked());
    EXPECT_EQ(named<QComboBox>("Display").currentText(), "Display 7");
    EXPECT_EQ(assignments, 5) << "showing a change must not store it again";
}

TEST_F(SettingsWindowTest, ChangesElsewhereLeaveWhatIsBeingTyped)
{
    type(field("Width"), "10");
    settings_.setWidth(640);
    settings_.setLeft(9);
    QApplication::processEvents();
    EXPECT_EQ(textOf(field("Width")), "10");
    EXPECT_EQ(textOf(field("Left")), "9");
    press(field("Width"), Qt::Key_Return);
    EXPECT_EQ(settings_.width(), 10);
}

TEST_F(SettingsWindowTest, TypedTextThatIsTakenBackGivesWayToTheNewestValue)
{
    type(field("Width"), "x");
    settings_.setWidth(640);
    QApplication::processEvents();
    press(field("Width"), Qt::Key_Return);
    EXPECT_EQ(textOf(field("Width")), "640");
    EXPECT_EQ(settings_.width(), 640);
}

TEST_F(SettingsWindowTest, FramerateStaysBetween1And120)
{
    QSpinBox& framerate = named<QSpinBox>("Framerate");
    EXPECT_EQ(framerate.minimum(), 1);
    EXPECT_EQ(framerate.maximum(), 120);
    EXPECT_TRUE(shows("Max: 120"));
    framerate.stepUp();
    EXPECT_EQ(settings_.framerate(), 31);

    settings_.setFramerate(500);
    QApplication::processEvents();
    EXPECT_EQ(framerate.value(), 120);
    EXPECT_EQ(settings_.framerate(), 500) << "what others stored is not corrected here";
}

TEST_F(SettingsWindowTest, TogglesAreStoredAtOnceAndChangeTheirNotes)
{
    EXPECT_TRUE(shows("Hold ⌘ while dragging to disable snapping temporarily."));
    toggle("Snap").click();
    EXPECT_FALSE(settings_.snappingEnabled());
    QApplication::processEvents();
    EXPECT_TRUE(shows("Hold ⌘ while dragging to enable snapping temporarily."));

    EXPECT_TRUE(shows("Notification banners that appear inside the frame are shared, too."));
    toggle("Show notifications").click();
    EXPECT_FALSE(settings_.shareNotifications());
    QApplication::processEvents();
    EXPECT_TRUE(shows("Notification banners are left out of what you share, even inside the frame."));
}

TEST_F(SettingsWindowTest, DisplaysAreListedInOrderAndChosen)
{
    QComboBox& display = named<QComboBox>("Display");
    ASSERT_EQ(display.count(), 3);
    EXPECT_EQ(display.itemText(0), "Main display");
    EXPECT_EQ(display.itemText(1), "Display 3");
    EXPECT_EQ(display.itemText(2), "Display 7");
    EXPECT_EQ(display.currentIndex(), 0);

    display.setFocus();
    press(display, Qt::Key_Down);
    EXPECT_EQ(settings_.displayID(), 3);
}

TEST_F(SettingsWindowTest, DisplayThatIsNotConnectedLeavesNoEntrySelected)
{
    settings_.setDisplayID(99);
    QApplication::processEvents();
    QComboBox& display = named<QComboBox>("Display");
    EXPECT_EQ(display.currentIndex(), -1);

    display.setFocus();
    press(display, Qt::Key_Home);
    EXPECT_EQ(display.currentText(), "Main display");
    EXPECT_EQ(settings_.displayID(), 0);
}

TEST_F(SettingsWindowTest, ListFollowsTheDisplays)
{
    settings_.setDisplayID(7);
    QApplication::processEvents();
    displays_.pop_back();
    window_.devicesDidChange();
    QApplication::processEvents();
    QComboBox& display = named<QComboBox>("Display");
    EXPECT_EQ(display.count(), 2);
    EXPECT_EQ(display.currentIndex(), -1);
    EXPECT_EQ(settings_.displayID(), 7);

    displays_.push_back(makeScreen(7, {1920, 0, 1600, 900}));
    window_.devicesDidChange();
    QApplication::processEvents();
    EXPECT_EQ(display.currentText(), "Display 7");
}

TEST_F(SettingsWindowTest, HiddenWindowCatchesUpWhenShown)
{
    window_.hide();
    settings_.setLeft(77);
    QApplication::processEvents();
    framedArea_ = FramedArea{DisplayGeometry::of(displays_.front()), {77, 1, 800, 600}, 2};
    window_.framedAreaDidChange();
    window_.present();
    EXPECT_EQ(textOf(field("Left")), "77");
    EXPECT_TRUE(shows("Shared: 1600 × 1200 pixels"));
}

TEST_F(SettingsWindowTest, EveryControlCanBeReachedByKeyAndHasAName)
{
    for (const char* name : {"Left", "Top", "Width", "Height"}) {
        EXPECT_TRUE(field(name).focusPolicy() & Qt::TabFocus) << name;
        const QList<QLabel*> labels = window_.findChildren<QLabel*>();
        EXPECT_TRUE(std::ranges::any_of(labels, [&](const QLabel* label) {
            return label->buddy() == &field(name) && label->text().contains('&');
        })) << name;
    }
    for (QWidget* widget : window_.findChildren<QWidget*>()) {
        const auto* button = qobject_cast<QAbstractButton*>(widget);
        const bool isControl = qobject_cast<QSpinBox*>(widget) || qobject_cast<QComboBox*>(widget) || button;
        if (isControl && widget->isVisible() && widget->focusPolicy() != Qt::NoFocus) {
            EXPECT_FALSE(widget->accessibleName().isEmpty() && (!button || button->text().isEmpty()))
                << widget->metaObject()->className();
        }
    }
}

TEST_F(SettingsWindowTest, TellsWhenItTakesTheKeysAndWhenNot)
{
    std::vector<bool> keys;
    SettingsWindow other(settings_, sources([] { return std::nullopt; }));
    other.onKeyChanged = [&](bool isKey) { keys.push_back(isKey); };
    other.present();
    QApplication::processEvents();
    EXPECT_EQ(keys, (std::vector{true}));

    window_.activateWindow();
    QApplication::processEvents();
    EXPECT_EQ(keys, (std::vector{true, false}));

    other.activateWindow();
    QApplication::processEvents();
    other.hide();
    EXPECT_EQ(keys, (std::vector{true, false, true, false}));
}

TEST_F(SettingsWindowTest, OpensOnTheStoredTabAndStoresTheOneThatIsChosen)
{
    auto& tabs = *window_.findChild<QTabWidget*>();
    EXPECT_EQ(tabs.tabText(tabs.currentIndex()), "General");
    settings_.setSettingsTab(AppSettings::SettingsTab::webcam);
    QApplication::processEvents();
    EXPECT_EQ(tabs.tabText(tabs.currentIndex()), "Webcam");
    tabs.setCurrentIndex(0);
    EXPECT_EQ(settings_.settingsTab(), AppSettings::SettingsTab::general);
}

} // namespace
} // namespace nimbrale
