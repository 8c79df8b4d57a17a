#include "platform/x11/virtual_display/caretaker.h"

#include "platform/log.h"

#include <QCoreApplication>
#include <QProcess>

namespace nimbrale::x11 {

bool startCaretaker(const std::string& displayName)
{
    QProcess process;
    process.setProgram(QCoreApplication::applicationDirPath() + "/nimbrale-caretaker");
    process.setArguments({displayName.empty() ? qEnvironmentVariable("DISPLAY") : QString::fromStdString(displayName)});
    // Whoever reads what this process prints would wait for the end of the other, too.
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (process.startDetached())
        return true;
    qCWarning(virtualDisplayLog).noquote() << "Cannot start" << process.program();
    return false;
}

} // namespace nimbrale::x11
