#include "ui/number_edit.h"

#include <QLineEdit>
#include <QLocale>

#include <limits>
#include <optional>

namespace nimbrale {

namespace {

/// What separates groups, also as keyboards have it where they lack the narrow space or the curly apostrophe, and the
/// invisible marks that keep a sign on its side of a number.
bool isLeftOut(QChar character, const QString& groupSeparator)
{
    if (character.category() == QChar::Other_Format || groupSeparator.contains(character))
        return true;
    const bool areGroupsSpaced = groupSeparator.size() == 1 && groupSeparator.front().isSpace();
    return (character.isSpace() && areGroupsSpaced) || (character == u'\'' && groupSeparator == u"’");
}

/// A digit or sign of any script as the C locale has it.
QChar plainCharacter(QChar character)
{
    constexpr QChar minus(0x2212);
    if (character.category() == QChar::Number_DecimalDigit)
        return QChar('0' + character.digitValue());
    return character == minus ? QChar('-') : character;
}

/// Groups may be left out and stand anywhere, as they do when digits are added to a number that has some.
std::optional<std::int64_t> parsedNumber(const QLocale& locale, const QString& text)
{
    QString plain;
    for (const QChar character : text.trimmed()) {
        if (!isLeftOut(character, locale.groupSeparator()))
            plain += plainCharacter(character);
    }
    QLocale withoutGroups = QLocale::c();
    withoutGroups.setNumberOptions(QLocale::RejectGroupSeparator);
    bool isNumber = false;
    const qlonglong number = withoutGroups.toLongLong(plain, &isNumber);
    return isNumber ? std::optional<std::int64_t>(number) : std::nullopt;
}

std::int64_t saturatedSum(std::int64_t value, int steps)
{
    using Limits = std::numeric_limits<std::int64_t>;
    if (steps > 0)
        return value > Limits::max() - steps ? Limits::max() : value + steps;
    return value < Limits::min() - steps ? Limits::min() : value + steps;
}

} // namespace

NumberEdit::NumberEdit(QWidget* parent) : QAbstractSpinBox(parent)
{
    setButtonSymbols(QAbstractSpinBox::NoButtons);
    setAlignment(Qt::AlignRight);
    connect(this, &QAbstractSpinBox::editingFinished, this, [this] { take(typedValue()); });
    showValue();
}

void NumberEdit::setValue(std::int64_t value)
{
    const bool wasShown = text() == textOf(value_);
    value_ = value;
    if (wasShown)
        showValue();
}

void NumberEdit::stepBy(int steps)
{
    const std::int64_t wanted = saturatedSum(typedValue(), steps);
    take(nearestStep ? nearestStep(wanted) : wanted);
}

QAbstractSpinBox::StepEnabled NumberEdit::stepEnabled() const
{
    return StepUpEnabled | StepDownEnabled;
}

std::int64_t NumberEdit::typedValue() const
{
    return parsedNumber(locale(), text()).value_or(value_);
}

void NumberEdit::take(std::int64_t value)
{
    const bool isNew = value != value_;
    value_ = value;
    showValue();
    if (isNew && onCommit)
        onCommit(value_);
}

void NumberEdit::showValue()
{
    lineEdit()->setText(textOf(value_));
}

QString NumberEdit::textOf(std::int64_t value) const
{
    return locale().toString(static_cast<qlonglong>(value));
}

} // namespace nimbrale
