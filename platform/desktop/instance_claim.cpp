#include "platform/desktop/instance_claim.h"

#include "platform/desktop/instance_socket.h"

#include <QCryptographicHash>

#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>

namespace nimbrale {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pauseBetweenLooks{20};

std::string fileName(const char* kind, const std::string& key, const char* suffix)
{
    const QByteArray hash = QCryptographicHash::hash(QByteArray::fromStdString(key), QCryptographicHash::Sha1);
    return std::string(kind) + "-" + hash.toHex().toStdString() + suffix;
}

/// The file stays for ever: were it removed, one process could lock the old file and another a new one.
FileDescriptor openLock(const RuntimeFolder& folder, const std::string& name)
{
    return FileDescriptor(
        openat(folder.descriptor.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
}

bool tryLock(const FileDescriptor& file)
{
    return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

Error lockMissing(const RuntimeFolder& folder)
{
    return {ErrorCode::permanent, "No lock can be made in " + folder.path.string() + "."};
}

enum class DisplayOutcome { claimed, handedOver };

/// Waits until the display is this process's or another instance has done what was asked.
Result<DisplayOutcome> claimDisplay(const FileDescriptor& lock, const RuntimeFolder& folder,
                                    const std::string& socketName, const InstanceRequest& request,
                                    const InstanceClaim::Patience& patience, uid_t user)
{
    Clock::time_point lastSignOfLife = Clock::now();
    while (!tryLock(lock)) {
        const Result<std::optional<InstanceAnswer>> answer =
            askInstance(folder.descriptor, socketName, request, patience.forAnswer, user);
        if (!answer)
            return tl::make_unexpected(answer.error());
        // No answer: it is about to listen, or does so no more.
        if (*answer) {
            if (**answer == InstanceAnswer::done)
                return DisplayOutcome::handedOver;
            if (**answer == InstanceAnswer::unknown)
                return fail(ErrorCode::unsupported, "Nimbrale is running already, as a version that does not know what "
                                                    "it was asked for. Quit it to start this one.");
            lastSignOfLife = Clock::now();
        }
        if (Clock::now() - lastSignOfLife > patience.forEnd)
            return fail(ErrorCode::temporary, "Nimbrale is still ending. Start it again in a moment.");
        std::this_thread::sleep_for(pauseBetweenLooks);
    }
    return DisplayOutcome::claimed;
}

bool waitForLock(const FileDescriptor& lock, std::chrono::milliseconds patience)
{
    const Clock::time_point end = Clock::now() + patience;
    while (!tryLock(lock)) {
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(pauseBetweenLooks);
    }
    return true;
}

} // namespace

std::string displayKey(const std::string& displayName)
{
    const std::size_t colon = displayName.rfind(':');
    if (colon == std::string::npos)
        return displayName;
    const std::string host = displayName.substr(0, colon);
    const std::string numbers = displayName.substr(colon, displayName.find('.', colon) - colon);
    return host == "unix" ? numbers : host + numbers;
}

Result<std::optional<InstanceClaim>> InstanceClaim::make(const Subject& subject, const InstanceRequest& request,
                                                         const Patience& patience)
{
    InstanceClaim claim;
    const Result<RuntimeFolder> folder = openRuntimeFolder(subject.user);
    if (!folder) {
        std::fprintf(stderr, "Nimbrale: %s A second start is not noticed.\n", folder.error().message.c_str());
        return claim;
    }
    const std::string display = displayKey(subject.displayName);
    claim.displayLock_ = openLock(*folder, fileName("display", display, ".lock"));
    claim.settingsLock_ = openLock(*folder, fileName("settings", subject.settingsFile.string(), ".lock"));
    if (!claim.displayLock_ || !claim.settingsLock_)
        return tl::make_unexpected(lockMissing(*folder));

    const std::string socketName = fileName("display", display, ".socket");
    const Result<DisplayOutcome> outcome =
        claimDisplay(claim.displayLock_, *folder, socketName, request, patience, subject.user);
    if (!outcome)
        return tl::make_unexpected(outcome.error());
    if (*outcome == DisplayOutcome::handedOver)
        return std::nullopt;
    if (!waitForLock(claim.settingsLock_, patience.forSettings))
        return fail(ErrorCode::unsupported, "Nimbrale is running already on another display of this account, and its "
                                            "settings hold one frame only. Quit it there first.");
    auto listening = listenForInstances(folder->descriptor, socketName);
    if (!listening)
        return tl::make_unexpected(listening.error());
    claim.listeningSocket_ = std::move(*listening);
    return claim;
}

FileDescriptor InstanceClaim::takeListeningSocket()
{
    return std::move(listeningSocket_);
}

} // namespace nimbrale
