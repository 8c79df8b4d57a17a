#include "tests/support/gtk_window.h"

#include <gtest/gtest.h>
#include <sstream>

namespace nimbrale::test {

std::unique_ptr<GtkWindow> GtkWindow::start(PrivateDesktop& desktop)
{
    constexpr bool isSpokenWith = true;
    std::unique_ptr<Process> process = desktop.spawn("nimbrale_gtk_window", {}, {}, isSpokenWith);
    if (!process) {
        ADD_FAILURE() << "nimbrale_gtk_window does not start; is it built?";
        return nullptr;
    }
    return std::unique_ptr<GtkWindow>(new GtkWindow(std::move(process)));
}

GtkWindow::~GtkWindow()
{
    process_->write("quit\n");
    if (!process_->waitForEnd(Milliseconds{1000}))
        process_->terminate();
}

std::string GtkWindow::command(const std::string& line)
{
    process_->write(line + "\n");
    const std::optional<std::string> answer = process_->readLine(Milliseconds{15000});
    if (!answer || answer->rfind("ok", 0) != 0) {
        ADD_FAILURE() << "GTK window: " << line << ": " << answer.value_or("no answer; " + process_->output());
        return {};
    }
    return answer->size() > 3 ? answer->substr(3) : std::string();
}

void GtkWindow::show(const QRect& geometry)
{
    std::ostringstream line;
    line << "show " << geometry.x() << ' ' << geometry.y() << ' ' << geometry.width() << ' ' << geometry.height();
    command(line.str());
}

QPoint GtkWindow::placeFrom(const std::string& line)
{
    std::istringstream answer(command(line));
    int x = -1;
    int y = -1;
    answer >> x >> y;
    return {x, y};
}

QPoint GtkWindow::menuButton()
{
    return placeFrom("menu");
}

QPoint GtkWindow::tooltipPlace()
{
    return placeFrom("tooltip");
}

std::uint32_t GtkWindow::identifier()
{
    const std::string answer = command("identifier");
    return answer.empty() ? 0 : static_cast<std::uint32_t>(std::stoul(answer));
}

std::string GtkWindow::notify(const std::string& title)
{
    return command("notify " + title);
}

void GtkWindow::dismiss(const std::string& number)
{
    command("dismiss " + number);
}

} // namespace nimbrale::test
