#pragma once

#include <QApplication>

namespace nimbrale {

/// The toolkit's application object without a desktop, for tests with widgets. It lives as long as this object.
class OffscreenToolkit {
private:
    [[nodiscard]] static bool useNoDesktop() { return qputenv("QT_QPA_PLATFORM", "offscreen"); }

    bool isPrepared_ = useNoDesktop();
    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    QApplication application_{argumentCount_, arguments_};
};

} // namespace nimbrale
