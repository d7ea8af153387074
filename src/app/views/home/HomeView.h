#pragma once

#include "app/shell/Page.h"

#include <QWidget>

class QLabel;
class QPushButton;

namespace nuvrel {

/// The first page: a card for each feature, leading to its page.
class HomeView final : public QWidget
{
    Q_OBJECT

public:
    /// A card for each of `pages`.
    explicit HomeView(const QList<Page>& pages, QWidget* parent = nullptr);
    void retranslate();

Q_SIGNALS:
    void pageChosen(nuvrel::Page page);

private:
    QLabel* m_title;
    QLabel* m_subtitle;
    struct Card
    {
        Page page;
        QPushButton* button;
        QLabel* title;
        QLabel* description;
    };
    QList<Card> m_cards;
};

/// The card's one-line description of what a page does.
QString pageDescription(Page page);

} // namespace nuvrel
