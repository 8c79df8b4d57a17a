#pragma once

#include <QString>
#include <QVariant>

#include <utility>
#include <vector>

class QComboBox;

namespace nimbrale {

/// What a picker offers, by its name and the value that is stored for it.
using PickerEntries = std::vector<std::pair<QString, QVariant>>;

/// A picker as wide as all of them, known to screen readers by that name.
[[nodiscard]] QComboBox* makePicker(const QString& accessibleName);

/// Makes the picker offer just these, with the stored one selected; a stored value that is not among them leaves none
/// selected. A list that is open stays open while nothing changes in it.
void fillPicker(QComboBox& picker, const PickerEntries& entries, const QVariant& stored);

} // namespace nimbrale
