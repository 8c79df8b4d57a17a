#pragma once

#include <QAbstractSpinBox>

#include <cstdint>
#include <functional>

namespace nimbrale {

/// A text field for a whole number, in the digits and groups of the user's locale. Up, Down, Page Up, Page Down and the
/// wheel step it.
class NumberEdit final : public QAbstractSpinBox {
public:
    explicit NumberEdit(QWidget* parent = nullptr);

    /// The user typed another number and pressed Return or left the field, or stepped to it. Text that is no number is
    /// taken back.
    std::function<void(std::int64_t value)> onCommit;
    /// The allowed number nearest to the one that a step leads to. Without it a step leads anywhere. What is typed is
    /// not asked for.
    std::function<std::int64_t(std::int64_t wanted)> nearestStep;

    /// Shows a value that was set elsewhere; what the user is typing stays.
    void setValue(std::int64_t value);

    void stepBy(int steps) override;

protected:
    [[nodiscard]] StepEnabled stepEnabled() const override;

private:
    [[nodiscard]] std::int64_t typedValue() const;
    void take(std::int64_t value);
    void showValue();
    [[nodiscard]] QString textOf(std::int64_t value) const;

    std::int64_t value_ = 0;
};

} // namespace nimbrale
