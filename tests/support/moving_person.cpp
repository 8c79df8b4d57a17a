#include "tests/support/moving_person.h"

#include <QPainter>
#include <QPolygonF>
#include <QTransform>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace nimbrale::test {

namespace {

/// By how much the person is larger than in the photograph.
constexpr double enlargement = 1.6;
/// The blur's deviation, in pixels of the camera.
constexpr double blurDeviation = 0.012 * MovingPerson::pictureSize.width();

/// The outline of the person in the photograph, down to the waist and without the arms: what a camera on a desk shows
/// of somebody.
QPolygonF outlineInPhotograph()
{
    return QPolygonF({{503, 447}, {480, 400}, {460, 345}, {450, 320}, {390, 306}, {376, 285}, {369, 247}, {440, 247},
                      {470, 236}, {492, 238}, {484, 205}, {490, 180}, {510, 158}, {535, 142}, {565, 132}, {595, 137},
                      {611, 165}, {616, 195}, {600, 215}, {598, 236}, {640, 233}, {670, 243}, {690, 268}, {721, 288},
                      {714, 299}, {690, 309}, {655, 316}, {652, 330}, {668, 375}, {685, 410}, {696, 447}});
}

QPolygonF outlineInCutOut()
{
    const QPolygonF outline = outlineInPhotograph();
    return QTransform::fromScale(enlargement, enlargement).map(outline.translated(-outline.boundingRect().topLeft()));
}

QImage cutOut(const QImage& photograph)
{
    const QPolygonF outline = outlineInPhotograph();
    QImage person(outlineInCutOut().boundingRect().size().toSize(), QImage::Format_ARGB32_Premultiplied);
    person.fill(Qt::transparent);
    QPainter painter(&person);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    painter.scale(enlargement, enlargement);
    painter.translate(-outline.boundingRect().topLeft());
    painter.setPen(Qt::NoPen);
    painter.setBrush(QBrush(photograph));
    painter.drawPolygon(outline);
    return person;
}

QImage reduced(const QImage& picture)
{
    return picture.scaled(MovingPerson::webcamSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB32);
}

/// One pass of a Gaussian along the rows, of a picture that goes on beyond its edges; the result is turned.
QImage blurredRowsTurned(const QImage& picture, double deviation)
{
    const int radius = static_cast<int>(std::ceil(3 * deviation));
    std::vector<double> weights;
    double total = 0;
    for (int offset = -radius; offset <= radius; ++offset)
        total += weights.emplace_back(std::exp(-offset * offset / (2 * deviation * deviation)));
    QImage turned(picture.height(), picture.width(), QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            std::array<double, 3> sum{};
            for (int tap = 0; tap <= 2 * radius; ++tap) {
                const QRgb color = picture.pixel(std::clamp(x + tap - radius, 0, picture.width() - 1), y);
                const double weight = weights[static_cast<std::size_t>(tap)] / total;
                sum[0] += weight * qRed(color);
                sum[1] += weight * qGreen(color);
                sum[2] += weight * qBlue(color);
            }
            turned.setPixel(y, x,
                            qRgb(static_cast<int>(std::lround(sum[0])), static_cast<int>(std::lround(sum[1])),
                                 static_cast<int>(std::lround(sum[2]))));
        }
    }
    return turned;
}

bool areNear(QRgb one, QRgb other, int tolerance)
{
    return std::abs(qRed(one) - qRed(other)) <= tolerance && std::abs(qGreen(one) - qGreen(other)) <= tolerance &&
           std::abs(qBlue(one) - qBlue(other)) <= tolerance;
}

} // namespace

MovingPerson::MovingPerson(const QImage& photograph, const QImage& behind, const QColor& wall)
    : sliding_(behind, cutOut(photograph)), wall_(wall), parts_(webcamSize, QImage::Format_Grayscale8),
      mask_(parts_.size(), QImage::Format_Grayscale8)
{
    for (int place = 0; place < sliding_.places(); ++place) {
        sharp_.push_back(reduced(sliding_.withFrontAt(place)));
        const double deviation = blurDeviation / reduction;
        blurred_.push_back(blurredRowsTurned(blurredRowsTurned(sharp_.back(), deviation), deviation));
    }
    const double top = pictureSize.height() - sliding_.front().height();
    const QPolygonF outline =
        QTransform::fromScale(1.0 / reduction, 1.0 / reduction).map(outlineInCutOut().translated(0, top));
    mask_.fill(Qt::black);
    QPainter painter(&mask_);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    painter.drawPolygon(outline);

    constexpr double distance = double{picturesApart} * SlidingPicture::step / reduction;
    const auto gray = [](Part part) {
        const int value = static_cast<int>(part);
        return QColor(value, value, value);
    };
    parts_.fill(gray(Part::background));
    QPainter partPainter(&parts_);
    partPainter.setPen(QPen(gray(Part::nearOutline), 2 * distance, Qt::SolidLine, Qt::FlatCap, Qt::RoundJoin));
    partPainter.setBrush(gray(Part::person));
    partPainter.drawPolygon(outline);
    for (int place = 0; place < sliding_.places(); ++place)
        personPixels_.push_back(pixelsOf(Part::person, place));
}

std::vector<QPoint> MovingPerson::pixelsOf(Part part, int place) const
{
    std::vector<QPoint> pixels;
    const int slid = place * SlidingPicture::step / reduction;
    for (int y = 0; y < parts_.height(); ++y) {
        for (int x = 0; x < parts_.width(); ++x) {
            const Part there = x < slid ? Part::background : static_cast<Part>(parts_.constScanLine(y)[x - slid]);
            if (there == part)
                pixels.emplace_back(x, y);
        }
    }
    return pixels;
}

QImage MovingPerson::backgroundAt(Background background, int place) const
{
    if (background == Background::blurred)
        return blurred_[static_cast<std::size_t>(place)];
    QImage wall(parts_.size(), QImage::Format_RGB32);
    wall.fill(wall_);
    return wall;
}

QImage MovingPerson::webcam(Background background, int place, int placeOfMask) const
{
    QImage person = sharp_[static_cast<std::size_t>(place)].convertToFormat(QImage::Format_ARGB32);
    QImage mask(mask_.size(), QImage::Format_Grayscale8);
    mask.fill(Qt::black);
    QPainter(&mask).drawImage(placeOfMask * SlidingPicture::step / reduction, 0, mask_);
    person.setAlphaChannel(mask);
    QImage shown = backgroundAt(background, place);
    QPainter(&shown).drawImage(0, 0, person);
    return shown;
}

MovingPerson::Seen MovingPerson::look(const QImage& webcam, Background background, const Tolerances& tolerances) const
{
    Seen seen;
    seen.wrongOfPerson = 2;
    for (int place = 0; place < sliding_.places(); ++place) {
        const auto index = static_cast<std::size_t>(place);
        const double wrong = wrongPart(personPixels_[index], webcam, sharp_[index], tolerances.perChannel);
        if (wrong < seen.wrongOfPerson)
            seen = {place, wrong, 0};
    }
    seen.wrongOfBackground = wrongPart(pixelsOf(Part::background, seen.place), webcam,
                                       backgroundAt(background, seen.place), tolerances.perChannel);
    return seen;
}

double MovingPerson::wrongPart(const std::vector<QPoint>& pixels, const QImage& webcam, const QImage& expected,
                               int tolerance)
{
    const auto wrong = std::ranges::count_if(
        pixels, [&](QPoint pixel) { return !areNear(webcam.pixel(pixel), expected.pixel(pixel), tolerance); });
    return static_cast<double>(wrong) / static_cast<double>(pixels.size());
}

} // namespace nimbrale::test
