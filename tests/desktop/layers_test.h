#pragma once

#include "platform/buffer_surface.h"
#include "platform/surface_changes.h"
#include "tests/desktop/panel_host.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

inline QImage noise(QSize size, int seed)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            image.setPixelColor(x, y, QColor((x * 37 + seed) % 256, (y * 53 + seed) % 256, (x * y + seed) % 256));
    }
    return image;
}

inline QImage filled(QSize size, const QColor& color)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    return image;
}

/// What a root of 16 bits keeps of a picture.
inline QImage in16Bits(const QImage& image)
{
    QImage kept = image;
    for (int y = 0; y < kept.height(); ++y) {
        for (int x = 0; x < kept.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            const auto widened = [](int value, int bits) {
                const int high = value >> (8 - bits);
                return high << (8 - bits) | high >> (2 * bits - 8);
            };
            kept.setPixel(x, y, qRgb(widened(qRed(pixel), 5), widened(qGreen(pixel), 6), widened(qBlue(pixel), 5)));
        }
    }
    return kept;
}

/// A picture that the process made: premultiplied where the image has alpha.
inline std::shared_ptr<const BufferSurface> bufferSurfaceOf(const QImage& image)
{
    const bool isOpaque = image.format() == QImage::Format_RGB32;
    auto pixels = std::make_shared<PixelBuffer>(image.width(), image.height());
    const QImage source = isOpaque ? image : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(pixels->row(y), source.constScanLine(y), pixels->stride());
    return std::make_shared<BufferSurface>(std::move(pixels),
                                           isOpaque ? SurfaceAlpha::opaque : SurfaceAlpha::premultiplied);
}

/// A server of its own for a test with parameters.
struct ServerCase {
    const char* name = "";
    int depth = 24;
    std::vector<std::string> arguments = {};

    [[nodiscard]] PrivateDesktop::Options options() const
    {
        return {.server = PrivateDesktop::Server::xvfb, .depth = depth, .serverArguments = arguments};
    }
};

inline std::string serverName(const testing::TestParamInfo<ServerCase>& parameter)
{
    return parameter.param.name;
}

/// Layer trees in panels on a private desktop.
class LayersTest : public PanelTest {
protected:
    /// A captured picture, the first of its producer.
    [[nodiscard]] std::shared_ptr<x11::X11Surface> surfaceOf(std::shared_ptr<x11::SharedPixmap> pixmap)
    {
        SurfaceChanges changes;
        changes.advance({});
        return std::make_shared<x11::X11Surface>(std::move(pixmap), changes);
    }
    [[nodiscard]] std::shared_ptr<x11::X11Surface> surfaceOf(const QImage& image)
    {
        return surfaceOf(host->makePixmap(image));
    }

    /// A full-screen panel of 64 × 48 points at the screen's top-left.
    [[nodiscard]] std::unique_ptr<Panel> showOpaque()
    {
        auto panel = host->makePanel({0, 0, 64, 48}, PanelStyle::fullScreen);
        panel->orderFront();
        return panel;
    }

    [[nodiscard]] static std::shared_ptr<Layer> addLayer(Layer& parent, const Rect& frame)
    {
        auto layer = std::make_shared<Layer>();
        layer->setFrame(frame);
        parent.addSublayer(layer);
        return layer;
    }

    /// The pixels of a rectangle in points.
    [[nodiscard]] static QRect pixelsOf(const Rect& points, double scale)
    {
        const auto nearest = [scale](double value) { return static_cast<int>(std::lround(value * scale)); };
        return {QPoint(nearest(points.minX()), nearest(points.minY())),
                QPoint(nearest(points.maxX()) - 1, nearest(points.maxY()) - 1)};
    }
};

} // namespace nimbrale::test
