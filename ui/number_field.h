#pragma once

#include <QWidget>

#include <cstdint>
#include <functional>

class QLabel;
class QLineEdit;

namespace nimbrale {

/// A labelled field for a whole number, followed by its unit. Digits are grouped as the user's locale does it. There
/// is no minimum or maximum: whoever uses the number applies its limits.
class NumberField final : public QWidget {
public:
    /// `label` may mark its mnemonic. `accessibleName` is what a screen reader calls the field.
    NumberField(const QString& label, const QString& accessibleName, const QString& unit, QWidget* parent = nullptr);

    /// The user typed another number and pressed Return or left the field. Text that is no number is taken back.
    std::function<void(std::int64_t value)> onCommit;

    /// Shows a value that was set elsewhere; what the user is typing stays.
    void setValue(std::int64_t value);

private:
    void commit();
    void showValue();

    QLabel* label_;
    QLineEdit* edit_;
    std::int64_t value_ = 0;
};

} // namespace nimbrale
