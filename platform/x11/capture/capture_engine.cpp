#include "platform/x11/capture/capture_engine.h"

#include "platform/log.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <xcb/damage.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

namespace nimbrale::x11 {

Result<std::unique_ptr<CaptureEngine>> CaptureEngine::create(const std::string& displayName, Callbacks callbacks)
{
    auto connection = Connection::open(displayName);
    if (!connection)
        return tl::make_unexpected(connection.error());
    std::unique_ptr<CaptureEngine> engine(new CaptureEngine(std::move(*connection), std::move(callbacks)));
    engine->prepare();
    engine->thread_ = std::thread([raw = engine.get()] { raw->run(); });
    return engine;
}

CaptureEngine::CaptureEngine(std::unique_ptr<Connection> connection, Callbacks callbacks)
    : connection_(std::move(connection)), callbacks_(std::move(callbacks)),
      wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

CaptureEngine::~CaptureEngine()
{
    isEnding_ = true;
    wake();
    if (thread_.joinable())
        thread_.join();
    // Work that is not done any more may own a stream, which posts once more as it goes.
    for (std::vector<std::function<void()>> dropped; !(dropped = takePosted()).empty();)
        dropped.clear();
    for (const auto& session : sessions_)
        session->composer.reset();
    close(wakeDescriptor_);
}

void CaptureEngine::prepare()
{
    const Extensions& extensions = connection_->extensions();
    if (!extensions.composite.isPresent) {
        mode_ = Mode::rootDamage;
        limitations_.emplace_back("This X server has no COMPOSITE extension, so Nimbrale's own windows and "
                                  "notifications cannot be left out of the shared picture. Keep them outside of the "
                                  "frame, or turn the extension on in the server's configuration.");
    }
    if (!extensions.damage.isPresent) {
        mode_ = Mode::rootTimed;
        limitations_.emplace_back("This X server has no DAMAGE extension, so changes are not announced: the picture is "
                                  "copied at every interval, own windows included, which takes more power.");
    }
    xcb_connection_t* const raw = connection_->get();
    fetchedRegion_ = connection_->newId();
    xcb_xfixes_create_region(raw, fetchedRegion_, 0, nullptr);
    if (mode_ == Mode::redirected) {
        stack_ = std::make_unique<WindowStack>(*connection_);
        stack_->onChange = [this](const PixelRegion& region, const CapturedWindow& window) {
            for (const auto& session : sessions_) {
                if (session->includes(window))
                    session->markDirty(region);
            }
        };
    } else {
        const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(raw, connection_->root(), XCB_CW_EVENT_MASK, &events);
    }
    if (mode_ == Mode::rootDamage) {
        rootDamage_ = connection_->newId();
        xcb_damage_create(raw, rootDamage_, connection_->root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    }
    watchPointer();
    watchCompositor();
    background_ = std::make_unique<RootBackground>(*connection_, isComposited_);
    if (stack_)
        stack_->addExempt(background_->anchor());
    connection_->synchronize();
}

void CaptureEngine::watchPointer()
{
    pointer_ = std::make_unique<PointerImage>(*connection_);
    if (!connection_->extensions().input.isPresent)
        return;
    // Raw motion only wakes the thread; where the pointer is it asks once a picture.
    struct {
        xcb_input_event_mask_t head;
        std::uint32_t mask;
    } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
                XCB_INPUT_XI_EVENT_MASK_RAW_MOTION | XCB_INPUT_XI_EVENT_MASK_RAW_TOUCH_UPDATE};
    xcb_input_xi_select_events(connection_->get(), connection_->root(), 1, &selection.head);
    notePointerMove();
}

void CaptureEngine::notePointerMove()
{
    isPointerStale_ = true;
    if (callbacks_.onPointerMoved)
        callbacks_.onPointerMoved();
}

void CaptureEngine::watchCompositor()
{
    compositorSelection_ = connection_->atom("_NET_WM_CM_S" + std::to_string(connection_->screenNumber()));
    xcb_xfixes_select_selection_input(connection_->get(), connection_->root(), compositorSelection_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    readCompositor();
}

void CaptureEngine::readCompositor()
{
    const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection_->get(), xcb_get_selection_owner(connection_->get(), compositorSelection_), nullptr));
    const bool isComposited = owner && owner->owner != XCB_NONE;
    if (isComposited == isComposited_)
        return;
    isComposited_ = isComposited;
    if (stack_)
        stack_->setComposited(isComposited);
    if (background_) {
        background_->setComposited(isComposited);
        if (stack_)
            stack_->addExempt(background_->anchor());
    }
    for (const auto& session : sessions_)
        session->markAllDirty();
}

void CaptureEngine::post(std::function<void()> work)
{
    {
        const std::lock_guard lock(postedMutex_);
        posted_.push_back(std::move(work));
    }
    wake();
}

void CaptureEngine::wake()
{
    const std::uint64_t one = 1;
    // The only failure is a full counter, and then the thread wakes anyway.
    [[maybe_unused]] const ssize_t written = write(wakeDescriptor_, &one, sizeof one);
}

void CaptureEngine::addSession(std::shared_ptr<CaptureSession> session)
{
    session->composer = std::make_unique<RegionComposer>(*connection_, callbacks_.releasePixmap);
    session->composer->setSource(session->configuration.source);
    if (connection_->extensions().sync.isPresent) {
        session->counter = connection_->newId();
        xcb_sync_create_counter(connection_->get(), session->counter, {0, 0});
    }
    session->markAllDirty();
    isPointerStale_ = true;
    sessions_.push_back(std::move(session));
}

void CaptureEngine::removeSession(const std::shared_ptr<CaptureSession>& session)
{
    if (std::erase(sessions_, session) == 0)
        return;
    session->composer.reset();
    if (session->counter != XCB_NONE)
        xcb_sync_destroy_counter(connection_->get(), session->counter);
}

void CaptureEngine::applyConfiguration(CaptureSession& session, const SessionConfiguration& configuration)
{
    const bool isSamePicture = session.configuration.source == configuration.source &&
                               session.configuration.showsCursor == configuration.showsCursor;
    session.configuration = configuration;
    if (isSamePicture || !session.composer)
        return;
    session.composer->setSource(configuration.source);
    session.markAllDirty();
    session.pointerCoverage = {};
    redrawPointer();
}

void CaptureEngine::applyFilter(CaptureSession& session, const SessionFilter& filter)
{
    session.filter = filter;
    session.markAllDirty();
}

std::vector<CaptureWindow> CaptureEngine::listWindows()
{
    std::vector<CaptureWindow> list;
    if (!stack_)
        return list;
    drainEvents();
    stack_->classifyNew();
    for (const auto& window : stack_->windows()) {
        if (!window->isInputOnly && !window->needsClassification)
            list.push_back(
                {window->owner.process != 0 ? std::optional(window->owner.process) : std::nullopt, window->isMapped});
    }
    return list;
}

void CaptureEngine::run()
{
    pthread_setname_np(pthread_self(), "Nimbrale.captur");
    while (!isEnding_) {
        runPosted();
        drainEvents();
        if (connection_->isLost()) {
            callbacks_.onLost();
            return;
        }
        const std::optional<std::chrono::nanoseconds> wait = composeDue();
        connection_->flush();
        sleep(wait);
    }
}

void CaptureEngine::runPosted()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(wakeDescriptor_, &count, sizeof count);
    for (const auto& work : takePosted())
        work();
}

std::vector<std::function<void()>> CaptureEngine::takePosted()
{
    const std::lock_guard lock(postedMutex_);
    return std::exchange(posted_, {});
}

void CaptureEngine::drainEvents()
{
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_->get())})
        handle(*event);
}

void CaptureEngine::handle(const xcb_generic_event_t& event)
{
    const Extensions& extensions = connection_->extensions();
    const int type = eventType(event);
    if (isError(event)) {
        errors_.report(eventAs<xcb_generic_error_t>(event));
        return;
    }
    // The server reports what happened; what another client made up did not.
    if (isSentByClient(event))
        return;
    if (extensions.damage.isPresent && type == extensions.damage.firstEvent + XCB_DAMAGE_NOTIFY) {
        damaged(event);
        return;
    }
    if (type == extensions.fixes.firstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
        readCompositor();
        return;
    }
    if (type == extensions.fixes.firstEvent + XCB_XFIXES_CURSOR_NOTIFY) {
        pointer_->read();
        redrawPointer();
        return;
    }
    if (type == XCB_GE_GENERIC) {
        if (eventAs<xcb_ge_generic_event_t>(event).extension == extensions.input.majorOpcode)
            notePointerMove();
        return;
    }
    if (background_->handle(event)) {
        if (stack_)
            stack_->addExempt(background_->anchor());
        for (const auto& session : sessions_)
            session->markAllDirty();
    }
    if (stack_)
        stack_->handle(event);
}

void CaptureEngine::damaged(const xcb_generic_event_t& raw)
{
    const auto& event = eventAs<xcb_damage_notify_event_t>(raw);

    if (mode_ == Mode::rootDamage) {
        hasDamage_ = true;
        return;
    }
    if (event.drawable == connection_->root()) {
        (void)background_->handle(raw);
        return;
    }
    const auto& windows = stack_->windows();
    const auto found = std::find_if(windows.begin(), windows.end(),
                                    [&event](const auto& window) { return window->id == event.drawable; });
    if (found == windows.end())
        return;
    // Damage that no picture shows is left with the server, which then reports no more of it.
    (*found)->isDamaged = true;
    hasDamage_ |= isRelevant(**found);
}

bool CaptureEngine::isRelevant(const CapturedWindow& window) const
{
    return std::any_of(sessions_.begin(), sessions_.end(), [&window](const auto& session) {
        PixelRegion visible = window.extents();
        visible &= PixelRegion(session->configuration.source);
        return (window.needsClassification || session->includes(window)) && !visible.isEmpty();
    });
}

} // namespace nimbrale::x11
