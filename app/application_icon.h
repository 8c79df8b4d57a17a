#pragma once

#include <QIcon>

namespace nimbrale {

/// The icon of the application's windows: the installed one, which the user's icon theme may replace, or the one that
/// the program carries. The toolkit's application object must exist.
[[nodiscard]] QIcon applicationIcon();

} // namespace nimbrale
