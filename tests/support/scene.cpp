#include "tests/support/scene.h"

#include "tests/support/requirements.h"

#include <QPainter>

#include <gtest/gtest.h>
#include <sstream>

namespace nimbrale::test {

namespace {

const char* wordFor(Scene::Type type)
{
    switch (type) {
    case Scene::Type::normal:
        return "normal";
    case Scene::Type::notification:
        return "notification";
    case Scene::Type::dock:
        return "dock";
    case Scene::Type::desktop:
        return "desktop";
    }
    return "normal";
}

} // namespace

std::unique_ptr<Scene> Scene::start(PrivateDesktop& desktop)
{
    std::unique_ptr<Process> process = desktop.spawn("nimbrale_scene", {}, {}, true);
    if (!process) {
        ADD_FAILURE() << "nimbrale_scene does not start; is it built?";
        return nullptr;
    }
    return std::unique_ptr<Scene>(new Scene(std::move(process)));
}

Scene::~Scene()
{
    process_->write("quit\n");
    if (!process_->waitForEnd(Milliseconds{1000}))
        process_->terminate();
}

std::string Scene::command(const std::string& line)
{
    process_->write(line + "\n");
    const std::optional<std::string> answer = process_->readLine();
    if (!answer || answer->rfind("ok", 0) != 0) {
        ADD_FAILURE() << "scene: " << line << ": " << answer.value_or("no answer");
        return {};
    }
    return answer->size() > 3 ? answer->substr(3) : std::string();
}

void Scene::add(const std::string& name, const Window& window)
{
    std::ostringstream line;
    line << "add " << name << ' ' << window.geometry.x() << ' ' << window.geometry.y() << ' ' << window.geometry.width()
         << ' ' << window.geometry.height() << " seed=" << window.seed << " color=" << (window.color.rgba())
         << " depth=" << window.depth << " border=" << window.borderWidth << " type=" << wordFor(window.type);
    if (window.overrideRedirect)
        line << " unmanaged";
    if (window.isRound)
        line << " round";
    if (window.isFullScreen)
        line << " fullscreen";
    if (!window.isMapped)
        line << " unmapped";
    command(line.str());
}

void Scene::move(const std::string& name, QPoint position)
{
    command("move " + name + " " + std::to_string(position.x()) + " " + std::to_string(position.y()));
}

void Scene::resize(const std::string& name, QSize size)
{
    command("resize " + name + " " + std::to_string(size.width()) + " " + std::to_string(size.height()));
}

void Scene::raise(const std::string& name)
{
    command("raise " + name);
}

void Scene::lower(const std::string& name)
{
    command("lower " + name);
}

void Scene::map(const std::string& name)
{
    command("map " + name);
}

void Scene::unmap(const std::string& name)
{
    command("unmap " + name);
}

void Scene::remove(const std::string& name)
{
    command("remove " + name);
}

void Scene::repaint(const std::string& name, std::uint32_t seed)
{
    command("repaint " + name + " " + std::to_string(seed));
}

void Scene::fill(const std::string& name, const QRect& area, const QColor& color)
{
    std::ostringstream line;
    line << "fill " << name << ' ' << area.x() << ' ' << area.y() << ' ' << area.width() << ' ' << area.height() << ' '
         << color.rgba();
    command(line.str());
}

void Scene::settle()
{
    command("settle -");
}

std::uint32_t Scene::identifier(const std::string& name)
{
    const std::string answer = command("identifier " + name);
    return answer.empty() ? 0 : static_cast<std::uint32_t>(std::stoul(answer));
}

int Scene::pressCount(const std::string& name)
{
    const std::string answer = command("presses " + name);
    return answer.empty() ? 0 : std::stoi(answer);
}

std::string Scene::focused()
{
    return command("focused -");
}

QImage Scene::pattern(std::uint32_t seed, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter painter(&image);
    for (int y = 0, row = 0; y < size.height(); y += patternCellHeight, ++row) {
        for (int x = 0, column = 0; x < size.width(); x += patternCellWidth, ++column) {
            const QRgb color = patternColor(seed, column, row) | 0xff000000U;
            painter.fillRect(x, y, patternCellWidth, patternCellHeight, QColor(color));
        }
    }
    return image;
}

std::unique_ptr<Scene> requireScene(PrivateDesktop& desktop)
{
    std::unique_ptr<Scene> scene = Scene::start(desktop);
    if (!scene)
        failTest("no scene");
    return scene;
}

} // namespace nimbrale::test
