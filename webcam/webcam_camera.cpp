#include "webcam/webcam_camera.h"

#include "platform/log.h"
#include "webcam/picture_reduction.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace nimbrale {

namespace {

std::optional<CameraDevice> deviceOf(const std::vector<CameraDevice>& devices, const std::optional<std::string>& id)
{
    const auto found = std::ranges::find_if(devices, [&](const CameraDevice& device) { return device.id == id; });
    return found == devices.end() ? std::nullopt : std::optional(*found);
}

} // namespace

/// Takes pictures from the camera's thread. Of each kind at most one waits: a later picture takes its place, so that
/// nothing piles up behind a slow effect or a busy main thread. Outlives the camera as long as work for it is under
/// way.
class WebcamCamera::Intake : public std::enable_shared_from_this<Intake> {
public:
    /// `queue` must outlive the camera's thread.
    Intake(MainQueue& main, SerialQueue& queue, std::weak_ptr<WebcamPictures> pictures, Effects effects)
        : main_(main), queue_(queue), pictures_(std::move(pictures)), effects_(std::move(effects))
    {}

    void setBackground(Background background)
    {
        const std::lock_guard lock(mutex_);
        background_ = background;
        unprocessed_.reset();
        processed_.reset();
    }
    void setShownSize(PixelSize size)
    {
        const std::lock_guard lock(mutex_);
        shownSize_ = size;
    }
    /// Pictures of the camera that is about to be open are shown, those of any before are not.
    [[nodiscard]] int beginRound()
    {
        const std::lock_guard lock(mutex_);
        unprocessed_.reset();
        processed_.reset();
        live_.reset();
        return ++round_;
    }
    /// How often the camera is to halve its next picture. What effects are made of does not depend on how large it is
    /// shown: the person is found in the same picture. The camera's thread calls it.
    [[nodiscard]] int wantedHalvings(PixelSize picture)
    {
        const std::lock_guard lock(mutex_);
        const int forEffects = halvingsForEffects(picture);
        const int halvings = background_ == Background::original ? halvingsToShow(picture, shownSize_) : forEffects;
        isForEffects_ = halvings == forEffects;
        return halvings;
    }
    /// The camera's thread calls it.
    void take(const std::shared_ptr<const BufferSurface>& picture, int round)
    {
        const std::lock_guard lock(mutex_);
        if (round != round_)
            return;
        if (!std::exchange(live_, picture))
            main_.post([self = shared_from_this()] { self->showLive(); });
        // One that was made before an effect was wanted is of no use to it.
        if (background_ == Background::original || !isForEffects_)
            return;
        if (!std::exchange(unprocessed_, picture) && !isProcessing_)
            process();
    }

private:
    // Within the lock.
    void process()
    {
        isProcessing_ = true;
        queue_.post([self = shared_from_this()] { self->processWaiting(); });
    }

    void processWaiting()
    {
        std::shared_ptr<const BufferSurface> picture;
        Background background{};
        PixelSize shown;
        int round = 0;
        {
            const std::lock_guard lock(mutex_);
            picture = std::exchange(unprocessed_, nullptr);
            background = background_;
            shown = shownSize_;
            round = round_;
        }
        std::shared_ptr<const BufferSurface> processed;
        if (picture)
            processed = effects_(picture, background, halvingsToShow({picture->width(), picture->height()}, shown));
        const std::lock_guard lock(mutex_);
        if (processed && round == round_ && background == background_) {
            if (!std::exchange(processed_, processed))
                main_.post([self = shared_from_this()] { self->showProcessed(); });
        }
        isProcessing_ = false;
        if (unprocessed_)
            process();
    }

    void showLive()
    {
        std::shared_ptr<const BufferSurface> picture;
        {
            const std::lock_guard lock(mutex_);
            picture = std::exchange(live_, nullptr);
        }
        const auto pictures = pictures_.lock();
        if (picture && pictures)
            pictures->showLive(picture);
    }

    void showProcessed()
    {
        std::shared_ptr<const Surface> picture;
        Background background{};
        {
            const std::lock_guard lock(mutex_);
            picture = std::exchange(processed_, nullptr);
            background = background_;
        }
        const auto pictures = pictures_.lock();
        if (picture && pictures)
            pictures->showProcessed(picture, background);
    }

    MainQueue& main_;
    SerialQueue& queue_;
    std::weak_ptr<WebcamPictures> pictures_;
    Effects effects_;
    std::mutex mutex_;
    Background background_ = Background::original;
    int round_ = 0;
    PixelSize shownSize_;
    bool isProcessing_ = false;
    /// Whether the picture that the camera is at has the size that effects are made in.
    bool isForEffects_ = true;
    std::shared_ptr<const BufferSurface> live_;
    std::shared_ptr<const BufferSurface> unprocessed_;
    /// Made for the present background and round.
    std::shared_ptr<const Surface> processed_;
};

WebcamCamera::WebcamCamera(Cameras& cameras, MainQueue& queue, Effects effects)
    : cameras_(cameras), queue_(queue),
      intake_(std::make_shared<Intake>(queue, effectsQueue_, pictures_, std::move(effects)))
{}

WebcamCamera::~WebcamCamera()
{
    stop();
}

void WebcamCamera::selectDevice(const std::string& deviceID)
{
    if (deviceID_ == deviceID)
        return;
    deviceID_ = deviceID;
    toldProblem_.clear();
    devices_ = cameras_.observeDevices([this] { followDevices(); });
    open();
}

void WebcamCamera::setBackground(Background background)
{
    if (background == pictures_->background())
        return;
    intake_->setBackground(background);
    pictures_->setBackground(background);
}

void WebcamCamera::setShownSize(PixelSize size)
{
    intake_->setShownSize(size);
}

void WebcamCamera::stop()
{
    deviceID_.reset();
    devices_.reset();
    close();
}

std::optional<CameraDevice> WebcamCamera::wantedDevice() const
{
    const std::vector<CameraDevice> devices = cameras_.devices();
    for (const auto& id : {deviceID_, cameras_.preferredDevice()}) {
        if (const auto found = deviceOf(devices, id))
            return found;
    }
    return devices.empty() ? std::nullopt : std::optional(devices.front());
}

void WebcamCamera::followDevices()
{
    const std::optional<CameraDevice> wanted = wantedDevice();
    const bool isOpenAsWanted = camera_ && wanted && device_ && wanted->id == device_->id;
    if (isOpenAsWanted)
        return;
    // The list mostly tells it before the camera itself does, which is closed then.
    if (camera_ && device_ && !deviceOf(cameras_.devices(), device_->id))
        tellLoss(*device_, "It is not there any more.");
    open();
}

void WebcamCamera::open()
{
    close();
    device_ = wantedDevice();
    if (!device_) {
        // Of one that went it has been told. At the start of the application the list of cameras is still on the way.
        if (toldProblem_.empty())
            retry_ = queue_.schedule(retryDelay, [this] { tellOnce("Couldn't use camera none"); });
        return;
    }
    const int round = intake_->beginRound();
    Cameras::Handlers handlers;
    handlers.wantedHalvings = [intake = intake_](int width, int height) {
        return intake->wantedHalvings({width, height});
    };
    handlers.onPicture = [intake = intake_, round](const std::shared_ptr<const BufferSurface>& picture) {
        intake->take(picture, round);
    };
    handlers.onLost = [this, device = *device_](const Error& error) { lost(device, error); };
    camera_ = cameras_.open(device_->id, std::move(handlers));
}

void WebcamCamera::close()
{
    retry_.reset();
    camera_.reset();
    // What is on its way is not shown any more.
    static_cast<void>(intake_->beginRound());
    pictures_->showNothing();
}

void WebcamCamera::lost(const CameraDevice& device, const Error& error)
{
    tellLoss(device, error.message);
    close();
    retry_ = queue_.schedule(retryDelay, [this] { open(); });
}

/// Before it is closed.
void WebcamCamera::tellLoss(const CameraDevice& device, const std::string& reason)
{
    const bool hadPictures = pictures_->live() != nullptr;
    if (hadPictures)
        toldProblem_.clear();
    tellOnce("Couldn't use camera " + device.name + ": " + reason);
}

void WebcamCamera::tellOnce(const std::string& problem)
{
    if (std::exchange(toldProblem_, problem) != problem)
        qCCritical(webcamLog, "%s", problem.c_str());
}

} // namespace nimbrale
