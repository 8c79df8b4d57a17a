#pragma once

#include <QColor>
#include <QImage>

#include <algorithm>

namespace nimbrale::test {

/// Of a panel that no picture may show.
inline const QColor ownColor(255, 0, 255);

/// How many pixels are like that color, be it a little off or blended with something. Nothing else on the desktop may
/// be anything like it. Of pictures with 32 bits a pixel.
inline int ownPixels(const QImage& image)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        const auto* const line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        count += static_cast<int>(std::count_if(line, line + image.width(), [](QRgb pixel) {
            return std::min(qRed(pixel), qBlue(pixel)) - qGreen(pixel) > 100;
        }));
    }
    return count;
}

} // namespace nimbrale::test
