#pragma once

#include <QImage>

#include <cstdint>

namespace nimbrale::test {

/// A picture in front of which another one, which may have transparent places, slides from edge to edge and back, the
/// same way in every run: what a picture shows depends on its number alone.
class SlidingPicture {
public:
    /// How far it slides from one picture to the next, in pixels.
    static constexpr int step = 16;

    /// `front` is no wider and no higher than `behind`; it stands on its lower edge.
    SlidingPicture(QImage behind, QImage front);

    [[nodiscard]] const QImage& behind() const { return behind_; }
    [[nodiscard]] const QImage& front() const { return front_; }
    /// How many places there are for the front, from the left edge to the right one.
    [[nodiscard]] int places() const { return (behind_.width() - front_.width()) / step + 1; }
    /// Which of them the picture of that number has it in.
    [[nodiscard]] int placeIn(std::uint64_t number) const;
    [[nodiscard]] QImage withFrontAt(int place) const;

private:
    QImage behind_;
    QImage front_;
};

} // namespace nimbrale::test
