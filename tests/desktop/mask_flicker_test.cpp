// How much the mask of a person flickers who moves before the camera, where nothing of them moves; found by the model
// that is delivered, with and without what steadies it.

#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "tests/support/moving_person.h"
#include "tests/support/photographs.h"
#include "tests/support/process.h"
#include "webcam/steady_mask.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace nimbrale::test {
namespace {

/// Of a camera in a room's light, for each of red, green and blue.
constexpr double noiseOfCamera = 4;
constexpr int pictures = 60;
constexpr int placeAtRest = 20;

/// The mean change of a pixel of the mask from one picture to the next, of 255.
struct Flicker {
    double asFound = 0;
    double steadied = 0;
};

class MaskFlickerTest : public testing::Test {
protected:
    void SetUp() override
    {
        person_.emplace(requirePhotograph("messi5.jpg", MovingPerson::pictureSize),
                        requirePhotograph("building.jpg", MovingPerson::pictureSize), Qt::black);
        auto created = opencv::createPersonSegmentation(opencv::modelFile(buildFolder()));
        ASSERT_TRUE(created) << created.error().message;
        segmentation_ = std::move(*created);
        std::normal_distribution<double> noise(0, noiseOfCamera);
        std::generate(noise_.begin(), noise_.end(), [&] { return static_cast<int>(std::lround(noise(random_))); });
    }

    [[nodiscard]] PixelBuffer cameraPicture(int place, bool isNoisy)
    {
        const QImage image = person_->sliding().withFrontAt(place);
        PixelBuffer picture(image.width(), image.height());
        for (int y = 0; y < image.height(); ++y) {
            const uchar* const from = image.constScanLine(y);
            // Any stretch of noise stands for the noise of a row.
            const int* const noise = noise_.data() + random_() % (noise_.size() - picture.stride());
            for (std::size_t i = 0; i < picture.stride(); ++i)
                picture.row(y)[i] = static_cast<std::byte>(std::clamp(from[i] + (isNoisy ? noise[i] : 0), 0, 255));
        }
        return picture;
    }
    /// How much of each of the mask's pixels is the person's, from 0 to 255.
    [[nodiscard]] QImage truth(int place, QSize size) const
    {
        const SlidingPicture& sliding = person_->sliding();
        QImage whole(MovingPerson::pictureSize, QImage::Format_ARGB32_Premultiplied);
        whole.fill(Qt::transparent);
        QPainter(&whole).drawImage(place * SlidingPicture::step, whole.height() - sliding.front().height(),
                                   sliding.front());
        return whole.convertToFormat(QImage::Format_Alpha8)
            .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    /// Of the pixels around which all is the person's, or nothing, in both pictures.
    [[nodiscard]] static std::vector<std::size_t> restingPixels(const QImage& before, const QImage& after)
    {
        constexpr int margin = 4;
        std::vector<std::size_t> resting;
        for (int y = margin; y < before.height() - margin; ++y) {
            for (int x = margin; x < before.width() - margin; ++x) {
                const int value = before.constScanLine(y)[x];
                bool isResting = value == 0 || value == 255;
                for (int row = y - margin; isResting && row <= y + margin; ++row) {
                    for (int column = x - margin; isResting && column <= x + margin; ++column)
                        isResting =
                            before.constScanLine(row)[column] == value && after.constScanLine(row)[column] == value;
                }
                if (isResting)
                    resting.push_back(static_cast<std::size_t>(y) * before.width() + x);
            }
        }
        return resting;
    }

    [[nodiscard]] static std::vector<std::size_t> allPixels(const QImage& mask)
    {
        std::vector<std::size_t> all(static_cast<std::size_t>(mask.width()) * mask.height());
        std::iota(all.begin(), all.end(), std::size_t{0});
        return all;
    }
    /// What changes from one picture to the next where nothing of the person moves: everywhere, if they rest.
    [[nodiscard]] Flicker measure(bool isMoving, bool isNoisy)
    {
        SteadyMask::TimePoint time;
        SteadyMask steady([&time] { return time; });
        std::vector<float> foundBefore;
        std::vector<float> steadyBefore;
        QImage truthBefore;
        Flicker sum;
        double count = 0;
        for (int number = 0; number < pictures; ++number) {
            const int place = isMoving ? person_->sliding().placeIn(static_cast<std::uint64_t>(number)) : placeAtRest;
            const auto mask = segmentation_->findPerson(cameraPicture(place, isNoisy));
            if (!mask) {
                ADD_FAILURE() << mask.error().message;
                return {};
            }
            time += std::chrono::milliseconds{33};
            const auto steadied = steady.add(*mask);
            std::vector<float> found;
            for (const std::uint8_t value : mask->values)
                found.push_back(static_cast<float>(value) / 255.0F);
            const QImage now = truth(place, {mask->width, mask->height});
            constexpr int settled = 5;
            if (number > settled) {
                for (const std::size_t pixel : isMoving ? restingPixels(truthBefore, now) : allPixels(now)) {
                    sum.asFound += 255 * std::fabs(found[pixel] - foundBefore[pixel]);
                    sum.steadied += 255 * std::fabs(steadied[pixel] - steadyBefore[pixel]);
                    ++count;
                }
            }
            foundBefore = found;
            steadyBefore.assign(steadied.begin(), steadied.end());
            truthBefore = now;
        }
        EXPECT_GT(count, pictures * 10'000) << "pixels at rest";
        return {sum.asFound / count, sum.steadied / count};
    }
    void expectSteadied(const char* name, const Flicker& flicker, double mostLeft)
    {
        std::cout << "[ FIGURE   ] " << name << ": " << flicker.asFound << "/255 a picture as it is found, "
                  << flicker.steadied << "/255 steadied\n";
        EXPECT_GT(flicker.asFound, 0) << name;
        EXPECT_LT(flicker.steadied, mostLeft * flicker.asFound) << name;
    }

private:
    std::optional<MovingPerson> person_;
    std::unique_ptr<PersonSegmentation> segmentation_;
    std::vector<int> noise_ = std::vector<int>(1 << 20);
    std::mt19937 random_{1}; // NOLINT(bugprone-random-generator-seed): the same noise each time.
};

TEST_F(MaskFlickerTest, OfAPersonAtRestLessThanHalfOfItIsLeft)
{
    expectSteadied("at rest, with a camera's noise", measure(false, true), 0.5);
}

/// What changes there is mostly the model's whole mistakes, which come and go at once like the person themselves.
TEST_F(MaskFlickerTest, BesideAPersonWhoMovesItIsNotMore)
{
    expectSteadied("beside motion, without noise", measure(true, false), 1);
    expectSteadied("beside motion, with a camera's noise", measure(true, true), 1);
}

} // namespace
} // namespace nimbrale::test
