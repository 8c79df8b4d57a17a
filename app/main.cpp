#include "app/nimbrale_app.h"
#include "platform/create.h"
#include "platform/desktop/desktop_session.h"
#include "platform/desktop/instance_claim.h"
#include "platform/desktop/instance_listener.h"
#include "webcam/effects_on_demand.h"

#include <QApplication>
#include <QMessageBox>
#include <QTranslator>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::string_view toggleRecordingOption = "--toggle-recording";
constexpr const char* help = "Usage: nimbrale [--toggle-recording | --help | --version]\n"
                             "Shares the part of the screen inside a yellow frame in any meeting application.\n"
                             "\n"
                             "  --toggle-recording  starts a recording in the Nimbrale that runs, or ends it; where "
                             "none runs, starts Nimbrale\n";

/// Answers the arguments that need no desktop. The exit code, or -1 to go on.
int answerArguments(int argumentCount, char** arguments)
{
    constexpr int goOn = -1;
    if (argumentCount < 2)
        return goOn;
    const std::string_view argument = arguments[1];
    if (argument == toggleRecordingOption)
        return goOn;
    if (argument == "--version") {
        std::puts("nimbrale " NIMBRALE_VERSION);
        return EXIT_SUCCESS;
    }
    const bool isHelpWanted = argument == "--help" || argument == "-h";
    std::fputs(help, isHelpWanted ? stdout : stderr);
    return isHelpWanted ? EXIT_SUCCESS : 2;
}

/// The toolkit aborts when it cannot reach the desktop, which would be reported as a crash.
void exitOnFatalMessage(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    std::fprintf(stderr, "Nimbrale: %s\n", qUtf8Printable(message));
    if (type == QtFatalMsg)
        std::_Exit(EXIT_FAILURE);
}

int endWithMessage(const nimbrale::Error& error)
{
    std::fprintf(stderr, "Nimbrale: %s\n", error.message.c_str());
    QMessageBox::critical(nullptr, "Nimbrale", QString::fromStdString(error.message));
    return EXIT_FAILURE;
}

nimbrale::InstanceAnswer answerInstance(nimbrale::NimbraleApp& app, const nimbrale::InstanceRequest& request)
{
    if (app.isEnding())
        return nimbrale::InstanceAnswer::ending;
    if (request.command == nimbrale::instance_command::openSettings)
        app.applicationWasReopened(nimbrale::parseEventTime(request.argument));
    else if (request.command == nimbrale::instance_command::toggleRecording)
        app.toggleRecording();
    else
        return nimbrale::InstanceAnswer::unknown;
    return nimbrale::InstanceAnswer::done;
}

/// A launcher tells when the user started the program.
nimbrale::InstanceRequest openSettingsRequest()
{
    const std::string launch = qEnvironmentVariable("DESKTOP_STARTUP_ID").toStdString();
    const std::optional<nimbrale::EventTime> time = nimbrale::timeOfLaunch(launch);
    return {std::string(nimbrale::instance_command::openSettings), time ? std::to_string(*time) : std::string()};
}

/// What is asked of the program that runs already.
nimbrale::InstanceRequest instanceRequest(int argumentCount, char** arguments)
{
    if (argumentCount > 1 && arguments[1] == toggleRecordingOption)
        return {std::string(nimbrale::instance_command::toggleRecording), {}};
    return openSettingsRequest();
}

nimbrale::InstanceClaim::Subject claimSubject()
{
    return {qEnvironmentVariable("DISPLAY").toStdString(), nimbrale::AppSettings::pathOfUserSettings()};
}

} // namespace

int main(int argc, char** argv)
{
    if (const int exitCode = answerArguments(argc, argv); exitCode >= 0)
        return exitCode;
    if (!nimbrale::namesX11Display() && !nimbrale::namesWaylandDisplay()) {
        std::fputs("Nimbrale needs a desktop: neither DISPLAY nor WAYLAND_DISPLAY is set. Start it from a desktop "
                   "session.\n",
                   stderr);
        return EXIT_FAILURE;
    }
    // Goes last, so that another start waits until the desktop is in order again.
    auto claim = nimbrale::InstanceClaim::make(claimSubject(), instanceRequest(argc, argv));
    if (claim && !*claim)
        return EXIT_SUCCESS;

    nimbrale::prepareToolkit();
    const QtMessageHandler usualHandler = qInstallMessageHandler(exitOnFatalMessage);
    QApplication application(argc, argv);
    qInstallMessageHandler(usualHandler);
    QApplication::setApplicationName("Nimbrale");
    QApplication::setApplicationVersion(NIMBRALE_VERSION);
    QApplication::setDesktopFileName("nimbrale");
    QTranslator systemWords;
    if (systemWords.load(":/translations/nimbrale_en_linux.qm"))
        QApplication::installTranslator(&systemWords);

    if (!claim)
        return endWithMessage(claim.error());
    auto platform = nimbrale::createPlatform();
    if (!platform)
        return endWithMessage(platform.error());
    nimbrale::NimbraleApp app(
        **platform, nimbrale::AppSettings::shared(),
        std::make_shared<nimbrale::WebcamCamera>((*platform)->cameras(), (*platform)->mainQueue(),
                                                 nimbrale::effectsOnDemand(nimbrale::createPersonSegmentation)));
    const nimbrale::InstanceListener listener(
        (*claim)->takeListeningSocket(),
        [&app](const nimbrale::InstanceRequest& request) { return answerInstance(app, request); });
    return app.run();
}
