#pragma once

#include <QWidget>

#include <vector>

class QLabel;

namespace nimbrale {

/// A titled group of controls with an optional explanatory note below them.
class SettingsSection final : public QWidget {
public:
    /// `content` becomes a part of the section. An empty title takes no room. The title's mnemonic, if it has one,
    /// leads to `content`; the note is what a screen reader says about it.
    SettingsSection(const QString& title, QWidget* content, QWidget* parent = nullptr);

    /// An empty note takes no room.
    void setNote(const QString& note);

private:
    QWidget* content_;
    QLabel* note_;
};

/// Makes the sections the contents of `page`, from the top down, with dividers between them.
void stackSections(QWidget& page, const std::vector<SettingsSection*>& sections);

} // namespace nimbrale
