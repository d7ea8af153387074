#include "app/HomeView.h"

#include "app/Icons.h"
#include "l10n/L.h"

#include <QGridLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace nuvrel {

QString pageDescription(Page page)
{
    switch (page) {
    case Page::Explore: return L("Retrouve les photos, les fichiers et les conversations de tes sauvegardes d'iPhone.");
    default: return {};
    }
}

HomeView::HomeView(QWidget* parent)
    : QWidget(parent)
    , m_title(new QLabel(this))
    , m_subtitle(new QLabel(this))
{
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle->setObjectName(QStringLiteral("muted"));
    m_subtitle->setWordWrap(true);

    auto* grid = new QGridLayout;
    grid->setSpacing(14);
    int index = 0;
    for (const Page page : availablePages) {
        if (page == Page::Home)
            continue;
        auto* card = new QToolButton(this);
        card->setObjectName(QStringLiteral("card"));
        card->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        card->setIcon(Icons::icon(iconName(page)));
        card->setIconSize(QSize(36, 36));
        card->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        card->setMinimumHeight(92);
        card->setCursor(Qt::PointingHandCursor);
        connect(card, &QToolButton::clicked, this, [this, page] { Q_EMIT pageChosen(page); });
        grid->addWidget(card, index / 2, index % 2);
        m_cards.append({page, card});
        ++index;
    }
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    layout->addSpacing(10);
    layout->addLayout(grid);
    layout->addStretch(1);
    retranslate();
}

void HomeView::retranslate()
{
    m_title->setText(L("Accueil"));
    m_subtitle->setText(L("Tout se passe sur cet ordinateur : tes fichiers ne partent nulle part."));
    for (const auto& [page, card] : std::as_const(m_cards)) {
        card->setText(title(page) + u'\n' + pageDescription(page));
        card->setAccessibleName(title(page));
        card->setAccessibleDescription(pageDescription(page));
    }
}

} // namespace nuvrel
