#include "ui/number_field.h"

#include "ui/secondary_label.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>

namespace nimbrale {

namespace {

constexpr int editWidth = 80;

} // namespace

NumberField::NumberField(const QString& label, const QString& accessibleName, const QString& unit, QWidget* parent)
    : QWidget(parent), label_(new QLabel(label, this)), edit_(new QLineEdit(this))
{
    label_->setBuddy(edit_);
    edit_->setFixedWidth(editWidth);
    edit_->setAlignment(Qt::AlignRight);
    edit_->setAccessibleName(accessibleName);
    setFocusProxy(edit_);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label_);
    layout->addWidget(edit_);
    layout->addWidget(new SecondaryLabel(unit));

    connect(edit_, &QLineEdit::editingFinished, this, [this] { commit(); });
    showValue();
}

void NumberField::setValue(std::int64_t value)
{
    value_ = value;
    if (!edit_->isModified())
        showValue();
}

void NumberField::commit()
{
    if (!edit_->isModified())
        return;
    bool isNumber = false;
    const qlonglong typed = edit_->locale().toLongLong(edit_->text().trimmed(), &isNumber);
    const bool isNew = isNumber && typed != value_;
    if (isNew)
        value_ = typed;
    showValue();
    if (isNew && onCommit)
        onCommit(value_);
}

void NumberField::showValue()
{
    // Setting the text also forgets that the user changed it.
    edit_->setText(edit_->locale().toString(static_cast<qlonglong>(value_)));
}

} // namespace nimbrale
