#pragma once

#include "tests/desktop/layers_test.h"
#include "tests/support/image_compare.h"

#include <xcb/res.h>

namespace nimbrale::test {

/// Two ways of blending may round differently, once for the mask and once for the blending.
constexpr ImageTolerance blending{2, 0};

/// An image cut to a rounded rectangle with smooth edges.
inline QImage rounded(const QImage& image, double radius)
{
    QImage cut(image.size(), QImage::Format_ARGB32_Premultiplied);
    cut.fill(Qt::transparent);
    QPainter painter(&cut);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QBrush(image));
    painter.drawRoundedRect(QRectF(image.rect()), radius, radius);
    return cut;
}

class X11LayerShapesTest : public LayersTest {
protected:
    /// What the panels' connection has in the server.
    [[nodiscard]] std::uint32_t countOf(const std::string& type)
    {
        xcb_connection_t* const raw = host->connection->get();
        const x11::Reply<xcb_res_query_client_resources_reply_t> reply(xcb_res_query_client_resources_reply(
            raw, xcb_res_query_client_resources(raw, xcb_get_setup(raw)->resource_id_base), nullptr));
        for (auto entry = xcb_res_query_client_resources_types_iterator(reply.get()); entry.rem;
             xcb_res_type_next(&entry)) {
            if (entry.data->resource_type == host->connection->atom(type))
                return entry.data->count;
        }
        return 0;
    }
};

} // namespace nimbrale::test
