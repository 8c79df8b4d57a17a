#include "platform/desktop/desktop_session.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <optional>

namespace nimbrale {
namespace {

/// Sets an environment variable for the time of a test; absent takes it away.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const std::optional<QByteArray>& value) : name_(name)
    {
        if (qEnvironmentVariableIsSet(name))
            before_ = qgetenv(name);
        set(value);
    }
    ~ScopedVariable() { set(before_); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    void set(const std::optional<QByteArray>& value) const
    {
        if (value)
            qputenv(name_, *value);
        else
            qunsetenv(name_);
    }

    const char* name_;
    std::optional<QByteArray> before_;
};

TEST(DesktopSessionTest, NamedDisplaysAreTakenAsThere)
{
    const ScopedVariable x11("DISPLAY", ":0");
    const ScopedVariable wayland("WAYLAND_DISPLAY", "wayland-0");
    EXPECT_TRUE(namesX11Display());
    EXPECT_TRUE(namesWaylandDisplay());
}

TEST(DesktopSessionTest, EmptyNamesAreNoDisplays)
{
    const ScopedVariable x11("DISPLAY", "");
    const ScopedVariable wayland("WAYLAND_DISPLAY", "");
    EXPECT_FALSE(namesX11Display());
    EXPECT_FALSE(namesWaylandDisplay());
}

TEST(DesktopSessionTest, MissingNamesAreNoDisplays)
{
    const ScopedVariable x11("DISPLAY", std::nullopt);
    const ScopedVariable wayland("WAYLAND_DISPLAY", std::nullopt);
    EXPECT_FALSE(namesX11Display());
    EXPECT_FALSE(namesWaylandDisplay());
}

} // namespace
} // namespace nimbrale
