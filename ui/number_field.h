#pragma once

#include "ui/number_edit.h"

#include <QWidget>

class QLabel;

namespace nimbrale {

/// A labelled number, followed by its unit. There is no minimum or maximum for what is typed: whoever uses the number
/// applies its limits.
class NumberField final : public QWidget {
public:
    /// `label` may mark its mnemonic. `accessibleName` is what a screen reader calls the field.
    NumberField(const QString& label, const QString& accessibleName, const QString& unit, QWidget* parent = nullptr);

    /// Has their fields begin below each other where the two stand below each other.
    static void align(NumberField& one, NumberField& other);

    /// The number's field, which has the keyboard for this widget.
    [[nodiscard]] NumberEdit& edit() { return *edit_; }

private:
    QLabel* label_;
    NumberEdit* edit_;
};

} // namespace nimbrale
