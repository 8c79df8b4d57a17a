// The README's picture of the webcam, made by scripts/make-gallery.sh: the frame with a report and the webcam in it,
// and beside it what is shared.

#include "tests/meeting/webcam_journey.h"

#include <QPainter>
#include <QPainterPath>

#include <array>
#include <filesystem>

namespace nimbrale::test {
namespace {

constexpr QSize cameraSize(640, 360);
constexpr QRect box(364, 164, 220, 220);
constexpr QRect page(100, 60, 720, 640);
constexpr std::uintmax_t mostBytes = 300'000;
constexpr int margin = 20;
const QColor desk(222, 226, 232);
const QColor ink(70, 78, 92);
const QColor shirt(50, 110, 170);
const QColor skin(226, 178, 146);
const QColor wallBehind(214, 206, 190);

/// Somebody in front of a wall with a shelf: drawn, since a photograph would be of a real person.
QImage drawnPerson()
{
    QImage image(cameraSize, QImage::Format_RGB32);
    image.fill(wallBehind);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.fillRect(QRect(40, 120, 130, 12), QColor(150, 110, 70));
    constexpr std::array books{0x9a3b3b, 0x3b6a9a, 0x5a8a4a, 0xc09030};
    for (int book = 0; book < static_cast<int>(books.size()); ++book)
        painter.fillRect(QRect(52 + 24 * book, 60 + 6 * (book % 2), 20, 60 - 6 * (book % 2)),
                         QColor::fromRgb(static_cast<QRgb>(books.at(static_cast<std::size_t>(book)))));
    painter.setBrush(shirt);
    painter.drawRoundedRect(QRect(190, 250, 260, 200), 90, 90);
    painter.setBrush(skin.darker(112));
    painter.drawRect(QRect(295, 215, 50, 60));
    painter.setBrush(QColor(70, 48, 36));
    painter.drawEllipse(QPoint(320, 135), 84, 92);
    painter.setBrush(skin);
    painter.drawEllipse(QPoint(320, 155), 70, 84);
    painter.setBrush(ink);
    painter.drawEllipse(QPoint(295, 145), 7, 8);
    painter.drawEllipse(QPoint(345, 145), 7, 8);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(150, 70, 60), 5, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(QRect(292, 165, 56, 42), 200 * 16, 140 * 16);
    return image;
}

class WebcamGallery : public WebcamJourney {
protected:
    /// A page with a heading, bars and lines, which reaches out of the frame.
    void showReport()
    {
        auto add = [this, count = 0](const QRect& place, const QColor& color) mutable {
            scene->add("part-" + std::to_string(count++), {.geometry = place, .seed = 0, .color = color});
        };
        add(page, Qt::white);
        add({240, 130, 260, 22}, ink);
        constexpr std::array heights{60, 96, 78, 130, 112};
        for (int bar = 0; bar < static_cast<int>(heights.size()); ++bar) {
            const int height = heights.at(static_cast<std::size_t>(bar));
            add({240 + 56 * bar, 310 - height, 36, height}, bar == 3 ? QColor(232, 124, 60) : QColor(74, 134, 200));
        }
        for (int line = 0; line < 9; ++line)
            add({240, 340 + 32 * line, line % 3 == 2 ? 180 : 300, 10}, QColor(196, 202, 212));
    }
};

TEST_F(WebcamGallery, PictureForTheReadme)
{
    const QImage person = drawnPerson();
    prepare({.name = "Openbox", .compositor = PrivateDesktop::Compositor::picom}, person);
    ASSERT_NO_FATAL_FAILURE(showReport());
    ASSERT_NO_FATAL_FAILURE(start({{"webcamShape", "circle"},
                                   {"webcamX", std::to_string(box.x())},
                                   {"webcamY", std::to_string(box.y())},
                                   {"webcamWidth", std::to_string(box.width())},
                                   {"webcamHeight", std::to_string(box.height())}}));
    // The shirt, below the face.
    const QPoint place(box.center().x(), box.bottom() - 20);
    ASSERT_TRUE(bothShow(place, shirt)) << picture();
    EXPECT_NE(onScreen(box.topLeft()), shirt);

    const QImage screen = desktop->screenshot();
    const QRect onDisplay = QRect(QPoint(), displaySize);
    const QImage left = screen.copy(onDisplay).copy(QRect(60, 20, 860, 640));
    const QImage right = screen.copy(desktop->monitorNamed("Nimbrale")->geometry);
    QImage both(left.width() + right.width() + 3 * margin, left.height() + 2 * margin, QImage::Format_RGB32);
    both.fill(desk);
    QPainter painter(&both);
    painter.drawImage(margin, margin, left);
    painter.drawImage(left.width() + 2 * margin, margin + 80, right);
    painter.end();
    const auto file = keepImage(both, "webcam.readme");
    EXPECT_LE(std::filesystem::file_size(file), mostBytes);
}

} // namespace
} // namespace nimbrale::test
