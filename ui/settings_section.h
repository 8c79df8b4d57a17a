#pragma once

#include <QWidget>

class QLabel;

namespace nimbrale {

/// A titled group of controls with an optional explanatory note below them.
class SettingsSection final : public QWidget {
public:
    /// `content` becomes a part of the section. The title's mnemonic, if it has one, leads to `content`; the note is
    /// what a screen reader says about it.
    SettingsSection(const QString& title, QWidget* content, QWidget* parent = nullptr);

    /// An empty note takes no room.
    void setNote(const QString& note);

private:
    QWidget* content_;
    QLabel* note_;
};

} // namespace nimbrale
