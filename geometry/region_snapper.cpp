#include "geometry/region_snapper.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace nimbrale {

namespace {

struct Fraction {
    double value;
    const char* name;
};

/// In the order of preference.
constexpr std::array fractions{Fraction{0.25, "¼"},    Fraction{1.0 / 3, "⅓"}, Fraction{0.5, "½"},
                               Fraction{2.0 / 3, "⅔"}, Fraction{0.75, "¾"},    Fraction{1.0, "full"}};

constexpr double snapDistance = 10;
constexpr double labelTolerance = 1;

using Lines = std::array<double, fractions.size() + 1>;

/// The area's near edge, its fractions and its far edge, along one axis.
Lines linesOf(double minimum, double length)
{
    Lines lines{minimum};
    for (std::size_t index = 0; index < fractions.size(); ++index)
        lines[index + 1] = minimum + fractions[index].value * length;
    return lines;
}

struct MoveSnap {
    double offset;
    double line;
};

/// How far to move so that one of the probes lands on a line. The first of the nearest wins.
std::optional<MoveSnap> moveSnap(const std::array<double, 3>& probes, const Lines& lines)
{
    std::optional<MoveSnap> best;
    for (const double probe : probes) {
        for (const double exactLine : lines) {
            const double line = roundHalfAwayFromZero(exactLine);
            const double offset = line - probe;
            if (std::abs(offset) <= snapDistance && (!best || std::abs(offset) < std::abs(best->offset)))
                best = MoveSnap{offset, line};
        }
    }
    return best;
}

/// Where to put the far edge of a region that starts at `near`. Besides the area's lines, fractions of the area's
/// length measured from the region's own near edge count. The first of the nearest wins, and only it is rounded.
std::optional<double> resizeSnap(double near, double far, double areaMinimum, double areaLength, double minimumLength)
{
    std::optional<double> best;
    const auto consider = [&](double candidate) {
        const double distance = std::abs(candidate - far);
        if (candidate - near < minimumLength || distance > snapDistance)
            return;
        if (!best || distance < std::abs(*best - far))
            best = candidate;
    };
    for (const double line : linesOf(areaMinimum, areaLength))
        consider(line);
    for (const Fraction& fraction : fractions)
        consider(near + fraction.value * areaLength);
    if (!best)
        return std::nullopt;
    return roundHalfAwayFromZero(*best);
}

RegionSnapper::Snapped snapMove(const Rect& area, const Rect& region)
{
    RegionSnapper::Snapped snapped{region, {}};
    const Lines columns = linesOf(area.minX(), area.width);
    if (const auto snap = moveSnap({region.minX(), region.midX(), region.maxX()}, columns)) {
        snapped.region.x += snap->offset;
        snapped.guides.push_back(Guide::vertical(snap->line));
    }
    const Lines rows = linesOf(area.minY(), area.height);
    if (const auto snap = moveSnap({region.minY(), region.midY(), region.maxY()}, rows)) {
        snapped.region.y += snap->offset;
        snapped.guides.push_back(Guide::horizontal(snap->line));
    }
    return snapped;
}

RegionSnapper::Snapped snapResize(const RegionSnapper& snapper, const Rect& region)
{
    const Rect& area = snapper.area;
    RegionSnapper::Snapped snapped{region, {}};
    const auto right = resizeSnap(region.minX(), region.maxX(), area.minX(), area.width, snapper.minimumSize.width);
    if (right) {
        snapped.region.width = *right - region.minX();
        snapped.guides.push_back(Guide::vertical(*right));
    }
    const auto bottom = resizeSnap(region.minY(), region.maxY(), area.minY(), area.height, snapper.minimumSize.height);
    if (bottom) {
        snapped.region.height = *bottom - region.minY();
        snapped.guides.push_back(Guide::horizontal(*bottom));
    }
    snapped.region = snapped.region.integral();
    return snapped;
}

/// The name of the fraction of `whole` that `part` is, or null.
const char* fractionName(double whole, double part)
{
    for (const Fraction& fraction : fractions) {
        if (std::abs(fraction.value * whole - part) < labelTolerance)
            return fraction.name;
    }
    return nullptr;
}

} // namespace

RegionSnapper::Snapped RegionSnapper::snap(const Rect& region, DragZone zone) const
{
    return zone == DragZone::move ? snapMove(area, region) : snapResize(*this, region);
}

std::string RegionSnapper::label(const Rect& region) const
{
    const std::string times = " × ";
    const std::string dot = " · ";
    const std::string base =
        std::to_string(truncatedToInteger(region.width)) + times + std::to_string(truncatedToInteger(region.height));
    const char* const widthName = fractionName(area.width, region.width);
    const char* const heightName = fractionName(area.height, region.height);
    if (widthName && heightName)
        return base + dot + widthName + times + heightName;
    if (widthName)
        return base + dot + widthName + " width";
    if (heightName)
        return base + dot + heightName + " height";
    return base;
}

} // namespace nimbrale
