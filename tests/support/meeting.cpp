#include "tests/support/meeting.h"

#include "tests/support/requirements.h"

#include <QPainter>

#include <cmath>
#include <iostream>

namespace nimbrale::test {

namespace {

constexpr int movementSize = 60;
/// Islands of color on a grey wall, near enough to each other that every region holds some of them.
constexpr std::uint32_t wallSeed = 11 | greyPattern | islandPattern;
/// The pointer's image lies within this around its position.
constexpr QRect pointerRoom(-32, -32, 96, 96);
const QColor quietGreen(20, 110, 40);

/// Video thins out color: within two pixels of an edge between colors it is neither the one nor the other.
constexpr ImageTolerance sharedColors{.perChannel = 4, .edgeDistance = 2};
constexpr ImageTolerance sharedGreys{.perChannel = 2};
/// While something moves, the codec leaves blocks elsewhere unpolished: one pixel in a hundred may be off by more. A
/// picture that is out of place by a pixel differs in seven of a hundred, at the edges of the pattern's cells.
int unpolishedPixels(const QRect& pixels)
{
    return pixels.width() * pixels.height() / 100;
}

QImage withoutIslands(QImage picture, const QRect& pixels)
{
    if (picture.isNull())
        return picture;
    QPainter painter(&picture);
    constexpr QRect island(islandStart * patternCellWidth, islandStart * patternCellHeight,
                           islandSize * patternCellWidth, islandSize * patternCellHeight);
    constexpr QPoint distance(islandDistance * patternCellWidth, islandDistance * patternCellHeight);
    for (int y = 0; y <= pixels.bottom(); y += distance.y()) {
        for (int x = 0; x <= pixels.right(); x += distance.x()) {
            // Two pixels more, for the color that bleeds out of an island.
            painter.fillRect(island.adjusted(-2, -2, 2, 2).translated(QPoint(x, y) - pixels.topLeft()), Qt::black);
        }
    }
    return picture;
}

} // namespace

std::unique_ptr<Meeting> Meeting::start(const Options& options, std::string& reason)
{
    reason = BrowserCall::missing(options.call.browser);
    if (!reason.empty())
        return nullptr;
    std::unique_ptr<Meeting> meeting(new Meeting);
    meeting->desktop_ = PrivateDesktop::start(options.desktop, reason);
    if (!meeting->desktop_)
        return nullptr;
    if (!meeting->arrangeDisplays(options)) {
        reason = "this server takes no second display";
        ADD_FAILURE() << reason;
        return nullptr;
    }
    if (options.desktop.dotsPerInch != 0)
        meeting->scale_ = options.desktop.dotsPerInch / 96.0;
    meeting->applicationEnvironment_ = options.applicationEnvironment;
    meeting->scene_ = Scene::start(*meeting->desktop_);
    if (!meeting->scene_) {
        reason = "the scene does not start";
        return nullptr;
    }
    meeting->fillDesktop(options.isPatterned);
    const QRect region = meeting->pixels(options.application.region);
    meeting->placeMovement(region.center());
    meeting->application_ =
        Application::start(*meeting->desktop_, options.application, reason, options.applicationEnvironment);
    if (!meeting->application_) {
        ADD_FAILURE() << reason;
        return nullptr;
    }
    if (options.call.source == "Screen 2") {
        EXPECT_TRUE(meeting->application_->waitForVirtualDisplay(region.size()))
            << "no virtual display; the application says: " << meeting->application_->process().output();
    }
    meeting->call_ = BrowserCall::start(*meeting->desktop_, options.call, reason);
    if (!meeting->call_)
        return nullptr;
    EXPECT_TRUE(meeting->call_->share()) << meeting->call_->failure() << "; kept as "
                                         << keepImage(meeting->desktop_->screenshot(), "desktop");
    EXPECT_TRUE(meeting->call_->waitForTrackSize(sharedPart(region).size(), Milliseconds{5000}))
        << "the track is " << meeting->call_->trackSize().width() << "x" << meeting->call_->trackSize().height();
    return meeting;
}

bool Meeting::arrangeDisplays(const Options& options)
{
    std::vector<QRect> displays{QRect(0, 0, options.desktop.width, options.desktop.height)};
    if (options.secondDisplay)
        displays.push_back(*options.secondDisplay);
    if (options.desktop.server != PrivateDesktop::Server::xvnc)
        return displays.size() == 1 || desktop_->arrangeOutputs(displays);
    // Cards have outputs that nothing is plugged into. So has this server, once one was unplugged.
    displays.emplace_back(displays.back().right() + 1, 0, 640, 480);
    if (!desktop_->arrangeOutputs(displays))
        return false;
    desktop_->unplug(desktop_->outputName(static_cast<int>(displays.size()) - 1));
    return true;
}

Meeting::~Meeting()
{
    if (!testing::Test::HasFailure() || !desktop_)
        return;
    const QSize size = desktop_->screenSize();
    std::cout << "the screen, kept as " << keepImage(desktop_->screenshot(), "desktop") << ", is " << size.width()
              << "x" << size.height() << ", its monitors are\n";
    for (const PrivateDesktop::Monitor& monitor : desktop_->monitors()) {
        const QRect& place = monitor.geometry;
        std::cout << "  " << monitor.name << " " << place.width() << "x" << place.height() << "+" << place.x() << "+"
                  << place.y() << (monitor.isPrimary ? " primary\n" : "\n");
    }
    if (call_)
        std::cout << "the browser says:\n" << call_->browserOutput() << "\n";
    if (application_)
        std::cout << "the application says:\n" << application_->process().output() << "\n";
}

void Meeting::fillDesktop(bool isPatterned)
{
    const QSize size = desktop_->screenSize();
    // Managed as a desktop's own window, so that it stays below everything else.
    Scene::Window wall{.geometry = QRect({}, size), .seed = wallSeed, .type = Scene::Type::desktop};
    wall.overrideRedirect = false;
    content_ = Scene::pattern(wallSeed, size);
    if (!isPatterned) {
        wall.seed = 0;
        wall.color = quietGreen;
        content_.fill(quietGreen);
    }
    scene_->add("wall", wall);
    EXPECT_TRUE(desktop_->waitForPixel(size.width() / 2, size.height() / 2,
                                       content_.pixelColor(size.width() / 2, size.height() / 2)));
}

void Meeting::placeMovement(QPoint middle)
{
    movementArea_ = QRect(0, 0, movementSize, movementSize);
    movementArea_.moveCenter(middle);
    const auto number = [](int value) { return std::to_string(value); };
    movement_ = desktop_->spawn("nimbrale_animation", {"blink", number(movementArea_.x()), number(movementArea_.y()),
                                                       number(movementSize), number(movementSize), "30", "0"});
}

QRect Meeting::pixels(const QRect& points) const
{
    return {pixels(points.topLeft()), QSize(static_cast<int>(std::floor(points.width() * scale_)),
                                            static_cast<int>(std::floor(points.height() * scale_)))};
}

QPoint Meeting::pixels(QPoint points) const
{
    return {static_cast<int>(std::lround(points.x() * scale_)), static_cast<int>(std::lround(points.y() * scale_))};
}

QImage Meeting::withoutWhatMoves(QImage picture, const QRect& pixels) const
{
    if (picture.isNull())
        return picture;
    QPainter painter(&picture);
    // With the shadow that a compositing manager draws around it.
    painter.fillRect(movementArea_.adjusted(-16, -16, 16, 16).translated(-pixels.topLeft()), Qt::black);
    painter.fillRect(pointerRoom.translated(desktop_->pointerPosition() - pixels.topLeft()), Qt::black);
    return picture;
}

QImage Meeting::contentOf(const QRect& pixels) const
{
    return withoutWhatMoves(content_.copy(pixels), pixels);
}

QRect Meeting::sharedPart(const QRect& pixels)
{
    return {pixels.x(), pixels.y(), pixels.width() / 2 * 2, pixels.height() / 2 * 2};
}

testing::AssertionResult Meeting::displayShowsContentOf(const QRect& pixels, Milliseconds timeout) const
{
    const QImage expected = contentOf(pixels);
    QImage picture;
    static_cast<void>(waitUntil(
        [&] {
            const auto display = desktop_->monitorNamed("Nimbrale");
            picture = display ? withoutWhatMoves(desktop_->screenshot(display->geometry), pixels) : QImage();
            return imagesAreAlike(picture, expected);
        },
        timeout, Milliseconds{50}));
    return imagesMatch(picture, expected) << " (on the virtual display)";
}

testing::AssertionResult Meeting::trackShowsContentOf(const QRect& pixels, Milliseconds timeout)
{
    return pictureShows([this] { return call_->trackImage(); }, pixels, {sharedColors, sharedGreys}, timeout)
           << " (on the shared track)";
}

testing::AssertionResult Meeting::showsContentOf(const QRect& pixels, Milliseconds timeout)
{
    if (testing::AssertionResult shown = trackShowsContentOf(pixels, timeout); !shown)
        return shown;
    testing::AssertionResult received =
        pictureShows([this] { return call_->receivedImage(); }, pixels,
                     {{.perChannel = 24, .differingPixels = unpolishedPixels(pixels), .edgeDistance = 2},
                      {.perChannel = 16, .differingPixels = unpolishedPixels(pixels)}},
                     timeout);
    if (!received)
        return received << " (at the far side)";
    if (!call_->waitForChangesReceived(10, timeout))
        return testing::AssertionFailure() << "the stream is frozen";
    return testing::AssertionSuccess();
}

testing::AssertionResult Meeting::pictureShows(const std::function<QImage()>& take, const QRect& region,
                                               const Tolerances& tolerances, Milliseconds timeout) const
{
    const QRect pixels = sharedPart(region);
    const QImage colors = contentOf(pixels);
    const QImage greys = withoutIslands(colors, pixels);
    QImage picture;
    static_cast<void>(waitUntil(
        [&] {
            picture = withoutWhatMoves(take(), pixels);
            return imagesAreAlike(picture, colors, tolerances.colors) &&
                   imagesAreAlike(withoutIslands(picture, pixels), greys, tolerances.greys);
        },
        timeout, Milliseconds{50}));
    if (testing::AssertionResult match = imagesMatch(picture, colors, tolerances.colors); !match)
        return match;
    return imagesMatch(withoutIslands(picture, pixels), greys, tolerances.greys);
}

void Meeting::dragFrame(const QRect& region, QPoint corner, int steps, Milliseconds pause)
{
    const QPoint handle = Application::handleOf(region);
    desktop_->drag(pixels(handle), pixels(handle + corner - region.topLeft()), steps, pause);
}

QColor Meeting::quietColor()
{
    return quietGreen;
}

bool Meeting::restartApplication(std::string& reason)
{
    application_ = Application::startAgain(*desktop_, reason, applicationEnvironment_);
    return application_ != nullptr;
}

std::unique_ptr<Meeting> requireMeeting(const Meeting::Options& options)
{
    std::string reason;
    std::unique_ptr<Meeting> meeting = Meeting::start(options, reason);
    if (meeting)
        return meeting;
    if (testing::Test::HasFailure())
        failTest(reason);
    skipTest(reason);
}

} // namespace nimbrale::test
