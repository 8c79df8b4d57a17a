#include "tests/support/photographs.h"

#include "tests/support/requirements.h"

#include <cstring>
#include <filesystem>

namespace nimbrale::test {

QImage requirePhotograph(const std::string& name, QSize size)
{
    const std::filesystem::path folder = "/usr/share/doc/opencv-doc/examples/data";
    if (!std::filesystem::exists(folder))
        skipTest("the photographs of opencv-doc are not installed");
    const QImage image = QImage(QString::fromStdString((folder / name).string()))
                             .convertToFormat(QImage::Format_RGB32)
                             .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (image.isNull())
        failTest("cannot read the photograph " + name);
    return image;
}

PixelBuffer requirePhotograph(const std::string& name, int width, int height)
{
    const QImage image = requirePhotograph(name, QSize(width, height));
    PixelBuffer picture(width, height);
    for (int y = 0; y < height; ++y)
        std::memcpy(picture.row(y), image.constScanLine(y), picture.stride());
    return picture;
}

} // namespace nimbrale::test
