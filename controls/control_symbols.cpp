#include "controls/control_symbols.h"

#include <QCoreApplication>
#include <QPainterPathStroker>
#include <QPolygonF>
#include <QTransform>
#include <initializer_list>

namespace nimbrale {

namespace {

// All outlines are built for a point size of 100 and scaled at the end: curves are cut into pieces by their size at
// the time when paths are stroked and combined.
constexpr double builtPointSize = 100;

QPainterPath strokedLines(std::initializer_list<QPolygonF> lines, double width)
{
    QPainterPath centerLines;
    for (const QPolygonF& line : lines)
        centerLines.addPolygon(line);
    QPainterPathStroker stroker;
    stroker.setWidth(width);
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setJoinStyle(Qt::RoundJoin);
    QPainterPath outline = stroker.createStroke(centerLines);
    outline.setFillRule(Qt::WindingFill);
    return outline.simplified();
}

QPainterPath circle(double radius)
{
    QPainterPath path;
    path.addEllipse(QPointF(0, 0), radius, radius);
    return path;
}

QPainterPath cross()
{
    constexpr double reach = 36;
    return strokedLines({{{-reach, -reach}, {reach, reach}}, {{reach, -reach}, {-reach, reach}}}, 20);
}

/// One solid head and half a shaft, pointing up; the other three are turned copies.
QPainterPath fourArrows()
{
    constexpr double reach = 64;
    constexpr double headLength = 28;
    constexpr double headHalfWidth = 27;
    constexpr double shaftHalfWidth = 9;
    QPainterPath head;
    head.addPolygon(
        QPolygonF{{0, -reach}, {headHalfWidth, -reach + headLength}, {-headHalfWidth, -reach + headLength}});
    head.closeSubpath();
    QPainterPath shaft;
    shaft.addRect(-shaftHalfWidth, -reach + headLength / 2, 2 * shaftHalfWidth, 2 * reach - headLength);
    QPainterPath path = shaft.united(QTransform().rotate(90).map(shaft));
    for (const double angle : {0.0, 90.0, 180.0, 270.0})
        path = path.united(QTransform().rotate(angle).map(head));
    return path;
}

/// Two arrows that point away from each other, to the top-left and to the bottom-right.
QPainterPath diagonalArrows()
{
    constexpr double reach = 48;
    constexpr double headLength = 40;
    constexpr double gap = 10;
    const QPainterPath arrow =
        strokedLines({{{-reach, -reach}, {-gap, -gap}},
                      {{-reach, -reach + headLength}, {-reach, -reach}, {-reach + headLength, -reach}}},
                     17);
    return arrow.united(QTransform().rotate(180).map(arrow));
}

QPainterPath gear()
{
    constexpr int teeth = 8;
    constexpr double bodyRadius = 46;
    constexpr double toothReach = 62;
    constexpr double toothHalfWidthOutside = 9.5;
    constexpr double toothHalfWidthInside = 15;
    constexpr double holeRadius = 19;
    QPainterPath tooth;
    tooth.addPolygon(QPolygonF{{-toothHalfWidthInside, -bodyRadius * 0.9},
                               {-toothHalfWidthOutside, -toothReach},
                               {toothHalfWidthOutside, -toothReach},
                               {toothHalfWidthInside, -bodyRadius * 0.9}});
    tooth.closeSubpath();
    QPainterPath path = circle(bodyRadius);
    for (int index = 0; index < teeth; ++index)
        path = path.united(QTransform().rotate(360.0 / teeth * index).map(tooth));
    return path.subtracted(circle(holeRadius));
}

QPainterPath roundedSquare()
{
    constexpr double halfSide = 50;
    constexpr double cornerRadius = 13;
    QPainterPath path;
    path.addRoundedRect(-halfSide, -halfSide, 2 * halfSide, 2 * halfSide, cornerRadius, cornerRadius);
    return path;
}

QPainterPath builtPath(ControlSymbol symbol)
{
    switch (symbol) {
    case ControlSymbol::move:
        return fourArrows();
    case ControlSymbol::close:
        return cross();
    case ControlSymbol::settings:
        return gear();
    case ControlSymbol::resize:
        return diagonalArrows();
    case ControlSymbol::record:
        return circle(55);
    case ControlSymbol::stopRecording:
        return roundedSquare();
    }
    return {};
}

} // namespace

QPainterPath controlSymbolPath(ControlSymbol symbol, double pointSize)
{
    const double factor = pointSize / builtPointSize;
    return QTransform::fromScale(factor, factor).map(builtPath(symbol));
}

double controlSymbolSize(ControlSymbol symbol)
{
    switch (symbol) {
    case ControlSymbol::move:
    case ControlSymbol::settings:
        return 11;
    case ControlSymbol::close:
    case ControlSymbol::resize:
    case ControlSymbol::record:
        return 10;
    case ControlSymbol::stopRecording:
        break;
    }
    return 8;
}

std::string controlDescription(ControlSymbol symbol)
{
    const auto translated = [](const char* text) {
        return QCoreApplication::translate("Controls", text).toStdString();
    };
    switch (symbol) {
    case ControlSymbol::move:
        return translated(QT_TRANSLATE_NOOP("Controls", "Move"));
    case ControlSymbol::close:
        return translated(QT_TRANSLATE_NOOP("Controls", "Close"));
    case ControlSymbol::settings:
        return translated(QT_TRANSLATE_NOOP("Controls", "Settings"));
    case ControlSymbol::resize:
        return translated(QT_TRANSLATE_NOOP("Controls", "Resize"));
    case ControlSymbol::record:
        return translated(QT_TRANSLATE_NOOP("Controls", "Record"));
    case ControlSymbol::stopRecording:
        break;
    }
    return translated(QT_TRANSLATE_NOOP("Controls", "Stop recording"));
}

} // namespace nimbrale
