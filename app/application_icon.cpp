#include "app/application_icon.h"

#include <QString>

namespace nimbrale {

QIcon applicationIcon()
{
    QIcon carried;
    for (const int size : {16, 24, 32, 48, 64, 128, 256})
        carried.addFile(QString(":/icons/nimbrale-%1.png").arg(size));
    return QIcon::fromTheme("nimbrale", carried);
}

} // namespace nimbrale
