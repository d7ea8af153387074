#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;

namespace nuvrel {

/// A check box whose text wraps onto as many lines as it needs. QCheckBox draws its text on one line,
/// which a long translation ("…So verlierst du es nie mehr") runs past the card's edge. Clicking the
/// text toggles the box, as with QCheckBox; the box carries the text as its accessible name.
class WrappingCheckBox final : public QWidget
{
    Q_OBJECT

public:
    explicit WrappingCheckBox(QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const;
    bool isChecked() const;
    void setChecked(bool checked);
    QCheckBox* box() const { return m_box; }

Q_SIGNALS:
    void toggled(bool checked);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QCheckBox* m_box;
    QLabel* m_label;
};

} // namespace nuvrel
