#include "ui/number_field.h"

#include "ui/secondary_label.h"

#include <QHBoxLayout>
#include <QLabel>

#include <algorithm>

namespace nimbrale {

namespace {

constexpr int editWidth = 80;

} // namespace

NumberField::NumberField(const QString& label, const QString& accessibleName, const QString& unit, QWidget* parent)
    : QWidget(parent), label_(new QLabel(label, this)), edit_(new NumberEdit(this))
{
    label_->setBuddy(edit_);
    edit_->setFixedWidth(editWidth);
    edit_->setAccessibleName(accessibleName);
    setFocusProxy(edit_);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label_);
    layout->addWidget(edit_);
    layout->addWidget(new SecondaryLabel(unit));
}

void NumberField::align(NumberField& one, NumberField& other)
{
    const int width = std::max(one.label_->sizeHint().width(), other.label_->sizeHint().width());
    for (NumberField* field : {&one, &other})
        field->label_->setMinimumWidth(width);
}

} // namespace nimbrale
