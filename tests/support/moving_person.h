#pragma once

#include "tests/support/sliding_picture.h"

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QSize>

#include <cstdint>
#include <ostream>
#include <vector>

namespace nimbrale::test {

/// What a camera shows of a person, cut out of a photograph, who slides from side to side in front of another one; and
/// what a webcam of a quarter of that size may show of it at any moment. Near the person's outline, where a mask is
/// soft and may be a little off, nothing is looked at.
class MovingPerson {
public:
    /// Of the camera's pictures.
    static constexpr QSize pictureSize{1280, 720};
    /// Of the webcam: each of its pixels is made of so many of the camera's, each way.
    static constexpr int reduction = 4;
    static constexpr QSize webcamSize{pictureSize.width() / reduction, pictureSize.height() / reduction};
    /// By so many pictures a person and their mask may be apart without being told from a mask that is a bit too large
    /// or too small.
    static constexpr int picturesApart = 2;

    enum class Background { blurred, removed };
    struct Tolerances {
        /// How much each of red, green and blue of a pixel may differ.
        int perChannel = 0;
        /// Which parts of the pixels may differ by more.
        double ofPerson = 0;
        double ofBackground = 0;
    };
    struct Seen {
        /// Where the person is: the place of `SlidingPicture` that fits best.
        int place = 0;
        /// Which parts of the pixels of the person and of the background are not what they should be there.
        double wrongOfPerson = 0;
        double wrongOfBackground = 0;

        friend std::ostream& operator<<(std::ostream& stream, const Seen& seen)
        {
            return stream << "place " << seen.place << ", wrong: " << 100 * seen.wrongOfPerson << " % of the person, "
                          << 100 * seen.wrongOfBackground << " % of the background";
        }
    };

    /// Both of the pictures' size; `photograph` is "messi5.jpg". `wall` is what a removed background lets see.
    MovingPerson(const QImage& photograph, const QImage& behind, const QColor& wall);

    [[nodiscard]] const SlidingPicture& sliding() const { return sliding_; }
    /// What a webcam shows of the person at `place`, with the mask of a person at `placeOfMask` that has no error.
    [[nodiscard]] QImage webcam(Background background, int place, int placeOfMask) const;
    /// Looks at a picture of the webcam.
    [[nodiscard]] Seen look(const QImage& webcam, Background background, const Tolerances& tolerances) const;
    [[nodiscard]] static bool isRight(const Seen& seen, const Tolerances& tolerances)
    {
        return seen.wrongOfPerson <= tolerances.ofPerson && seen.wrongOfBackground <= tolerances.ofBackground;
    }

private:
    enum class Part : std::uint8_t { background, nearOutline, person };

    [[nodiscard]] QImage backgroundAt(Background background, int place) const;
    [[nodiscard]] std::vector<QPoint> pixelsOf(Part part, int place) const;
    /// Which part of the pixels of `webcam` are not those of `expected`.
    [[nodiscard]] static double wrongPart(const std::vector<QPoint>& pixels, const QImage& webcam,
                                          const QImage& expected, int tolerance);

    SlidingPicture sliding_;
    QColor wall_;
    /// By the person's place, in the webcam's size: what the camera shows, all of that blurred, and where the person
    /// is.
    std::vector<QImage> sharp_;
    std::vector<QImage> blurred_;
    std::vector<std::vector<QPoint>> personPixels_;
    /// For the first place: the `Part` of each pixel, and how much of it is the person's.
    QImage parts_;
    QImage mask_;
};

} // namespace nimbrale::test
