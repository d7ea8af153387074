#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace nuvrel {

/// The first screen on first use: what the application does and its promise, then "Commencer".
class WelcomeView final : public QWidget
{
    Q_OBJECT

public:
    explicit WelcomeView(QWidget* parent = nullptr);
    void retranslate();
    QPushButton* startButton() const { return m_start; }

Q_SIGNALS:
    void finished();

private:
    QLabel* m_title;
    QLabel* m_lead;
    QList<QLabel*> m_points;
    QPushButton* m_start;
};

} // namespace nuvrel
