// Panels that change in several ways within a moment, while what proves that they have left a place still runs: no
// picture shows anything of them.

#include "tests/desktop/painted_panels_fixture.h"

#include <array>
#include <cmath>
#include <string>

namespace nimbrale::test {
namespace {

using x11::PixelRegion;

/// A ring, as the frame's border is.
PixelRegion ring(QSize size, int thickness)
{
    PixelRegion region(0, 0, size.width(), size.height());
    region -= PixelRegion(thickness, thickness, size.width() - 2 * thickness, size.height() - 2 * thickness);
    return region;
}

PixelRegion circle(int diameter)
{
    const double radius = diameter / 2.0;
    std::vector<PixelRect> spans;
    for (int y = 0; y < diameter; ++y) {
        const double half = std::sqrt(radius * radius - std::pow(y + 0.5 - radius, 2));
        const int left = static_cast<int>(std::ceil(radius - half));
        spans.push_back({left, y, diameter - 2 * left, 1});
    }
    return PixelRegion(spans);
}

using X11MaskAttacksTest = PaintedPanelsTest;

TEST_P(X11MaskAttacksTest, APanelThatGrowsAndShrinksSeveralTimesWithinAMomentIsInNoPicture)
{
    constexpr std::array places = {QRect(200, 150, 120, 90), QRect(150, 100, 480, 380), QRect(420, 300, 60, 40),
                                   QRect(300, 120, 300, 200), QRect(130, 340, 200, 150)};
    PaintedPanel& panel = addPanel(places[0], ring(places[0].size(), 12));
    beginWatch();
    for (int round = 0; round < 60; ++round) {
        const Slowdown slowdown(*desktop, round % 6 == 5);
        // In one batch, or in steps of which the compositing manager hears while the next ones are made.
        for (int change = 0; change <= round % 4; ++change) {
            const QRect& place = places[std::size_t(round * 3 + change) % places.size()];
            panel.setPlace(place);
            panel.paint(ring(place.size(), 6 + round % 9));
            if (round % 3 == 0)
                continue;
            flush();
            captured->pumpFor(Milliseconds{3});
        }
        flush();
        pumpBusily(1 + round % 5);
    }
    expectShown(panel);
    expectNothing(60);
}

TEST_P(X11MaskAttacksTest, PanelsThatMoveOntoEachOthersPlaceAndPaintAnewAreInNoPicture)
{
    constexpr QSize size(200, 150);
    constexpr std::array corners = {QPoint(150, 130), QPoint(400, 300), QPoint(180, 350), QPoint(450, 120)};
    const PixelRegion above(0, 0, size.width(), 30);
    const PixelRegion below(0, size.height() - 30, size.width(), 30);
    PaintedPanel& first = addPanel({corners[0], size}, above);
    PaintedPanel& second = addPanel({corners[1], size}, below);
    beginWatch();
    for (int round = 0; round < 60; ++round) {
        // One goes where the other was, which goes on.
        const auto at = std::size_t(round);
        PaintedPanel& leaving = round % 2 == 0 ? first : second;
        PaintedPanel& coming = round % 2 == 0 ? second : first;
        const QRect left = leaving.place();
        leaving.setPlace({corners[(at + 2) % corners.size()] + QPoint(round % 7, 0), size});
        leaving.paint(round % 4 < 2 ? below : above);
        if (round % 3 == 0)
            flush();
        coming.setPlace(left);
        coming.paint(round % 4 < 2 ? above : below);
        flush();
        pumpBusily(1 + round % 6);
    }
    expectShown(first);
    expectShown(second);
    expectNothing(60);
}

TEST_P(X11MaskAttacksTest, APanelThatTurnsFromACircleToARectangleAndBackIsInNoPicture)
{
    constexpr QRect place(250, 180, 160, 160);
    const PixelRegion disc = circle(place.width());
    const PixelRegion square(0, 0, place.width(), place.height());
    PaintedPanel& panel = addPanel(place, square);
    beginWatch();
    for (int round = 0; round < 30; ++round) {
        {
            const Slowdown slowdown(*desktop, round % 3 != 0);
            // By what it paints alone, or by its window's shape as well.
            const PixelRegion& next = round % 2 == 0 ? disc : square;
            // What is cut off cannot be painted.
            const bool isCut = round % 4 < 2;
            if (isCut && next == square)
                panel.cutTo(next);
            panel.paint(next);
            if (isCut)
                panel.cutTo(next);
            if (round % 6 == 1)
                panel.setPlace(panel.place().translated(round % 12 == 1 ? 60 : -60, 20 - round));
            flush();
            pumpBusily(3);
        }
        pumpBusily(1 + round % 7);
    }
    expectShown(panel);
    expectNothing(60);
}

TEST_P(X11MaskAttacksTest, APanelAndAnotherProgramsWindowThatChangeInOneBatchAreInNoPicture)
{
    constexpr QSize size(160, 120);
    constexpr QPoint hidden(280, 190);
    scene->add("late",
               {.geometry = {hidden, QSize(200, 160)}, .seed = 0, .color = QColor(20, 90, 200), .isMapped = false});
    const xcb_window_t late = scene->identifier("late");
    xcb_connection_t* const raw = captured->connection().get();
    const std::uint32_t none = XCB_BACK_PIXMAP_NONE;
    xcb_change_window_attributes(raw, late, XCB_CW_BACK_PIXMAP, &none);
    const PixelRegion above(0, 0, size.width(), 40);
    const PixelRegion below(0, 60, size.width(), 60);
    PaintedPanel& panel = addPanel({QPoint(200, 150), size}, above);
    beginWatch();
    constexpr std::array corners = {QPoint(300, 200), QPoint(240, 180), QPoint(420, 260), QPoint(320, 240)};
    for (int round = 0; round < 16; ++round) {
        captured->engine().post([] { sleepFor(Milliseconds{60}); });
        const QPoint corner = corners[std::size_t(round) % corners.size()];
        panel.setPlace({corner, round % 3 == 0 ? size + QSize(40, 30) : size});
        panel.paint(round % 2 == 0 ? below : above);
        if (round % 4 >= 2) {
            // The screen shows the panel there before the window takes what is shown.
            flush();
            captured->pumpFor(Milliseconds{20});
        }
        xcb_map_window(raw, late);
        if (round % 2 == 1) {
            const std::array<std::uint32_t, 2> place = {500, 350};
            panel.setPlace({QPoint(130, 100), size});
            panel.paint(round % 4 == 1 ? above : below);
            xcb_configure_window(raw, late, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place.data());
        }
        flush();
        pumpBusily(15);
        xcb_unmap_window(raw, late);
        const std::array<std::uint32_t, 2> back = {hidden.x(), hidden.y()};
        xcb_configure_window(raw, late, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, back.data());
        flush();
        pumpBusily(2);
    }
    expectShown(panel);
    expectNothing(60);
}

INSTANTIATE_TEST_SUITE_P(, X11MaskAttacksTest, everyCompositingManager,
                         [](const auto& managers) { return std::string(managers.param.name); });

} // namespace
} // namespace nimbrale::test
