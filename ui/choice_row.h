#pragma once

#include <QStringList>

class QButtonGroup;
class QWidget;

namespace nimbrale {

/// Fills `row` with buttons of which one is chosen; their identifiers are their places, from 0 on. The group belongs to
/// the row. At least one label.
[[nodiscard]] QButtonGroup* makeChoice(QWidget* row, const QStringList& labels);

} // namespace nimbrale
