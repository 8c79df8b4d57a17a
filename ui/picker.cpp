#include "ui/picker.h"

#include <QComboBox>

namespace nimbrale {

QComboBox* makePicker(const QString& accessibleName)
{
    constexpr int width = 260;
    auto* picker = new QComboBox;
    picker->setFixedWidth(width);
    picker->setAccessibleName(accessibleName);
    return picker;
}

void fillPicker(QComboBox& picker, const PickerEntries& entries, const QVariant& stored)
{
    bool isSame = std::cmp_equal(picker.count(), entries.size());
    for (int index = 0; isSame && index < picker.count(); ++index) {
        const auto& [name, value] = entries[static_cast<std::size_t>(index)];
        isSame = picker.itemText(index) == name && picker.itemData(index) == value;
    }
    if (!isSame) { // Filling the list closes it, which is not to happen under the user's hand.
        picker.clear();
        for (const auto& [name, value] : entries)
            picker.addItem(name, value);
    }
    const int selected = picker.findData(stored);
    if (picker.currentIndex() != selected)
        picker.setCurrentIndex(selected);
}

} // namespace nimbrale
