#pragma once

#include <QLabel>

namespace nimbrale {

/// A label for what stands back: notes, units and captions. Paler than other text, in light and dark palettes alike,
/// and still dark enough to be read when it is small.
class SecondaryLabel final : public QLabel {
public:
    explicit SecondaryLabel(const QString& text, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void adoptColor();
};

} // namespace nimbrale
