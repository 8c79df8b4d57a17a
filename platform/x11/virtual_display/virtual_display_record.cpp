#include "platform/x11/virtual_display/virtual_display_record.h"

#include "platform/log.h"
#include "platform/x11/displays/randr_change.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/server_grab.h"
#include "platform/x11/virtual_display/lasting_connection.h"

#include <array>
#include <thread>
#include <vector>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t recordLength = 5;
// That of versions that took over no display.
constexpr std::uint32_t shortestRecordLength = 4;
constexpr auto claimPatience = 1s;
constexpr auto claimRetryDelay = 20ms;

xcb_atom_t recordAtom(Connection& connection)
{
    return connection.atom("_NIMBRALE_VIRTUAL_DISPLAY");
}

xcb_window_t claimOwner(Connection& connection)
{
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection.get(), xcb_get_selection_owner(connection.get(), VirtualDisplayClaim::selection(connection)),
        nullptr));
    return reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
}

void logFailure(const Result<void>& result)
{
    if (!result)
        qCCritical(virtualDisplayLog).noquote() << QString::fromStdString(result.error().message);
}

std::vector<RandrMonitor> leftovers(Connection& connection, const RandrLayout& layout, const std::string& name,
                                    const std::optional<VirtualDisplayRecord>& record)
{
    const xcb_atom_t named = connection.atom(name);
    std::vector<RandrMonitor> monitors = layout.monitors(MonitorScope::all);
    std::erase_if(monitors, [&](const RandrMonitor& monitor) {
        const bool isRecorded = record && monitor.name == record->monitor;
        return monitor.isAutomatic || (!isRecorded && (monitor.name != named || !monitor.outputs.empty()));
    });
    return monitors;
}

} // namespace

// Of two that take it in the same moment the later one has it, and the earlier one is told, or sees it at once.
std::unique_ptr<VirtualDisplayClaim> VirtualDisplayClaim::take(Connection& connection)
{
    if (claimOwner(connection) != XCB_WINDOW_NONE)
        return nullptr;
    const xcb_window_t window = connection.newId();
    const std::uint32_t isOverrideRedirect = 1;
    xcb_create_window(connection.get(), 0, window, connection.root(), -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, &isOverrideRedirect);
    xcb_set_selection_owner(connection.get(), window, VirtualDisplayClaim::selection(connection), XCB_CURRENT_TIME);
    std::unique_ptr<VirtualDisplayClaim> claim(new VirtualDisplayClaim(connection, window));
    return claimOwner(connection) == window ? std::move(claim) : nullptr;
}

std::unique_ptr<VirtualDisplayClaim> VirtualDisplayClaim::waitFor(Connection& connection)
{
    const auto end = std::chrono::steady_clock::now() + claimPatience;
    auto claim = take(connection);
    while (!claim && !connection.isLost() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(claimRetryDelay);
        claim = take(connection);
    }
    return claim;
}

xcb_atom_t VirtualDisplayClaim::selection(Connection& connection)
{
    return connection.atom("_NIMBRALE_VIRTUAL_DISPLAY_S" + std::to_string(connection.screenNumber()));
}

bool VirtualDisplayClaim::isTaken(Connection& connection)
{
    return claimOwner(connection) != XCB_WINDOW_NONE;
}

VirtualDisplayClaim::~VirtualDisplayClaim()
{
    xcb_destroy_window(connection_.get(), window_);
    connection_.flush();
}

std::optional<VirtualDisplayRecord> VirtualDisplayRecord::read(Connection& connection)
{
    const Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection.get(),
                               xcb_get_property(connection.get(), 0, connection.root(), recordAtom(connection),
                                                XCB_ATOM_CARDINAL, 0, recordLength),
                               nullptr));
    if (!reply || reply->format != 32 || reply->value_len < shortestRecordLength)
        return std::nullopt;
    const auto* const values = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    const xcb_window_t earlierCard = reply->value_len == recordLength ? values[4] : xcb_window_t{XCB_WINDOW_NONE};
    return VirtualDisplayRecord{values[0], values[1], values[2], values[3], earlierCard};
}

void VirtualDisplayRecord::write(Connection& connection) const
{
    const std::array<std::uint32_t, recordLength> values = {monitor, primaryBefore, primarySet, card, earlierCard};
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, connection.root(), recordAtom(connection),
                        XCB_ATOM_CARDINAL, 32, recordLength, values.data());
}

void VirtualDisplayRecord::erase(Connection& connection)
{
    xcb_delete_property(connection.get(), connection.root(), recordAtom(connection));
    connection.flush();
}

void shrinkScreen(Connection& connection, const RandrLayout& layout, xcb_atom_t except, const PixelPitch& pitch)
{
    const PixelRect real = layout.realBounds(except);
    const PixelRect screen = layout.screenPixels();
    const int width = real.x + real.width;
    const int height = real.y + real.height;
    if (real.isEmpty() || (width == screen.width && height == screen.height))
        return;
    const std::vector<RandrPanning> pannings = layout.pannings();
    RandrChange change(connection);
    {
        const ServerGrab grab(connection);
        change.setScreenSize(width, height, pitch, pannings);
    }
    logFailure(change.finish());
}

void restorePrimary(RandrLayout& layout, const VirtualDisplayRecord& record)
{
    if (record.primarySet != XCB_NONE && layout.primaryOutput() == record.primarySet)
        layout.setPrimaryOutput(record.primaryBefore);
}

std::optional<RandrMonitor> findLeftover(Connection& connection, const RandrLayout& layout, const std::string& name)
{
    const auto found = leftovers(connection, layout, name, VirtualDisplayRecord::read(connection));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

void removeLeftovers(Connection& connection, RandrLayout& layout, const std::string& name)
{
    const std::optional<VirtualDisplayRecord> record = VirtualDisplayRecord::read(connection);
    bool wasRemoved = false;
    for (const RandrMonitor& monitor : leftovers(connection, layout, name, record)) {
        RandrChange change(connection);
        change.deleteMonitor(monitor.name);
        const Result<void> removed = change.finish();
        logFailure(removed);
        wasRemoved = wasRemoved || removed.has_value();
    }
    // The screen may be bigger than its displays for reasons of others, so only what a leftover enlarged is shrunk.
    if (wasRemoved || record)
        shrinkScreen(connection, layout, XCB_ATOM_NONE, layout.initialPitch());
    if (record) {
        removeLasting(connection, record->card);
        removeLasting(connection, record->earlierCard);
        restorePrimary(layout, *record);
        VirtualDisplayRecord::erase(connection);
    }
}

} // namespace nimbrale::x11
