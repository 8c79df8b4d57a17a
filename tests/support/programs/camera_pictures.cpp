#include "tests/support/programs/camera_pictures.h"

#include <QPainter>

#include <algorithm>
#include <array>
#include <utility>

namespace nimbrale::test {

namespace {

QImage stripes(QSize size, std::uint64_t number)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    constexpr std::array<Qt::GlobalColor, 6> colors{Qt::white, Qt::yellow, Qt::cyan, Qt::green, Qt::magenta, Qt::blue};
    const int width = std::max(2, image.width() / static_cast<int>(colors.size()));
    const int shift = static_cast<int>(number * 8 % static_cast<std::uint64_t>(image.width()));
    for (int x = 0; x < image.width(); x += width)
        painter.fillRect((x + shift) % image.width(), 0, width, image.height(),
                         colors.at(static_cast<std::size_t>(x / width) % colors.size()));
    return image;
}

} // namespace

void CameraPictures::show(const QImage& picture)
{
    still_ = picture;
    sliding_.reset();
    subject_.reset();
}

void CameraPictures::show(const QColor& color)
{
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(color);
    show(picture);
}

void CameraPictures::show(SlidingPicture sliding)
{
    still_ = {};
    sliding_ = std::move(sliding);
    subject_.reset();
}

QImage CameraPictures::picture(const CameraFormat& format, std::uint64_t number) const
{
    const QSize size(format.width, format.height);
    if (!still_.isNull())
        return still_.scaled(size).convertToFormat(QImage::Format_RGB32);
    return sliding_ ? sliding_->withFrontAt(sliding_->placeIn(number)).scaled(size) : stripes(size, number);
}

const EncodedPicture& CameraPictures::encoded(const CameraFormat& format, std::uint64_t number, int gap)
{
    const Subject subject{format, still_.isNull() ? number : 0, gap};
    if (subject_ != subject) {
        subject_ = subject;
        encoded_ = encode(picture(format, subject.number), format.encoding, gap);
    }
    return encoded_;
}

} // namespace nimbrale::test
