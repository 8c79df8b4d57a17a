#include "platform/desktop/screen_savers.h"

#include "platform/desktop/bus_question.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>

namespace nimbrale {

namespace {

/// Names of services and of their interfaces alike.
constexpr std::array<const char*, 5> names{"org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver",
                                           "org.cinnamon.ScreenSaver", "org.mate.ScreenSaver", "org.xfce.ScreenSaver"};

QString pathOf(const QString& name)
{
    return '/' + QString(name).replace('.', '/');
}

std::string sourceName(const std::pair<QString, QString>& source)
{
    return (source.second + " of " + source.first).toStdString();
}

/// The one truth value that signal and answer consist of; absent in an error and in what is something else.
std::optional<bool> truthIn(const QDBusMessage& message)
{
    if (message.type() == QDBusMessage::ErrorMessage || message.signature() != "b")
        return std::nullopt;
    return message.arguments().front().toBool();
}

} // namespace

ScreenSavers::ScreenSavers(QDBusConnection bus, LockReports& lock) : bus_(std::move(bus)), lock_(lock)
{
    if (!bus_.isConnected())
        return;
    signals_.push_back(std::make_unique<BusSignal>(
        bus_, BusSignal::Match{"org.freedesktop.DBus", {}, "org.freedesktop.DBus", "NameOwnerChanged"},
        [this](const QDBusMessage& message) { ownerChanged(message); }));
    for (const char* const name : names) {
        signals_.push_back(std::make_unique<BusSignal>(
            bus_, BusSignal::Match{{}, {}, name, "ActiveChanged"}, [this](const QDBusMessage& message) {
                if (const std::optional<bool> isActive = truthIn(message))
                    note({message.service(), message.interface()}, *isActive);
            }));
        ask(name);
    }
}

ScreenSavers::~ScreenSavers() = default;

void ScreenSavers::ask(const QString& name)
{
    askOnBus(*this, bus_, QDBusMessage::createMethodCall(name, pathOf(name), name, "GetActive"),
             [this, name](const QDBusMessage& answer) {
                 const std::optional<bool> isActive = truthIn(answer);
                 const Source source{answer.service(), name};
                 // What it has signalled since is newer.
                 if (isActive && !active_.contains(source))
                     note(source, *isActive);
             });
}

void ScreenSavers::ownerChanged(const QDBusMessage& message)
{
    const QList<QVariant> arguments = message.arguments();
    if (message.signature() != "sss")
        return;
    const QString name = arguments.at(0).toString();
    const QString owner = arguments.at(2).toString();
    if (owner.isEmpty())
        forget(name);
    else if (std::ranges::any_of(names, [&name](const char* known) { return name == known; }))
        ask(name);
}

void ScreenSavers::note(const Source& source, bool isActive)
{
    active_[source] = isActive;
    lock_.report(sourceName(source), isActive);
}

void ScreenSavers::forget(const QString& sender)
{
    std::vector<Source> gone;
    for (const auto& [source, isActive] : active_) {
        if (source.first == sender)
            gone.push_back(source);
    }
    for (const Source& source : gone) {
        active_.erase(source);
        lock_.report(sourceName(source), false);
    }
}

} // namespace nimbrale
