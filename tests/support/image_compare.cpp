#include "tests/support/image_compare.h"

#include "tests/support/process.h"

#include <QDir>

#include <algorithm>
#include <cstdlib>

namespace nimbrale::test {

namespace {

int channelDifference(QRgb a, QRgb b, bool withAlpha)
{
    const int color =
        std::max({std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
    return withAlpha ? std::max(color, std::abs(qAlpha(a) - qAlpha(b))) : color;
}

/// Whether a pixel has neighbours of another color within the distance.
bool isNearEdge(const QImage& image, int x, int y, int distance)
{
    const QRgb color = image.pixel(x, y);
    for (int row = std::max(0, y - distance); row <= std::min(image.height() - 1, y + distance); ++row) {
        for (int column = std::max(0, x - distance); column <= std::min(image.width() - 1, x + distance); ++column) {
            if (image.pixel(column, row) != color)
                return true;
        }
    }
    return false;
}

std::string currentTestName()
{
    const testing::TestInfo* info = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : std::string("outside-a-test");
    std::replace(name.begin(), name.end(), '/', '-');
    return name;
}

std::string describe(QRgb color)
{
    return QString::asprintf("#%08x", color).toStdString();
}

struct Comparison {
    int differing = 0;
    int largest = 0;
    QPoint first;
    QRect around;
    /// White to red where pixels differ, by how much.
    QImage map;
};

Comparison compare(const QImage& actual, const QImage& expected, ImageTolerance tolerance)
{
    const bool withAlpha = actual.hasAlphaChannel() && expected.hasAlphaChannel();
    const QImage left = actual.convertToFormat(QImage::Format_ARGB32);
    const QImage right = expected.convertToFormat(QImage::Format_ARGB32);
    Comparison found;
    found.map = QImage(actual.size(), QImage::Format_RGB32);
    found.map.fill(Qt::black);
    for (int y = 0; y < left.height(); ++y) {
        for (int x = 0; x < left.width(); ++x) {
            const int difference = channelDifference(left.pixel(x, y), right.pixel(x, y), withAlpha);
            if (difference <= tolerance.perChannel || isNearEdge(right, x, y, tolerance.edgeDistance))
                continue;
            found.largest = std::max(found.largest, difference);
            if (found.differing++ == 0)
                found.first = {x, y};
            found.around |= QRect(x, y, 1, 1);
            found.map.setPixel(x, y, qRgb(255, 255 - difference, 255 - difference));
        }
    }
    return found;
}

} // namespace

std::filesystem::path testOutputFolder()
{
    std::filesystem::path folder = buildFolder() / "test-output";
    std::filesystem::create_directories(folder);
    return folder;
}

std::filesystem::path keepImage(const QImage& image, const std::string& name)
{
    const std::filesystem::path path = testOutputFolder() / (currentTestName() + "." + name + ".png");
    image.save(QString::fromStdString(path.string()));
    return path;
}

bool imagesAreAlike(const QImage& actual, const QImage& expected, ImageTolerance tolerance)
{
    return !actual.isNull() && actual.size() == expected.size() &&
           compare(actual, expected, tolerance).differing <= tolerance.differingPixels;
}

testing::AssertionResult imagesMatch(const QImage& actual, const QImage& expected, ImageTolerance tolerance)
{
    if (actual.isNull() || actual.size() != expected.size()) {
        return testing::AssertionFailure()
               << "the picture is " << actual.width() << "x" << actual.height() << " instead of " << expected.width()
               << "x" << expected.height() << "; kept as " << keepImage(actual, "actual") << " and "
               << keepImage(expected, "expected");
    }
    const Comparison found = compare(actual, expected, tolerance);
    if (found.differing <= tolerance.differingPixels)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << found.differing << " pixels differ by up to " << found.largest
                                       << ", all within x " << found.around.left() << "…" << found.around.right()
                                       << ", y " << found.around.top() << "…" << found.around.bottom()
                                       << "; the first is at (" << found.first.x() << ", " << found.first.y()
                                       << "): " << describe(actual.pixel(found.first)) << " instead of "
                                       << describe(expected.pixel(found.first)) << "; kept as "
                                       << keepImage(actual, "actual") << ", " << keepImage(expected, "expected") << ", "
                                       << keepImage(found.map, "difference");
}

} // namespace nimbrale::test
