#include "tests/support/sliding_picture.h"

#include <QPainter>

#include <utility>

namespace nimbrale::test {

SlidingPicture::SlidingPicture(QImage behind, QImage front)
    : behind_(std::move(behind).convertToFormat(QImage::Format_RGB32)),
      front_(std::move(front).convertToFormat(QImage::Format_ARGB32_Premultiplied))
{}

int SlidingPicture::placeIn(std::uint64_t number) const
{
    const int last = places() - 1;
    if (last == 0)
        return 0;
    const int along = static_cast<int>(number % static_cast<std::uint64_t>(2 * last));
    return along <= last ? along : 2 * last - along;
}

QImage SlidingPicture::withFrontAt(int place) const
{
    QImage picture = behind_;
    QPainter(&picture).drawImage(place * step, behind_.height() - front_.height(), front_);
    return picture;
}

} // namespace nimbrale::test
