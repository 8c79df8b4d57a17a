#include "ui/settings_section.h"

#include "ui/secondary_label.h"

#include <QFrame>
#include <QLabel>
#include <QVBoxLayout>

namespace nimbrale {

namespace {

constexpr double captionScale = 0.9;
constexpr int textWidth = 380;

} // namespace

SettingsSection::SettingsSection(const QString& title, QWidget* content, QWidget* parent)
    : QWidget(parent), content_(content), note_(new SecondaryLabel({}, this))
{
    auto* heading = new QLabel(title, this);
    QFont headline = heading->font();
    headline.setBold(true);
    heading->setFont(headline);
    heading->setBuddy(content);
    heading->setHidden(title.isEmpty());

    QFont caption = note_->font();
    caption.setPointSizeF(caption.pointSizeF() * captionScale);
    note_->setFont(caption);
    note_->setWordWrap(true);
    note_->setMinimumWidth(textWidth);
    note_->hide();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(heading);
    layout->addWidget(content, 0, Qt::AlignLeft);
    layout->addWidget(note_);
}

void SettingsSection::setNote(const QString& note)
{
    if (note_->text() == note)
        return;
    note_->setText(note);
    note_->setHidden(note.isEmpty());
    content_->setAccessibleDescription(note);
}

void stackSections(QWidget& page, const std::vector<SettingsSection*>& sections)
{
    auto* layout = new QVBoxLayout(&page);
    for (SettingsSection* section : sections) {
        if (layout->count() > 0) {
            auto* divider = new QFrame;
            divider->setFrameStyle(static_cast<int>(QFrame::HLine) | static_cast<int>(QFrame::Sunken));
            layout->addWidget(divider);
        }
        layout->addWidget(section);
    }
    layout->addStretch();
}

} // namespace nimbrale
