#include "benchmarks/desktop.h"
#include "benchmarks/rows.h"
#include "benchmarks/sharer.h"
#include "tests/support/scene.h"

#include <iostream>
#include <optional>

namespace nimbrale::benchmarks {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double greatestMilliseconds = 500;
constexpr std::chrono::milliseconds patience{15000};
constexpr std::chrono::milliseconds lookPause{1};
constexpr QRect region{300, 200, 1280, 720};
const QColor content(30, 120, 200);
const QColor frameYellow(255, 214, 10);
/// Inside the five points of the border above the region, left of the handle.
constexpr QPoint onTheBorder{region.x() + 200, region.y() - 3};
/// Through a conversion of its colors a picture is still the same picture.
constexpr int colorTolerance = 8;

bool isLike(const QColor& color, const QColor& wanted)
{
    const auto isNear = [](int one, int other) { return std::abs(one - other) <= colorTolerance; };
    return isNear(color.red(), wanted.red()) && isNear(color.green(), wanted.green()) &&
           isNear(color.blue(), wanted.blue());
}

/// Milliseconds from the start of the process.
struct StartTimes {
    double frame = 0;
    double picture = 0;
};

/// Looks at one pixel of each place, again and again, which costs the server some 50 µs a time.
StartTimes measureOne(test::PrivateDesktop& desktop, SharerKind kind, const QPoint& shownAt)
{
    std::optional<double> frame;
    std::optional<double> picture;
    if (kind != SharerKind::application)
        frame = 0;
    const auto start = Clock::now();
    const auto passed = [&] { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); };
    const auto sharer = Sharer::launch(desktop, {kind, region, 30});
    const auto look = [&] {
        if (!frame && desktop.pixel(onTheBorder.x(), onTheBorder.y()) == frameYellow)
            frame = passed();
        if (!picture && desktop.screenSize().width() > shownAt.x() &&
            isLike(desktop.pixel(shownAt.x(), shownAt.y()), content))
            picture = passed();
        return frame && picture;
    };
    if (!test::waitUntil(look, patience, lookPause))
        throw Failure((frame ? "no picture is shared: " : "no frame is visible: ") + sharer->process().output());
    return {*frame, *picture};
}

/// The middle of where the region will be shown. The first start also fills the caches of files.
QPoint findTarget(test::PrivateDesktop& desktop, SharerKind kind)
{
    return Sharer::start(desktop, {kind, region, 30})->target().center();
}

} // namespace

std::vector<TableRow> measureStart(const Effort& effort)
{
    const std::unique_ptr<test::PrivateDesktop> desktop = startDesktop(fullHd);
    const std::unique_ptr<test::Scene> scene = test::Scene::start(*desktop);
    if (!scene)
        throw Failure("the still window does not show");
    scene->add("still", {.geometry = QRect(QPoint(), fullHd), .seed = 0, .color = content});

    const QPoint ourTarget = findTarget(*desktop, SharerKind::application);
    std::vector<double> frame;
    std::vector<double> picture;
    std::vector<double> both;
    std::vector<double> grabbed;
    std::string missing;
    for (int repetition = 0; repetition < effort.repetitions; ++repetition) {
        const StartTimes ours = measureOne(*desktop, SharerKind::application, ourTarget);
        frame.push_back(ours.frame);
        picture.push_back(ours.picture);
        both.push_back(std::max(ours.frame, ours.picture));
        try {
            if (missing.empty()) {
                const QPoint target = findTarget(*desktop, SharerKind::screenGrab);
                grabbed.push_back(measureOne(*desktop, SharerKind::screenGrab, target).picture);
            }
        } catch (const Failure& failure) {
            missing = failure.what();
        }
        std::cerr << "  repetition " << repetition + 1 << " of " << effort.repetitions << '\n';
    }
    const std::string grabName = "ffmpeg x11grab into an SDL window, first picture: ";
    return {{.subject = "start → frame visible and first picture shared",
             .ours = "frame " + textOf(summaryOf(frame), 0, "ms") + ", picture " + textOf(summaryOf(picture), 0, "ms"),
             .alternative = grabName + (missing.empty() ? textOf(summaryOf(grabbed), 0, "ms") : missing),
             .ratio = missing.empty() ? textOf(ratioOf(both, grabbed), 2) : "–",
             .mustReach = "≤ 500 ms",
             .verdict = reachedWhen(summaryOf(both).median <= greatestMilliseconds)}};
}

} // namespace nimbrale::benchmarks
