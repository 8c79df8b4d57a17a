#include "ui/choice_row.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QRadioButton>

namespace nimbrale {

QButtonGroup* makeChoice(QWidget* row, const QStringList& labels)
{
    auto* group = new QButtonGroup(row);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (const QString& label : labels) {
        auto* button = new QRadioButton(label);
        group->addButton(button, static_cast<int>(group->buttons().size()));
        layout->addWidget(button);
    }
    layout->addStretch();
    // The key of the row's heading leads only to what takes the focus itself.
    row->setFocusPolicy(Qt::TabFocus);
    row->setFocusProxy(group->button(0));
    QObject::connect(group, &QButtonGroup::idToggled, row, [row, group](int place, bool isChosen) {
        if (isChosen)
            row->setFocusProxy(group->button(place));
    });
    return group;
}

} // namespace nimbrale
