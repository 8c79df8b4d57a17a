#pragma once

#include "platform/person_segmentation.h"
#include "platform/pixel_buffer.h"
#include "settings/app_settings.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace nimbrale::test {

/// What the webcam's effects are measured by: the same computed plainly, in full size and in double precision.
class ExactEffects {
public:
    using Background = AppSettings::WebcamBackground;
    /// One channel of a picture.
    using Plane = std::vector<double>;

    explicit ExactEffects(const PixelBuffer& picture)
        : width_(picture.width()), height_(picture.height()), planes_(3, Plane(count()))
    {
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                for (int channel = 0; channel < 3; ++channel)
                    planes_[channel][at(x, y)] = std::to_integer<int>(picture.row(y)[x * 4 + channel]);
            }
        }
    }

    /// The largest difference of any byte from what it should be, in steps of 1/255.
    [[nodiscard]] double farthest(const PixelBuffer& actual, const PersonMask& mask, Background background,
                                  double sigmaPerWidth = 0.012) const
    {
        const Plane person = softMask(mask);
        double farthest = 0;
        for (int channel = 0; channel < 4; ++channel) {
            const bool isAlpha = channel == 3;
            const Plane front = isAlpha ? Plane(count(), 255) : planes_[channel];
            Plane behind(count(), 0);
            if (background == Background::blurred)
                behind = isAlpha ? front : blurred(front, width_ * sigmaPerWidth);
            for (std::size_t i = 0; i < count(); ++i) {
                const double exact = front[i] * person[i] + behind[i] * (1 - person[i]);
                const int byte = std::to_integer<int>(actual.row(0)[i * 4 + channel]);
                farthest = std::max(farthest, std::fabs(byte - exact));
            }
        }
        return farthest;
    }

    /// The mask in the picture's size with its soft outline, from 0 to 1.
    [[nodiscard]] Plane softMask(const PersonMask& mask) const
    {
        Plane scaled(count());
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x)
                scaled[at(x, y)] =
                    sample(mask, (x + 0.5) * mask.width / width_ - 0.5, (y + 0.5) * mask.height / height_ - 0.5);
        }
        return blurred(scaled, 1.5);
    }

private:
    [[nodiscard]] std::size_t count() const { return static_cast<std::size_t>(width_) * height_; }
    [[nodiscard]] std::size_t at(int x, int y) const { return static_cast<std::size_t>(y) * width_ + x; }

    /// Between the middles of the mask's samples, linearly.
    [[nodiscard]] static double sample(const PersonMask& mask, double x, double y)
    {
        const double left = std::floor(x);
        const double top = std::floor(y);
        const auto value = [&](double column, double row) {
            const int safeColumn = std::clamp(static_cast<int>(column), 0, mask.width - 1);
            const int safeRow = std::clamp(static_cast<int>(row), 0, mask.height - 1);
            return mask.values[static_cast<std::size_t>(safeRow) * mask.width + safeColumn] / 255.0;
        };
        const double upper = value(left, top) * (1 - (x - left)) + value(left + 1, top) * (x - left);
        const double lower = value(left, top + 1) * (1 - (x - left)) + value(left + 1, top + 1) * (x - left);
        return upper * (1 - (y - top)) + lower * (y - top);
    }

    /// By a Gaussian, the edges going on beyond the picture.
    [[nodiscard]] Plane blurred(const Plane& plane, double sigma) const
    {
        const int reach = static_cast<int>(std::ceil(sigma * 5));
        std::vector<double> weights;
        double sum = 0;
        for (int distance = -reach; distance <= reach; ++distance) {
            weights.push_back(std::exp(-0.5 * distance * distance / (sigma * sigma)));
            sum += weights.back();
        }
        Plane columns(count());
        Plane line(static_cast<std::size_t>(width_ + 2 * reach));
        Plane result(count());
        for (int y = 0; y < height_; ++y) {
            for (int distance = -reach; distance <= reach; ++distance) {
                const double* const other = &plane[at(0, std::clamp(y + distance, 0, height_ - 1))];
                const double weight = weights[distance + reach] / sum;
                for (int x = 0; x < width_; ++x)
                    columns[at(x, y)] += other[x] * weight;
            }
            for (int i = 0; i < static_cast<int>(line.size()); ++i)
                line[i] = columns[at(std::clamp(i - reach, 0, width_ - 1), y)];
            for (int distance = 0; distance <= 2 * reach; ++distance) {
                for (int x = 0; x < width_; ++x)
                    result[at(x, y)] += line[x + distance] * weights[distance] / sum;
            }
        }
        return result;
    }

    int width_;
    int height_;
    std::vector<Plane> planes_;
};

} // namespace nimbrale::test
