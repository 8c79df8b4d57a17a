#pragma once

#include <QGuiApplication>

#include <gtest/gtest.h>
#include <memory>

namespace nimbrale {

/// The toolkit without a desktop, from the first test that starts it to the end of the last one.
class OffscreenApplication final : public testing::EmptyTestEventListener {
public:
    /// It may not live as long as the program: the toolkit's own statics are made after it and would go before it, with
    /// the fonts that it still keeps.
    void OnTestProgramEnd(const testing::UnitTest&) override { application_.reset(); }

private:
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    int argumentCount_ = 1;
    std::unique_ptr<QGuiApplication> application_ = std::make_unique<QGuiApplication>(argumentCount_, arguments_);
};

/// Starts the toolkit without a desktop, for tests that draw or measure text. May be called any number of times.
inline void startOffscreenApplication()
{
    if (QCoreApplication::instance())
        return;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::UnitTest::GetInstance()->listeners().Append(new OffscreenApplication);
}

} // namespace nimbrale
